// A person decides what counts as sent, with and without a service.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/memory/memory.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using Json = nlohmann::json;
using Words = std::vector<std::string>;

constexpr const char* kProfile = "user0/from0";
constexpr const char* kForward = "user0/from0/forwardto0";
constexpr const char* kOld = "gone-1\r\n";

// A tree with rules, two addresses and a mailbox with two messages.
class Accepting : public ::testing::Test {
protected:
    Accepting() {
        mailbox_.Add({"id-1", "Subject: one\r\n\r\none\r\n"});
        mailbox_.Add({"id-2", "Subject: two\r\n\r\ntwo\r\n"});
        path_ = host_.AddProfile(mailbox_.Port(), sink_.Port(), [](CPopProfile& profile) {
            profile.setting.timer = 0;
            profile.CreateNewForwardAddress("office", "office@example.net");
        });
        WriteFile(host_.Root() + "/host.def", "[version]\r\n0\r\n\r\n");
        EXPECT_EQ(chmod(host_.Root().c_str(), 0700), 0);
    }

    // As a run leaves it that found a flood.
    void Wait() {
        WriteFile(List(0), kOld);
        Note([](host::ProfileMemory& memory) { memory.Wait("the ids have changed", std::time(nullptr)); });
    }

    template <class Action>
    void Note(const Action& action) {
        host::RuleMemory memory(host_.Root(), [](const std::string&) {});
        host::ProfileMemory of_profile = memory.Of(host_.Root() + "\\user0\\from0");
        action(of_profile);
    }

    std::string List(int address) const { return path_ + "/forwardto" + std::to_string(address) + "/uidl.def"; }

    std::string Do(const Words& words, int exit_code = 0) const { return host_.Tell(words, exit_code); }

    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
    Host host_;
    std::string path_;
};

TEST_F(Accepting, WaitingProfileSendsNothingUntilAPersonSaysSo) {
    Wait();
    Do({"run", "--now", "--quiet"});
    EXPECT_THAT(sink_.Delivered(), SizeIs(0));
    EXPECT_THAT(Do({"accept", kProfile, "--send"}), HasSubstr("next run"));
    Do({"run", "--now", "--quiet"});
    EXPECT_THAT(sink_.Delivered(), SizeIs(4));
    EXPECT_THAT(host_.Fail(66, {"accept", kProfile, "--send"}), HasSubstr("does not wait"));
}

TEST_F(Accepting, SkippedMailCountsAsHandledForAllAddresses) {
    Wait();
    EXPECT_THAT(Do({"accept", kProfile, "--skip"}), HasSubstr("2 messages"));
    EXPECT_EQ(ReadFile(List(0)), "gone-1\r\nid-1\r\nid-2\r\n");
    EXPECT_EQ(ReadFile(List(1)), "id-1\r\nid-2\r\n");
    mailbox_.Add({"id-3", "Subject: new\r\n\r\nnew\r\n"});
    Do({"run", "--now", "--quiet"});
    ASSERT_THAT(sink_.Delivered(), SizeIs(2));
    EXPECT_THAT(sink_.Delivered()[0].text, HasSubstr("Subject: new"));
}

TEST_F(Accepting, ServiceTakesTheAnswerAndGoesOn) {
    Wait();
    ChildProcess service({TARVEX_HOST, "--root", host_.Root(), "serve", "--every", "0.02"},
                         ChildProcess::Output::Together);
    ASSERT_TRUE(service.WaitForOutput("waits for `tarvex accept`", std::chrono::seconds(20)));
    Do({"accept", kProfile, "--send"});
    EXPECT_TRUE(service.WaitForOutput("2 messages", std::chrono::seconds(20)));
    EXPECT_THAT(sink_.Delivered(), SizeIs(4));
}

TEST_F(Accepting, OneAddressCatchesUp) {
    EXPECT_THAT(Do({"forward", "catch-up", kForward}), HasSubstr("2 messages"));
    Do({"run", "--now", "--quiet"});
    ASSERT_THAT(sink_.Delivered(), SizeIs(2));
    for (const DeliveredMail& mail : sink_.Delivered()) {
        EXPECT_THAT(mail.recipients, ElementsAre(HasSubstr("office@example.net")));
    }
}

TEST_F(Accepting, ResendSendsAgainWhatItNamesAndNothingElse) {
    Do({"run", "--now", "--quiet"});
    const std::size_t sent = sink_.Delivered().size();
    host_.Fail(64, {"resend", kProfile});  // nobody to ask
    EXPECT_THAT(host_.Fail(66, {"resend", kProfile, "--id", "id-9", "--yes"}), HasSubstr("id-9"));
    Do({"run", "--now", "--quiet"});
    EXPECT_EQ(sink_.Delivered().size(), sent);

    Do({"resend", kProfile, "phone@example.net", "--id", "id-2", "--yes"});
    Do({"run", "--now", "--quiet"});
    ASSERT_EQ(sink_.Delivered().size(), sent + 1);
    EXPECT_THAT(sink_.Delivered().back().text, HasSubstr("Subject: two"));
    EXPECT_THAT(sink_.Delivered().back().recipients, ElementsAre(HasSubstr("phone@example.net")));

    Do({"resend", kProfile, "--yes"});
    Do({"run", "--now", "--quiet"});
    EXPECT_EQ(sink_.Delivered().size(), sent + 1 + sent);
}

TEST_F(Accepting, ARunSaysWhatIsThereAlready) {
    Do({"run", "--now", "--quiet"});
    WriteFile(List(0), "");
    EXPECT_THAT(Do({"run", "--now"}), HasSubstr(": nothing new, 2 copies were there already\n"));
    EXPECT_THAT(Do({"run", "--now"}), Not(HasSubstr("already")));
    WriteFile(List(1), "");
    ChildProcess service({TARVEX_HOST, "--root", host_.Root(), "serve", "--every", "0.02"},
                         ChildProcess::Output::Together);
    EXPECT_TRUE(service.WaitForOutput("nothing new, 2 copies were there already\n", std::chrono::seconds(20)));
    EXPECT_THAT(sink_.Delivered(), SizeIs(4));
}

TEST_F(Accepting, ResendSaysWhatIsSetAsideAndHowThatIsSent) {
    sink_.SetJudge([](const DeliveredMail& mail) {
        return mail.text.find("Subject: two") == std::string::npos ? "" : "554 no\r\n";
    });
    Do({"run", "--now", "--quiet"});
    EXPECT_THAT(Do({"resend", kProfile, "--id", "id-1", "--yes"}), Not(HasSubstr("set aside")));
    EXPECT_THAT(Do({"resend", kProfile, "--yes"}),
                HasSubstr("Not what is set aside (1 message): `tarvex held send user0/from0` sends that.\n"));
    EXPECT_THAT(Do({"resend", kProfile, "phone@example.net", "--id", "id-2", "--yes"}),
                HasSubstr("`tarvex held send user0/from0 1 --address phone@example.net` sends that.\n"));
    sink_.SetJudge({});
    EXPECT_THAT(Do({"held", "send", kProfile, "1", "--address", kPhone}), HasSubstr("phone@example.net: taken"));
}

TEST_F(Accepting, AHandleSendsWhatIsSetAsideAndElseWhatIsInTheMailbox) {
    sink_.SetJudge([](const DeliveredMail& mail) {
        return mail.text.find("Subject: two") == std::string::npos ? "" : "554 no\r\n";
    });
    Do({"run", "--now", "--quiet"});
    const std::string handle = Json::parse(Do({"trace", "--json", "id-2"}))[0]["message"];
    sink_.SetJudge({});
    const std::size_t sent = sink_.Delivered().size();
    host_.Fail(64, {"resend", handle});  // nobody to ask
    EXPECT_THAT(Do({"resend", handle, kPhone, "--yes"}),
                AllOf(HasSubstr("two"), HasSubstr("phone@example.net: taken"), Not(HasSubstr("office"))));
    EXPECT_THAT(Do({"resend", handle, "--yes"}), HasSubstr("office@example.net: taken"));
    EXPECT_EQ(sink_.Delivered().size(), sent + 2);

    EXPECT_THAT(Do({"resend", handle, "office@example.net", "--yes"}), HasSubstr("next run"));
    Do({"run", "--now", "--quiet"});
    ASSERT_EQ(sink_.Delivered().size(), sent + 3);
    EXPECT_THAT(sink_.Delivered().back().text, HasSubstr("Subject: two"));
    EXPECT_THAT(sink_.Delivered().back().recipients, ElementsAre(HasSubstr("office@example.net")));

    mailbox_.Remove("id-2");
    EXPECT_THAT(host_.Fail(66, {"resend", handle, "--yes"}),
                HasSubstr(handle + " is neither in the mailbox of user0/from0"));
    EXPECT_THAT(host_.Fail(66, {"resend", "M999", "--yes"}), HasSubstr("no message M999"));
}

TEST_F(Accepting, ResendWithoutRulesClearsTheListsAndRemembersNothing) {
    std::filesystem::remove(host_.Root() + "/host.def");
    Do({"run", "--now", "--quiet"});
    Do({"resend", kProfile, "--id", "id-1", "--yes"});
    Do({"resend", kProfile, "--yes"});
    EXPECT_FALSE(std::filesystem::exists(host_.Root() + "/.tarvex/sent.db"));
    Do({"run", "--now", "--quiet"});
    EXPECT_THAT(sink_.Delivered(), SizeIs(4 + 4));
}

TEST_F(Accepting, StatusSaysWhatIsRemembered) {
    EXPECT_THAT(Do({"status"}), Not(HasSubstr("waits")));
    Wait();
    Note([](host::ProfileMemory& memory) {
        const CTime now = std::time(nullptr);
        memory.Park("phone@example.net", "550 no such\x1b user", now);
        memory.CountBounce("office@example.net", now);
        memory.CountNotFetched("id-1", "-ERR locked", now);
        memory.RecordNotDeleted("id-2", "-ERR read only", now);
        memory.RecordFailedLogin(host::MailServer::Pop3, "-ERR wrong", 60, now);
    });
    const std::string shown = Do({"status"}, 1);
    ExpectFitForATerminal(shown);
    EXPECT_THAT(shown, AllOf(HasSubstr("the ids have changed"), HasSubstr("tarvex accept user0/from0"),
                             HasSubstr("phone@example.net is parked"), HasSubstr("550 no such\\x1b user"),
                             HasSubstr("office@example.net bounces"), HasSubstr("-ERR locked"),
                             HasSubstr("-ERR read only"), HasSubstr("-ERR wrong")));
    const Json json = Json::parse(Do({"status", "--json"}, 1))[0]["remembered"];
    EXPECT_EQ(json["waiting"][0]["words"], "the ids have changed");
    EXPECT_EQ(json["parked"][0]["subject"], "phone@example.net");
    EXPECT_EQ(json["login_failing"][0]["count"], 1);
    EXPECT_THAT(json["not_fetched"], SizeIs(1));

    EXPECT_EQ(Json::parse(Do({"status", "--json"}, 1))[0]["rules"], true);
    std::filesystem::remove(host_.Root() + "/host.def");
    EXPECT_THAT(Do({"status"}), Not(HasSubstr("is parked")));
    EXPECT_EQ(Json::parse(Do({"status", "--json"}))[0]["rules"], false);
}

TEST_F(Accepting, WhatIsRememberedOfAnAddressEndsWithTheAddressAndBouncesAfterAMonth) {
    const CTime now = std::time(nullptr);
    Note([now](host::ProfileMemory& memory) {
        for (const char* const address : {"phone@example.net", "office@example.net"}) {
            memory.Park(address, "550 no", now);
            memory.CountBounce(address, now);
        }
    });
    Do({"forward", "set", kForward, "--address", "mobile@example.net"});
    EXPECT_THAT(Do({"status"}, 1), AllOf(Not(HasSubstr("phone@")), HasSubstr("office@example.net bounces")));
    Do({"forward", "remove", "office@example.net", "--yes"});
    EXPECT_THAT(Do({"status"}), AllOf(Not(HasSubstr("parked")), Not(HasSubstr("bounces"))));

    Note(
        [now](host::ProfileMemory& memory) { memory.CountBounce("mobile@example.net", now - host::kBouncesKept - 9); });
    EXPECT_THAT(Do({"status"}), Not(HasSubstr("bounces")));
}

TEST_F(Accepting, StatusEndsWithOneWhileAnAddressIsParkedButNotForFailedLogins) {
    Note([](host::ProfileMemory& memory) {
        memory.RecordFailedLogin(host::MailServer::Pop3, "-ERR wrong", 60, std::time(nullptr));
    });
    Do({"status"}, 0);
    Note([](host::ProfileMemory& memory) { memory.Park("phone@example.net", "550 no", std::time(nullptr)); });
    Do({"status"}, 1);
}

TEST_F(Accepting, NewAddressIsAskedAboutOnATerminal) {
    const auto add = [this](const std::string& address, const std::string& answer) {
        const std::string command =
            std::string(TARVEX_HOST) + " --root " + host_.Root() + " forward add user0/from0 " + address;
        ChildProcess terminal({"/bin/sh", "-c", "echo " + answer + " | script -qec '" + command + "' /dev/null"});
        terminal.Wait();
        return terminal.Printed();
    };
    EXPECT_THAT(add("new@example.net", "n"), HasSubstr("holds 2 messages"));
    EXPECT_EQ(ReadFile(List(2)), "id-1\r\nid-2\r\n");
    EXPECT_THAT(add("all@example.net", "y"), HasSubstr("Added"));
    EXPECT_EQ(ReadFile(List(3)), "");
    EXPECT_THAT(add("--all-mail every@example.net", "n"), Not(HasSubstr("holds")));
    Do({"profile", "set", kProfile, "--popport", "1"});
    EXPECT_THAT(add("dark@example.net", "n"), AllOf(HasSubstr("cannot list"), HasSubstr("Added")));
}

}  // namespace
}  // namespace tarvex::testing
