// What becomes of mail at servers that refuse, stall, lie and forget: by the engine's rules alone, and by the host's.

#include "host/rules/run_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/host/rules/household.h"

namespace tarvex::testing {
namespace {

using host::NextRun;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

constexpr std::int64_t kMostMessage = std::int64_t{256} << 20;

// With and without rules, side by side.
class Rules : public ::testing::Test {
protected:
    explicit Rules(const std::vector<std::string>& names = {"a"}) : without(false, names), with(true, names) {}

    template <class Do>
    void Both(Do what) {
        what(without);
        what(with);
    }

    Household without;
    Household with;
};

class RulesOfTwo : public Rules {
protected:
    RulesOfTwo() : Rules({"a", "b"}) {}
};

TEST_F(Rules, MessageThatIsRefusedForGoodIsSetAsideAndTheRestFlows) {
    Both([](Household& house) {
        house.smtp.SetJudge(RefuseSubject("u2", "554 no"));
        house.Add({"u1", "u2", "u3"});
        house.Run(3);
    });
    EXPECT_THAT(without.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1)));
    EXPECT_EQ(without.pop.Received("RETR"), 3 + 2 + 2);
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1), Pair("u3 -> a@x", 1)));
    EXPECT_THAT(with.Held(), ElementsAre("u2 -> a@x: 554 no"));
    EXPECT_EQ(with.pop.Received("RETR"), 3);
}

TEST_F(RulesOfTwo, RefusedRecipientIsParkedAndTheOtherGetsEverything) {
    Both([](Household& house) {
        house.smtp.SetFault(AnswerTo("RCPT TO:<b@x>", "550 unknown"));
        house.Add({"u1", "u2"});
        house.Run(3);
    });
    EXPECT_THAT(without.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 3)));
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1), Pair("u2 -> a@x", 1)));
    EXPECT_THAT(with.Held(), ElementsAre("u1 -> b@x: 550 unknown", "u2 -> b@x: 550 unknown"));
    EXPECT_EQ(with.smtp.Received("RCPT"), 3) << "the server is asked about b once";

    with.now += kHour;
    with.Add({"u3"});
    with.Run();
    EXPECT_EQ(with.smtp.Received("RCPT"), 5) << "and once more after an hour";
    with.smtp.SetFault({});
    with.now += kHour;
    with.Add({"u4"});
    with.Run();
    EXPECT_EQ(with.Arrived()["u4 -> b@x"], 1);
    EXPECT_FALSE(with.Memory().IsParked("b@x"));
}

// The first address is served before the second is refused, so it gets a copy in every run.
TEST_F(RulesOfTwo, RefusalOfTheSecondForTheTimeBeingCostsTheFirstNoCopy) {
    Both([](Household& house) {
        house.smtp.SetFault(AnswerTo("RCPT TO:<b@x>", "450 greylisted"));
        house.Add({"u1"});
        house.Run(4);
    });
    EXPECT_THAT(without.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 4)));
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1)));
    EXPECT_THAT(with.Held(), ElementsAre("u1 -> b@x: 450 greylisted"));
}

TEST_F(Rules, AnswerThatTakesLongerThanTheTimeOutIsWaitedFor) {
    Both([](Household& house) {
        house.profile.setting.timeout = 1;
        house.smtp.SetJudge([](const DeliveredMail&) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1300));  // it is what is tested
            return std::string();
        });
        house.Add({"u1"});
        house.Run(2);
    });
    EXPECT_THAT(without.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 2)));
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1)));
}

TEST_F(Rules, ReportAboutAnAddressIsNotSentToIt) {
    const std::string report =
        "Return-Path: <>\r\nFrom: MAILER-DAEMON@x\r\nSubject: bounce\r\nAuto-Submitted: auto-replied\r\n"
        "Content-Type: multipart/report; report-type=delivery-status; boundary=b\r\n\r\n--b\r\n\r\nsorry\r\n"
        "--b\r\nContent-Type: message/delivery-status\r\n\r\nFinal-Recipient: rfc822; A@X\r\nStatus: "
        "5.1.1\r\n--b--\r\n";
    Both([&](Household& house) {
        house.pop.Add({"bounce", report});
        house.Run();
    });
    EXPECT_THAT(without.Arrived(), UnorderedElementsAre(Pair("bounce -> a@x", 1)));
    EXPECT_THAT(with.Arrived(), IsEmpty());
    EXPECT_THAT(with.Held(), ElementsAre("bounce -> a@x: "));
    EXPECT_THAT(with.Memory().Notes(host::Matter::Bouncing), SizeIs(1));
}

TEST_F(Rules, MessageThatComesBackIsSetAside) {
    const auto passing = [](const std::string& trace) {
        return trace +
               "From: b@y\r\nDate: Sun, 22 Nov 2026 08:00:00 +0000\r\nMessage-ID: <1@y>\r\nSubject: s\r\n\r\ntext\r\n";
    };
    Both([&](Household& house) {
        house.pop.Add({"u1", passing("Received: by y\r\n")});
        house.Run();
        house.pop.Add({"u2", passing("Received: by x\r\nReceived: by y\r\n")});
        house.Run();
    });
    EXPECT_THAT(without.Arrived(), UnorderedElementsAre(Pair("s -> a@x", 2)));
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("s -> a@x", 1)));
    EXPECT_THAT(with.Held(), ElementsAre("u2 -> a@x: "));
}

TEST_F(RulesOfTwo, DeletionWaitsForTheAddressThatIsOutsideItsSchedule) {
    Both([](Household& house) {
        house.profile.setting.deletemail = 1;
        CTerm never;
        never.status = 1;
        never.kind = 99;  // which no moment matches
        house.profile.forward_addresses[1]->schedule.AddNewTerm(&never);
        house.Add({"u1"});
        house.Run(2);
    });
    EXPECT_THAT(without.pop.Mails(), IsEmpty());
    EXPECT_THAT(with.pop.Mails(), SizeIs(1));
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1)));

    with.profile.forward_addresses[1]->schedule.terms.clear();
    with.Run(3);
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1), Pair("u1 -> b@x", 1)));
    EXPECT_THAT(with.pop.Mails(), IsEmpty());
}

TEST_F(Rules, SecondMessageOfAnIdIsSentAndNeitherIsDeletedWhileTheIdStandsTwice) {
    Both([](Household& house) {
        house.profile.setting.replaceto = 1;
        house.profile.setting.deletemail = 1;
        house.pop.Add({"u", Message("first")});
        house.pop.Add({"u", Message("second")});
        house.Run(3);
    });
    EXPECT_THAT(without.Arrived(), UnorderedElementsAre(Pair("first -> a@x", 1)));
    EXPECT_THAT(without.pop.Mails(), IsEmpty());
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("first -> a@x", 1), Pair("second -> a@x", 1)));
    EXPECT_THAT(with.pop.Mails(), SizeIs(2));
}

TEST_F(Rules, MessageForNobodyDoesNotBlockTheMailbox) {
    Both([](Household& house) {
        house.pop.Add({"u", Message("first")});
        house.pop.Add({"u", Message("second")});
        house.pop.Add({"v", Message("third")});
        house.Run(3);
    });
    EXPECT_EQ(without.Arrived()["third -> a@x"], 0);
    EXPECT_THAT(with.Arrived(),
                UnorderedElementsAre(Pair("first -> a@x", 1), Pair("second -> a@x", 1), Pair("third -> a@x", 1)));
}

TEST_F(Rules, MessagesOfAServerWithoutIdsAreKnownByTheirBytes) {
    Both([](Household& house) {
        house.pop.OfferUidl(false);
        house.Add({"u1", "u2"});
        house.Run(2);
        house.Add({"u3"});
        house.Run(2);
    });
    EXPECT_THAT(without.Arrived(), IsEmpty());
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1), Pair("u2 -> a@x", 1), Pair("u3 -> a@x", 1)));
}

TEST_F(Rules, RenumberedMailboxIsNotSentAgain) {
    Both([](Household& house) {
        house.Add({"u1", "u2"});
        house.Run();
        for (const char* id : {"u1", "u2"}) {
            house.pop.Remove(id);
            house.pop.Add({std::string("new-") + id, Message(id)});
        }
        house.Run(2);
    });
    EXPECT_THAT(without.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 2), Pair("u2 -> a@x", 2)));
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1), Pair("u2 -> a@x", 1)));
    EXPECT_EQ(with.pop.Received("RETR"), 4) << "fetched once more, then known by the new ids";
}

TEST_F(Rules, MailboxIsNotSentAgainAfterAnEmptyListingOrALostList) {
    Both([](Household& house) {
        house.Add({"u1"});
        house.Run();
        house.pop.Remove("u1");
        house.Run();
        house.Add({"u1"});
        house.Run();
        WriteUidls(*house.profile.forward_addresses[0], {});
        house.Run();
    });
    EXPECT_THAT(without.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 3)));
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1)));
}

TEST_F(Rules, FloodOfAMailboxOfWhichNothingIsRememberedWaitsForAPerson) {
    Both([](Household& house) {
        WriteUidls(*house.profile.forward_addresses[0], {"old1", "old2"});
        for (int i = 0; i < 51; ++i) house.Add({"u" + std::to_string(i)});
        house.Run(2);
    });
    EXPECT_THAT(without.Arrived(), SizeIs(51));
    EXPECT_THAT(with.Arrived(), IsEmpty());
    EXPECT_TRUE(with.Memory().IsWaiting());
    EXPECT_EQ(with.pop.Received("RETR"), 0);
    EXPECT_THAT(UidlsOnDisk(*with.profile.forward_addresses[0]), ElementsAre("old1", "old2"));

    with.Memory().Answer(host::WaitAnswer::Send, with.now);
    with.Run();
    EXPECT_THAT(with.Arrived(), SizeIs(51));
}

TEST_F(Rules, FewNewMessagesAndManyWithMostIdsStillThereAreNoFlood) {
    for (const int fresh : {50, 51}) {
        Household house(true);
        WriteUidls(*house.profile.forward_addresses[0], fresh == 50 ? Ids{"gone"} : Ids{"gone", "u0"});
        for (int i = 0; i < (fresh == 50 ? 50 : 52); ++i) house.Add({"u" + std::to_string(i)});
        house.Run();
        EXPECT_FALSE(house.Memory().IsWaiting()) << fresh;
    }
}

TEST_F(Rules, StalledMessageIsFetchedLastAndOnceADayAfterThreeTimes) {
    Both([](Household& house) {
        house.profile.setting.timeout = 1;
        house.pop.SetFault(AnswerTo("RETR 2", "stall"));
        house.Add({"u1", "u2", "u3"});
        house.Run(2);
    });
    EXPECT_THAT(without.Arrived(), IsEmpty());
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1), Pair("u3 -> a@x", 1)));
    const int before = with.pop.Received("RETR");
    with.Run(3);
    EXPECT_EQ(with.pop.Received("RETR"), before + 1) << "the third time, and then not for a day";
    with.now += 24 * kHour;
    with.pop.SetFault({});
    with.Run();
    EXPECT_EQ(with.Arrived()["u2 -> a@x"], 1);
    EXPECT_THAT(with.Memory().Notes(host::Matter::NotFetched), IsEmpty());
}

TEST_F(Rules, RefusedDeletionKeepsNothingFromBeingFetched) {
    Both([](Household& house) {
        house.profile.setting.deletemail = 1;
        house.pop.SetFault(AnswerTo("DELE 1", "-ERR read-only"));
        house.Add({"u1"});
        house.Run();
        house.Add({"u2"});
        house.Run(2);
    });
    EXPECT_EQ(without.Arrived()["u2 -> a@x"], 0);
    EXPECT_EQ(with.Arrived()["u2 -> a@x"], 1);
    EXPECT_EQ(with.pop.Received("DELE"), 2) << "of u1, which then rests for a day, and of u2";
}

TEST_F(Rules, LineLostAtOneMessageCostsTheOthersNoSecondCopy) {
    Both([](Household& house) {
        house.profile.setting.deletemail = 1;
        house.Add({"u1", "u2"});
        house.pop.SetFault(AnswerTo("RETR 2", "close"));
        house.Run(4);
    });
    EXPECT_GT(without.Arrived()["u1 -> a@x"], 1);
    EXPECT_EQ(with.Arrived()["u1 -> a@x"], 1);
}

// Messages that were fetched and wait for their delivery, at the worst moment of all runs until the mailbox is empty.
int MostHeldAtOnce(Household& house, int messages) {
    const std::string text(400'000, 'x');
    for (int i = 1; i <= messages; ++i) {
        const std::string id = "u" + std::to_string(i);
        house.pop.Add({id, "Subject: " + id + "\r\n\r\n" + text + "\r\n"});
    }
    int most = 0;
    house.smtp.SetFault([&, begun = 0](const std::string& said) mutable {
        if (said.starts_with("MAIL")) most = std::max(most, house.pop.Received("RETR") - begun++);
        return "";
    });
    house.Run();
    while (house.next == NextRun::AtOnce) house.Run();
    house.smtp.SetFault({});
    EXPECT_THAT(house.Arrived(), SizeIs(messages));
    return most;
}

TEST(MemoryOfRuns, GrowsWithTheMailboxByTheEnginesRulesAndIsBoundedByTheHosts) {
    for (const int messages : {4, 20}) {
        Household without(false);
        EXPECT_EQ(MostHeldAtOnce(without, messages), messages);
        Household with(true);
        with.rules.runsize = 1;
        EXPECT_EQ(MostHeldAtOnce(with, messages), host::kMiB / 400'000);
    }
}

TEST_F(Rules, MailboxLargerThanTheBudgetIsForwardedPieceByPiece) {
    with.rules.runsize = 1;
    const std::string large(600'000, 'x');
    for (const char* id : {"u1", "u2", "u3"})
        with.pop.Add({id, "Subject: " + std::string(id) + "\r\n\r\n" + large + "\r\n"});
    with.pop.Add({"u4", "Subject: u4\r\n\r\n" + large + large + large + "\r\n"});
    for (int run = 1; run <= 4; ++run) {
        const CRunResult result = with.Run();
        EXPECT_EQ(result.messages_fetched, 1);
        EXPECT_EQ(result.messages_put_off, 4 - run);
        EXPECT_EQ(with.next, run < 4 ? NextRun::AtOnce : NextRun::WhenDue);
    }
    EXPECT_THAT(with.Arrived(), SizeIs(4));
}

TEST_F(Rules, NothingIsFetchedWhileTheBudgetOfTheServiceIsUsed) {
    ASSERT_TRUE(with.budget.Ask("other", 0, kMostMessage));
    with.Add({"u1"});
    with.Run();
    EXPECT_EQ(with.pop.Received("RETR"), 0);
    EXPECT_EQ(with.next, NextRun::AtOnce);
    EXPECT_FALSE(with.budget.HasRoomFor(with.profile.path));
    with.budget.Leave("other");
    EXPECT_TRUE(with.budget.HasRoomFor(with.profile.path));
    with.Run();
    EXPECT_THAT(with.Arrived(), SizeIs(1));
    EXPECT_EQ(with.budget.Used(), 0) << "the run has given back what it took";
}

TEST_F(Rules, MessageThatCannotFitIntoTheMemoryStaysAndHoldsNobodyUp) {
    with.budget.SetLimits(1000, 2000);
    with.pop.Add({"u1", "Subject: u1\r\n\r\n" + std::string(3000, 'x') + "\r\n"});
    with.Add({"u2"});
    with.Run(2);
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u2 -> a@x", 1)));
    EXPECT_EQ(with.next, NextRun::WhenDue);
    EXPECT_EQ(with.Memory().Notes(host::Matter::NotFetched)["u1"].count, 2);
    EXPECT_TRUE(with.budget.HasRoomFor("other"));
}

TEST_F(Rules, NothingIsFetchedWhileTheRelayIsDown) {
    Both([](Household& house) {
        house.smtp.SetFault(AnswerTo("EHLO", "close"));
        house.Add({"u1"});
        house.Run(3);
    });
    EXPECT_EQ(without.pop.Received("RETR"), 3);
    EXPECT_EQ(with.pop.Received("RETR"), 1);
    const CRunResult result = with.Run();
    EXPECT_EQ(result.ending, CRunEnding::DeliveryFailed);
    EXPECT_EQ(result.delivery.failure_class, CFailureClass::Connection);
    with.smtp.SetFault({});
    with.Run();
    EXPECT_THAT(with.Arrived(), SizeIs(1));
}

TEST_F(Rules, RelayThatTakesTwoMessagesAConnectionIsFollowedByTheNextRunAtOnce) {
    with.smtp.SetFault(TakeAtMost(2));
    with.Add({"u1", "u2", "u3", "u4", "u5"});
    std::vector<NextRun> next;
    for (int i = 0; i < 3; ++i) {
        with.Run();
        next.push_back(with.next);
    }
    EXPECT_THAT(next, ElementsAre(NextRun::AtOnce, NextRun::AtOnce, NextRun::WhenDue));
    EXPECT_THAT(with.Arrived(), SizeIs(5));
}

TEST_F(Rules, WrongPasswordIsTriedLessAndLessOften) {
    with.profile.setting.poppassword = "wrong";
    int tries = 0;
    for (int i = 0; i < 144; ++i, with.now += kInterval) {
        if (with.memory && !with.Memory().MayLogIn(host::MailServer::Pop3, with.now)) continue;
        with.Run();
        with.now -= kInterval;
        ++tries;
    }
    EXPECT_LE(tries, 12);
    EXPECT_GE(tries, 6);
}

TEST_F(Rules, ServerThatDeletesNothingGetsNoSecondCopySent) {
    Both([](Household& house) {
        house.profile.setting.deletemail = 1;
        house.pop.SetFault(AnswerTo("DELE", "+OK"));
        house.Add({"u1"});
        house.Run(5);
    });
    EXPECT_GT(without.Arrived()["u1 -> a@x"], 1);
    EXPECT_EQ(with.Arrived()["u1 -> a@x"], 1);
    EXPECT_EQ(with.pop.Received("RETR"), 2) << "once more to know it again; then it is left alone for a day";
}

// A blocklist: every message is refused with the same words.
TEST_F(Rules, SameWordsForThreeMessagesInARowAreTheServers) {
    with.smtp.SetJudge([](const DeliveredMail&) { return "554 you are blocked"; });
    with.Add({"u1", "u2", "u3", "u4"});
    EXPECT_EQ(with.Run().ending, CRunEnding::DeliveryFailed);
    EXPECT_THAT(with.Held(), SizeIs(2));
    EXPECT_EQ(with.Run().ending, CRunEnding::DeliveryFailed);
    EXPECT_THAT(with.Held(), SizeIs(2)) << "in later runs neither";
    with.smtp.SetJudge({});
    EXPECT_EQ(with.Run().ending, CRunEnding::Delivered);
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u3 -> a@x", 1), Pair("u4 -> a@x", 1)));
    with.smtp.SetJudge(RefuseSubject("u5", "554 you are blocked"));
    with.Add({"u5"});
    EXPECT_EQ(with.Run().copies_set_aside, 1) << "one has gone through";
}

TEST_F(Rules, RunEndsAsAlwaysWhereNothingMoreCanBeSetAside) {
    with.rules.heldmessages = 1;
    with.smtp.SetJudge([](const DeliveredMail& mail) {
        return mail.text.find("u3") == std::string::npos ? "554 " + mail.text.substr(60, 40) : "";
    });
    with.Add({"u1", "u2", "u3"});
    EXPECT_EQ(with.Run().ending, CRunEnding::DeliveryFailed);
    EXPECT_THAT(with.Held(), SizeIs(1));
    EXPECT_THAT(UidlsOnDisk(*with.profile.forward_addresses[0]), ElementsAre("u1"));
}

TEST_F(Rules, WhatIsSetAsideIsTheMessageAsItWasFetched) {
    with.profile.setting.replacefrom = with.profile.setting.replaceto = 1;
    with.smtp.SetFault(AnswerTo("DATA", "554 no"));
    with.Add({"u1"});
    with.Run();
    const std::string text = *host::HeldStore(with.profile.path).Text(1);
    EXPECT_EQ(text, "\r\n" + Message("u1") + ".\r\n");
}

// A server may call the next message what it called the one that was deleted.
TEST_F(Rules, MessageUnderTheIdOfADeletedOneIsSent) {
    Both([](Household& house) {
        house.profile.setting.deletemail = 1;
        house.pop.Add({"1", Message("first")});
        house.Run(2);
        house.pop.Add({"1", Message("second")});
        house.Run(2);
    });
    EXPECT_THAT(without.Arrived(), UnorderedElementsAre(Pair("first -> a@x", 1), Pair("second -> a@x", 1)));
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("first -> a@x", 1), Pair("second -> a@x", 1)));
}

TEST_F(Rules, AddressInTheFolderOfAnotherIsNotTakenForIt) {
    with.smtp.SetJudge(RefuseSubject("u1", "554 no"));
    with.Add({"u1"});
    with.Run();
    ASSERT_THAT(with.Held(), ElementsAre("u1 -> a@x: 554 no"));
    // Another address, made since in a folder of the same name: what waits is of the one before.
    const host::HeldStore store(with.profile.path);
    host::HeldRecord record = *store.Find(1);
    record.addresses[0].address = "gone@x";
    record.addresses[0].made = "another";
    ASSERT_TRUE(store.Update(record));
    WriteUidls(*with.profile.forward_addresses[0], {});
    with.Run();
    EXPECT_THAT(with.Held(), ElementsAre("u1 -> gone@x: 554 no", "u1 -> a@x: 554 no"));
}

TEST_F(Rules, DamagedRecordStandsForNoMessage) {
    with.smtp.SetJudge(RefuseSubject("u1", "554 no"));
    with.Add({"u1"});
    with.Run();
    std::filesystem::remove(OnDisk(with.profile.path + "\\held\\1.mail"));
    WriteUidls(*with.profile.forward_addresses[0], {});
    with.smtp.SetJudge({});
    with.Run();
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1)));
}

TEST_F(Rules, MailboxWithoutIdsThatIsOverTheBudgetIsNotFetchedAgainAtOnce) {
    with.rules.runsize = 1;
    with.pop.OfferUidl(false);
    const std::string large(600'000, 'x');
    for (const char* id : {"u1", "u2"}) with.pop.Add({id, "Subject: " + std::string(id) + "\r\n\r\n" + large + "\r\n"});
    with.Run();
    EXPECT_EQ(with.next, NextRun::AtOnce);
    with.Run();
    EXPECT_NE(with.next, NextRun::AtOnce) << "it has got no further";
}

TEST_F(RulesOfTwo, RunThatOnlyRepeatsACopyIsNotFollowedByTheNextAtOnce) {
    with.rules.sentonce = with.rules.setaside = false;
    for (auto& address : with.profile.forward_addresses) address->setting.textonly = -1;
    with.smtp.SetFault(AnswerTo("RCPT TO:<b@x>", "550 unknown"));
    with.Add({"u1"});
    for (int i = 0; i < 2; ++i) {
        with.Run();
        EXPECT_NE(with.next, NextRun::AtOnce);
    }
}

TEST_F(Rules, RecipientsOfATextMailAreShortenedToTheLimitOfItsHeader) {
    with.rules.header_limit = 200;
    with.profile.forward_addresses[0]->setting.textonly = 100;
    std::string everybody = "a@x";
    for (int i = 0; i < 100; ++i) everybody += ", number" + std::to_string(i) + "@example.org";
    with.pop.Add({"u1", "Received: x\r\nTo: " + everybody + "\r\nSubject: s\r\n\r\nhello\r\n"});
    with.Run();
    const std::string text = with.smtp.Delivered().at(0).text;
    EXPECT_LE(text.find("\r\n\r\n"), 200U);
    EXPECT_THAT(text, HasSubstr("To: a@x, number0@example.org,"));
    EXPECT_THAT(text, HasSubstr(" others)\r\nSubject: s"));
}

TEST_F(Rules, MessageWithoutAnIdThatCannotBeFetchedKeepsNoOtherBack) {
    with.pop.OfferUidl(false);
    with.pop.SetFault(AnswerTo("RETR 1", "-ERR no"));
    with.Add({"u1"});
    with.Run(3);
    with.Add({"u2"});
    with.Run();
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u2 -> a@x", 1)));
}

TEST_F(RulesOfTwo, MessageThatIsRefusedTwiceIsSetAsideForAllAtOnce) {
    for (auto& address : with.profile.forward_addresses) address->setting.textonly = 0;  // in one transaction
    with.smtp.SetJudge(RefuseSubject("u1", "451 later"));
    with.Add({"u1", "u2"});
    with.Run(2);
    EXPECT_THAT(with.Held(), ElementsAre("u1 -> a@x: 451 later", "u1 -> b@x: 451 later"));
    EXPECT_THAT(with.Arrived(), UnorderedElementsAre(Pair("u2 -> a@x", 1), Pair("u2 -> b@x", 1)));
}

TEST_F(Rules, ServerThatDeletesNothingIsAskedOfTenMessagesInARun) {
    with.profile.setting.deletemail = 1;
    with.pop.SetFault(AnswerTo("DELE", "-ERR read-only"));
    for (int i = 0; i < 12; ++i) with.Add({"u" + std::to_string(i)});
    with.Run(2);
    EXPECT_EQ(with.pop.Received("DELE"), 10);
}

TEST(ByteBudget, IsNotLedAstrayByASizeThatLies) {
    Household house(true);
    const std::int64_t most = std::numeric_limits<std::int64_t>::max();
    ASSERT_TRUE(house.budget.Ask("other", 0, 1));
    host::RuleMemory memory(house.tree.root.path, [](const std::string&) {});
    {
        host::RunRules rules(house.rules, house.profile, memory, house.budget, house.kept);
        EXPECT_FALSE(rules.Fetches(house.profile, {"1", "u1", most}, 0));
        EXPECT_FALSE(rules.Fetches(house.profile, {"1", "u1", most}, 1));
        EXPECT_TRUE(rules.Fetches(house.profile, {"1", "u1", -1}, 0));
        house.profile.observer.bytes_received += 1000;
        EXPECT_EQ(house.budget.Used(), 1001) << "what comes counts at once, whatever the size was said to be";
        EXPECT_TRUE(rules.Fetches(house.profile, {"2", "u2", 50'000}, 1100));
        EXPECT_EQ(house.budget.Used(), 51'101);
        house.profile.observer.bytes_received += 10;
        CReceiveMail mail;
        rules.Sends(house.profile, mail, *house.profile.forward_addresses.front(), false);
        EXPECT_EQ(house.budget.Used(), 1111) << "what did not come takes nothing from others";
    }
    EXPECT_EQ(house.budget.Used(), 1);
}

}  // namespace
}  // namespace tarvex::testing
