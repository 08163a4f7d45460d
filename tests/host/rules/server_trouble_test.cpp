// What the rules make of servers that refuse everything, lock accounts, stall where they need not, and are interrupted.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "host/held/held_sending.h"
#include "tests/host/rules/household.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using host::NextRun;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

class ServerTrouble : public ::testing::Test {
protected:
    explicit ServerTrouble(const std::vector<std::string>& names = {"a"}) : house(true, names) {}

    // Refuses every message, or those with these subjects, each time with another id in the same words.
    void Refuse(const std::string& begin, const Ids& subjects = {}) {
        house.smtp.SetJudge([this, begin, subjects](const DeliveredMail& mail) {
            const bool is_meant = subjects.empty() || std::ranges::any_of(subjects, [&](const std::string& subject) {
                                      return mail.text.find("Subject: " + subject + "\r\n") != std::string::npos;
                                  });
            return is_meant ? begin + " id=AB" + std::to_string(++refusals_) + " by policy" : std::string();
        });
    }

    // The same for recipients.
    void RefuseRecipients(const std::string& code, const std::string& only = "") {
        house.smtp.SetFault([this, code, only](const std::string& command) -> std::string {
            if (!command.starts_with("RCPT TO:<" + only)) return "";
            const std::string address = command.substr(command.find('<'));
            return code + ' ' + address + ": host [192.0.2." + std::to_string(++refusals_) + "] blocked";
        });
    }

    Household house;

private:
    std::atomic<int> refusals_ = 0;
};

class ServerTroubleOfTwo : public ServerTrouble {
protected:
    ServerTroubleOfTwo() : ServerTrouble({"a", "b"}) {}
};

TEST_F(ServerTrouble, BlocklistIsRecognisedThoughEveryRefusalHasAnIdOfItsOwn) {
    Refuse("554 5.7.1");
    house.Add({"u1", "u2", "u3", "u4"});
    for (int run = 1; run <= 3; ++run) {
        EXPECT_EQ(house.Run().ending, CRunEnding::DeliveryFailed);
        EXPECT_THAT(house.Held(), SizeIs(2)) << run;
    }
    house.smtp.SetJudge({});
    EXPECT_EQ(house.Run().ending, CRunEnding::Delivered);
    EXPECT_THAT(house.Arrived(), UnorderedElementsAre(Pair("u3 -> a@x", 1), Pair("u4 -> a@x", 1)));
}

TEST_F(ServerTrouble, ThreeBadMessagesInARowKeepNoOtherBack) {
    Refuse("554 5.7.1", {"u1", "u2", "u3", "u4"});
    house.Add({"u1", "u2", "u3", "u4", "u5"});
    house.Run(2);
    EXPECT_THAT(house.Held(), SizeIs(2));
    house.Run();
    EXPECT_THAT(house.Arrived(), UnorderedElementsAre(Pair("u5 -> a@x", 1)));
    EXPECT_THAT(house.Held(), SizeIs(4));
}

TEST_F(ServerTrouble, BadMessagesOfSeveralRunsAreNotTakenForABlocklist) {
    Refuse("554 5.7.1");
    for (const char* id : {"u1", "u2", "u3", "u4"}) {
        house.Add({id});
        EXPECT_EQ(house.Run().ending, CRunEnding::Delivered);
    }
    EXPECT_THAT(house.Held(), SizeIs(4));
}

TEST_F(ServerTrouble, RefusalOfEverythingForTheTimeBeingIsTheServersToo) {
    Refuse("451 4.3.1");
    house.Add({"u1", "u2", "u3", "u4", "u5"});
    house.Run(8);
    EXPECT_THAT(house.Held(), SizeIs(2));
    house.smtp.SetJudge({});
    house.Run();
    EXPECT_THAT(house.Arrived(), SizeIs(3));
}

TEST_F(ServerTroubleOfTwo, BlocklistAtTheRecipientsParksNoMoreThanTheFirst) {
    RefuseRecipients("550 5.7.1");
    house.Add({"u1", "u2"});
    for (int run = 1; run <= 3; ++run, house.now += kHour) {
        EXPECT_EQ(house.Run().ending, CRunEnding::DeliveryFailed);
        ASSERT_THAT(house.Held(), SizeIs(1)) << run;
    }
    house.smtp.SetFault({});
    EXPECT_EQ(house.Run().ending, CRunEnding::Delivered);
    EXPECT_THAT(house.Arrived(),
                UnorderedElementsAre(Pair("u1 -> b@x", 1), Pair("u2 -> a@x", 1), Pair("u2 -> b@x", 1)));
    const auto held = *host::HeldStore(house.profile.path).List();
    EXPECT_THAT(host::DueHeld(house.profile, held, house.now), SizeIs(1)) << "and u1 follows for a";
}

TEST_F(ServerTroubleOfTwo, OneBadAddressKeepsNothingFromTheOtherAfterABlocklist) {
    RefuseRecipients("550 5.7.1");
    house.Add({"u1", "u2"});
    house.Run();
    RefuseRecipients("550 5.7.1", "a");
    EXPECT_EQ(house.Run().ending, CRunEnding::Delivered);
    EXPECT_THAT(house.Arrived(), UnorderedElementsAre(Pair("u1 -> b@x", 1), Pair("u2 -> b@x", 1)));
    EXPECT_TRUE(house.Memory().IsParked("a@x"));
}

TEST_F(ServerTroubleOfTwo, AddressesThatAreUnknownAreParked) {
    RefuseRecipients("550 5.1.1");
    house.Add({"u1", "u2"});
    EXPECT_EQ(house.Run().ending, CRunEnding::Delivered);
    EXPECT_THAT(house.Held(), SizeIs(4));
    EXPECT_EQ(house.smtp.Received("RCPT"), 2);
}

TEST_F(ServerTrouble, SingleAddressThatIsRefusedIsParked) {
    for (const char* code : {"550", "550 5.7.1"}) {
        Household one(true);
        one.smtp.SetFault(AnswerTo("RCPT", code + std::string(" user unknown")));
        one.Add({"u1", "u2", "u3", "u4"});
        EXPECT_EQ(one.Run().ending, CRunEnding::Delivered) << code;
        EXPECT_THAT(one.Held(), SizeIs(4)) << code;
        EXPECT_EQ(one.smtp.Received("RCPT"), 1) << code;
    }
}

TEST_F(ServerTrouble, WrongSmtpPasswordIsTriedLessAndLessOften) {
    house.profile.setting.smtpauth = 1;
    house.smtp.SetFault([](const std::string& command) {
        if (command.starts_with("EHLO")) return "250-relay\r\n250-AUTH PLAIN\r\n250 SIZE";
        return command.starts_with("AUTH") ? "535 5.7.8 wrong" : "";
    });
    house.Add({"u1"});
    house.Run();
    for (int i = 1; i < 144; ++i, house.now += kInterval) {
        if (!house.Memory().MayLogIn(host::MailServer::Smtp, house.now)) continue;
        house.Run();
        house.now -= kInterval;
    }
    EXPECT_LE(house.smtp.Received("AUTH"), 12);
    EXPECT_GE(house.smtp.Received("AUTH"), 6);
    EXPECT_EQ(house.pop.Received("RETR"), 1);
    EXPECT_TRUE(house.Memory().MayLogIn(host::MailServer::Pop3, house.now));

    house.smtp.SetFault({});
    house.Run();
    EXPECT_THAT(house.Arrived(), SizeIs(1));
    EXPECT_THAT(house.Memory().Notes(host::Matter::SmtpLogin), IsEmpty());
}

TEST_F(ServerTrouble, ServerThatStallsWhenAskedForSizesIsNotAskedForADay) {
    house.profile.setting.timeout = 1;
    house.pop.SetFault(AnswerTo("LIST", "stall"));
    house.Add({"u1", "u2"});
    house.Run();
    EXPECT_EQ(house.next, NextRun::InAMinute);
    EXPECT_THAT(house.Memory().Notes(host::Matter::NotFetched), IsEmpty());
    house.Run();
    EXPECT_THAT(house.Arrived(), SizeIs(2));
    house.pop.SetFault({});
    for (const int asked : {1, 2}) {
        house.Add({"v" + std::to_string(asked)});
        house.Run();
        EXPECT_EQ(house.pop.Received("LIST"), asked);
        house.now += 24 * kHour;
    }
}

// Waits until the server has been told something so many times.
template <class Server>
bool WaitFor(const Server& server, const std::string& verb, int times) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (server.Received(verb) < times && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(1ms);
    }
    return server.Received(verb) >= times;
}

TEST_F(ServerTrouble, MessageIsNotBlamedForAnInterruptedRunUnlessItTookAllTheTime) {
    house.profile.setting.timeout = 20;
    house.pop.SetFault(AnswerTo("RETR", "stall"));
    house.Add({"u1", "u2"});
    for (const bool for_time : {false, true}) {
        const CRunResult result = house.RunWhile([&](host::RunRules& rules) {
            EXPECT_TRUE(WaitFor(house.pop, "RETR", for_time ? 2 : 1));
            if (for_time) rules.EndsForTime();
            InterruptRuns(house.tree.root);
        });
        EXPECT_TRUE(result.interrupted);
        EXPECT_THAT(house.Memory().Notes(host::Matter::NotFetched), SizeIs(for_time ? 1 : 0));
    }
}

TEST_F(ServerTrouble, TrialOfSmtpBeforeARunCanBeInterrupted) {
    house.smtp.SetFault(AnswerTo("MAIL", "close"));
    house.Add({"u1"});
    house.Run();
    house.profile.setting.timeout = 20;
    house.smtp.SetFault(AnswerTo("QUIT", "stall"));
    const auto begun = std::chrono::steady_clock::now();
    const CRunResult result = house.RunWhile([&](host::RunRules&) {
        EXPECT_TRUE(WaitFor(house.smtp, "QUIT", 1));
        InterruptRuns(house.tree.root);
    });
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 15s);
    EXPECT_TRUE(result.interrupted);
    EXPECT_EQ(house.pop.Received("RETR"), 1) << "of the run before";
}

}  // namespace
}  // namespace tarvex::testing
