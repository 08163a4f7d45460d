// Held mail as a person sees it, and as a service works on it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "host/held/held.h"
#include "host/held/held_export.h"
#include "host/held/held_work.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "tests/host/rules/held_mail.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using Json = nlohmann::json;
using Words = std::vector<std::string>;

constexpr const char* kProfile = "user0/from0";

TEST(HeldExport, UndoesWhatTheWayOfAMessageDidToIt) {
    EXPECT_EQ(host::MessageIn("\r\nA: b\r\n\r\n..x\r\n...\r\n.y\r\na.b\r\n.\r\n"),
              "A: b\r\n\r\n.x\r\n..\r\ny\r\na.b\r\n");
    EXPECT_EQ(host::MessageIn("A: b"), "A: b");
    EXPECT_EQ(host::MessageIn(""), "");
    EXPECT_EQ(host::MessageIn("\r\n.\r\n"), "");
    EXPECT_EQ(host::ShowHead("\r\nSubject: \x1b[2J\xC3\xA4\r\nA: b\r\n\r\nbody\r\n.\r\n", 1000),
              "Subject: \\x1b[2J\xC3\xA4\nA: b\n");
}

// A tree with rules, a profile with the address phone, and its servers.
class HeldCommands : public ::testing::Test {
protected:
    HeldCommands() {
        path_ = host_.AddProfile(mailbox_.Port(), sink_.Port(), [](CPopProfile& profile) {
            profile.setting.timer = 60 * 10;
            profile.CreateNewForwardAddress("office", "office@example.net");
        });
        WriteFile(host_.Root() + "/host.def", "[version]\r\n0\r\n\r\n");
        EXPECT_EQ(chmod(host_.Root().c_str(), 0700), 0);
    }

    // For phone and, when told, for office.
    void Hold(const std::string& subject, bool for_office = false, CTime next_try = 0) const {
        host::HeldRecord record;
        record.digest = subject;
        record.uidl = "id\x1b";
        record.set_aside = kNow;
        CPopProfile profile;
        profile.SetPath(path_);
        for (const auto& address : profile.forward_addresses) {
            if (!for_office && address->setting.address != kPhone) continue;
            record.addresses.push_back(host::RefusedNow(profile, *address, CRunStage::EndOfData,
                                                        CFailureClass::Permanent, "554 5.7.1 spam\x07", kNow));
            record.addresses.back().next_try = next_try;
        }
        ASSERT_EQ(Store().Hold(HeldText(subject), record, {}), host::HoldOutcome::Held);
    }

    host::HeldStore Store() const { return host::HeldStore(path_); }
    std::vector<int> Left() const { return Ids(*Store().List()); }

    std::string Do(Words words, int exit_code = 0) const {
        words.insert(words.begin(), "held");
        return host_.Tell(words, exit_code);
    }

    // The service works until the condition holds.
    template <class Condition>
    static bool Eventually(Condition condition) {
        for (const auto end = std::chrono::steady_clock::now() + 20s; std::chrono::steady_clock::now() < end;) {
            if (condition()) return true;
            std::this_thread::sleep_for(5ms);
        }
        return false;
    }

    std::unique_ptr<ChildProcess> Serve() const {
        auto service = std::make_unique<ChildProcess>(
            Words{TARVEX_HOST, "--root", host_.Root(), "serve", "--every", "0.02"}, ChildProcess::Output::Together);
        EXPECT_TRUE(service->WaitForOutput("serving ", 20s));
        return service;
    }

    Host host_;
    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
    std::string path_;
};

TEST_F(HeldCommands, SendAnswersInTheLanguageOfItsUser) {
    Hold("one");
    const auto service = Serve();
    ChildProcess command =
        host_.StartCommand({"held", "send", kProfile}, ChildProcess::Output::Pipe, {"LC_ALL=ja_JP.UTF-8", "LANGUAGE="});
    command.Wait();
    EXPECT_THAT(command.Printed(), AllOf(HasSubstr(kPhone), Not(HasSubstr("taken"))));
    EXPECT_TRUE(service->WaitForOutput("taken", 20s));  // its log is English
}

TEST_F(HeldCommands, ListAndShowSayWhatIsSetAsideAndWhy) {
    EXPECT_EQ(Do({"list"}), "No mail is set aside.\n");
    Hold("one", true);
    Hold("two");
    WriteFile(path_ + "/held/2.def", "");
    EXPECT_THAT(Do({"list"}), AllOf(HasSubstr("phone@example.net"), HasSubstr("office@example.net"),
                                    HasSubstr("554 5.7.1 spam\\x07"), HasSubstr("when told"), HasSubstr("damaged")));
    EXPECT_THAT(Do({"list", "--address", "office@example.net"}), Not(HasSubstr("phone@example.net")));

    host_.Tell({"forward", "set", "office@example.net", "--address", "desk@example.net"});
    EXPECT_THAT(Do({"list", "--address", "desk@example.net"}), HasSubstr("  desk@example.net "));
    const Json all = Json::parse(Do({"list", "--json", kProfile}));
    ASSERT_THAT(all, SizeIs(2));
    EXPECT_EQ(all[0]["id"], 1);
    EXPECT_EQ(all[0]["kind"], "refused");
    EXPECT_EQ(all[0]["addresses"][0]["stage"], "end of data");
    EXPECT_EQ(all[0]["addresses"][0]["class"], "permanent");
    EXPECT_EQ(all[0]["addresses"][0]["next_try"], nullptr);
    EXPECT_EQ(all[0]["addresses"][0]["answers"][0]["reply"], "554 5.7.1 spam\x07");
    EXPECT_EQ(all[0]["damage"], nullptr);
    EXPECT_NE(all[1]["damage"], nullptr);

    const std::string shown = Do({"show", kProfile, "1"});
    ExpectFitForATerminal(shown);
    EXPECT_THAT(shown, AllOf(HasSubstr("id\\x1b"), HasSubstr("end of data, permanent: 554"),
                             HasSubstr(host::ShowTime(kNow) + "  554 5.7.1 spam\\x07\n"), HasSubstr("Subject: one")));
    EXPECT_EQ(Json::parse(Do({"show", kProfile, "1", "--json"}))["header"], "Subject: one\n");
    EXPECT_THAT(Do({"show", kProfile, "2"}), AllOf(HasSubstr("damaged"), HasSubstr("Subject: two")));
    EXPECT_THAT(host_.Fail(66, {"held", "show", kProfile, "3"}), HasSubstr("no message 3"));
}

TEST_F(HeldCommands, ExportWritesTheMessageAsItWas) {
    Hold("one");
    Hold("two");
    EXPECT_EQ(Do({"export", kProfile, "1"}), "Subject: one\r\n\r\n.text\r\n");
    host_.Fail(64, {"held", "export", kProfile});
    const TempDir folder;
    EXPECT_EQ(Do({"export", kProfile, "--to", folder.String()}), "");
    EXPECT_EQ(ReadFile(folder / "user0-from0-2.eml"), "Subject: two\r\n\r\n.text\r\n");
    EXPECT_THAT(host_.Fail(73, {"held", "export", kProfile, "2", "--to", folder / "user0-from0-2.eml"}),
                HasSubstr("already"));
    EXPECT_THAT(Left(), ElementsAre(1, 2));
}

TEST_F(HeldCommands, DropTakesWhatWasNamedAndNothingElse) {
    Hold("one", true);
    Hold("two");
    Hold("three");
    WriteFile(path_ + "/held/3.def", "");
    host_.Fail(64, {"held", "drop", kProfile, "--yes"});
    host_.Fail(64, {"held", "drop", kProfile, "1"});  // nobody to ask
    EXPECT_EQ(Do({"drop", kProfile, "1", "--address", "phone@example.net", "--yes"}), "Dropped 1 message.\n");
    ASSERT_THAT(Left(), ElementsAre(1, 2, 3));
    EXPECT_EQ(Store().Find(1)->addresses.front().address, "office@example.net");
    EXPECT_EQ(Do({"drop", kProfile, "3", "--yes"}), "Dropped 1 message.\n");
    EXPECT_EQ(Do({"drop", kProfile, "--all", "--yes"}), "Dropped 2 messages.\n");
    EXPECT_THAT(fs::is_empty(path_ + "/held"), true);
    EXPECT_EQ(Do({"drop", kProfile, "--all", "--yes"}), "There is nothing to drop.\n");
}

TEST_F(HeldCommands, NothingBouncesAnyMoreWhenTheLastReportIsDropped) {
    for (const char* const subject : {"report", "other report", "mail"}) Hold(subject);
    for (const int id : {1, 2}) {
        host::HeldRecord record = *Store().Find(id);
        record.kind = host::HeldKind::Report;
        ASSERT_TRUE(Store().Update(record));
    }
    host::RuleMemory(host_.Root(), [](const std::string&) {})
        .Of(host_.Root() + "\\user0\\from0")
        .CountBounce(kPhone, std::time(nullptr));
    Do({"drop", kProfile, "1", "--yes"});
    EXPECT_THAT(host_.Tell({"status"}, 1), HasSubstr("phone@example.net bounces"));
    Do({"drop", kProfile, "2", "--yes"});
    EXPECT_THAT(host_.Tell({"status"}, 1), Not(HasSubstr("bounces")));
}

TEST_F(HeldCommands, SendTellsWhatBecameOfEach) {
    Hold("one", true);
    sink_.SetFault([](const std::string& command) {
        return command.starts_with("RCPT TO:<office") ? "550 no\x1b such user\r\n" : "";
    });
    EXPECT_THAT(host_.Fail(69, {"held", "send", kProfile}), HasSubstr("one copy is still set aside"));
    sink_.SetFault({});
    ASSERT_THAT(sink_.Delivered(), SizeIs(1));
    EXPECT_THAT(Do({"send", kProfile, "1"}), HasSubstr("1 to office@example.net: taken"));
    EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(HeldCommands, StatusEndsWithOneWhileMailIsHeldInATreeWithRules) {
    Hold("one", true);
    EXPECT_THAT(host_.Tell({"status"}, 1), HasSubstr("user0/from0: 1 message set aside"));
    EXPECT_EQ(Json::parse(host_.Tell({"status", "--json"}, 1))[0]["held"]["copies"], 2);
    fs::remove(host_.Root() + "/host.def");
    EXPECT_THAT(host_.Tell({"status"}), HasSubstr("1 message set aside"));
    WriteFile(host_.Root() + "/host.def", "[version]\r\n0\r\n\r\n");
    Do({"drop", kProfile, "--all", "--yes"});
    host_.Tell({"status"});
}

TEST_F(HeldCommands, ARemovalTakesAlongWhatWaitsForIt) {
    Hold("one", true);
    Hold("two");
    {
        CRootPath root;
        ASSERT_EQ(root.SetRootPath(host_.Root()), 1);
        host::EditRequest request(host::EditKind::Forward, host::EditVerb::Remove, kPhone);
        request.expected = host::WhatGoes(*host::FindForward(root, kPhone).forward);
        request.expected_held = "1 message set aside";
        host::Reply reply;
        EXPECT_EQ(host::EditWithHeld(root, request, reply), 66);
        EXPECT_EQ(reply.error, "there is other mail set aside by now (2 messages set aside); nothing was removed");
    }
    ASSERT_THAT(Left(), ElementsAre(1, 2));
    host_.Tell({"forward", "remove", kPhone, "--yes"});
    ASSERT_THAT(Left(), ElementsAre(1));
    EXPECT_EQ(Store().Find(1)->addresses.front().address, "office@example.net");
    host_.Tell({"profile", "remove", kProfile, "--yes"});
    EXPECT_FALSE(fs::exists(path_));
}

TEST_F(HeldCommands, ARunTriesWhatIsDueInATreeWithRulesAlone) {
    Hold("one", false, kNow);
    Hold("two", false, std::time(nullptr) + 3600);
    fs::rename(host_.Root() + "/host.def", host_.Root() + "/away");
    host_.Run();
    EXPECT_THAT(Left(), ElementsAre(1, 2));
    fs::rename(host_.Root() + "/away", host_.Root() + "/host.def");
    EXPECT_THAT(host_.Run(), HasSubstr("1 to phone@example.net: taken"));
    EXPECT_THAT(Left(), ElementsAre(2));
}

TEST_F(HeldCommands, AServiceTriesWhatIsDueByItself) {
    Hold("one", false, kNow);
    Hold("two");
    const auto service = Serve();
    EXPECT_TRUE(service->WaitForOutput("held message 1 to phone@example.net: taken\n", 20s));
    EXPECT_TRUE(service->WaitForOutput("held mail was tried, all was taken", 20s));
    EXPECT_THAT(Left(), ElementsAre(2));
}

TEST_F(HeldCommands, AServiceThatStopsDoesNotWaitForTheServersAnswer) {
    Hold("one", false, kNow);
    sink_.SetFault([](const std::string& command) { return command == "." ? "stall" : ""; });
    const auto service = Serve();
    ASSERT_TRUE(Eventually([this] { return sink_.Received("DATA") == 1; }));
    service->Signal(SIGTERM);
    EXPECT_TRUE(service->WaitFor(10s));
    EXPECT_EQ(service->ExitCode(), 0) << service->Printed();
    EXPECT_THAT(Left(), ElementsAre(1));
}

TEST_F(HeldCommands, HeldMailIsNotTriedWhileTheLoginToTheSmtpServerFails) {
    CPopProfile profile;
    profile.SetPath(path_);
    profile.setting.smtpauth = 1;
    ASSERT_TRUE(profile.SaveSetting());
    sink_.SetFault([](const std::string& command) {
        return command.starts_with("EHLO")   ? "250-relay\r\n250-AUTH PLAIN\r\n250 SIZE"
               : command.starts_with("AUTH") ? "535 wrong"
                                             : "";
    });
    Hold("one", false, kNow);
    for (int run = 1; run <= 2; ++run) {
        host_.Tell({"run"});
        EXPECT_EQ(sink_.Received("AUTH"), 1);
        host::HeldRecord record = *Store().Find(1);
        record.addresses[0].last_try = kNow;  // as if that were long ago
        record.addresses[0].next_try = kNow + 1;
        ASSERT_TRUE(Store().Update(record));
    }
}

TEST_F(HeldCommands, AServiceSendsAndDropsForACommandAndKeepsEditsAndRunsApart) {
    Hold("one", true);
    Hold("two");
    std::atomic<bool> blocking = true;
    sink_.SetFault([&](const std::string& command) {
        if (command.starts_with("DATA")) Eventually([&] { return !blocking.load(); });
        return "";
    });
    const auto service = Serve();
    ChildProcess send = host_.StartCommand({"held", "send", kProfile, "1"});
    ASSERT_TRUE(Eventually([&] { return sink_.Received("DATA") == 1; }));
    using Output = ChildProcess::Output;
    ChildProcess edit = host_.StartCommand({"profile", "set", kProfile, "--timer", "7"}, Output::Together);
    ChildProcess run = host_.StartCommand({"run", "--now", kProfile}, Output::Together);
    ChildProcess drop = host_.StartCommand({"held", "drop", kProfile, "2", "--yes"}, Output::Together);
    for (ChildProcess* const waiting : {&edit, &run, &drop}) EXPECT_TRUE(waiting->WaitForOutput("waiting", 20s));
    EXPECT_EQ(mailbox_.Received("USER") + mailbox_.Received("APOP"), 0);
    blocking = false;
    for (ChildProcess* const command : {&send, &edit, &run, &drop}) {
        EXPECT_TRUE(command->WaitFor(20s));
        EXPECT_EQ(command->ExitCode(), 0) << command->Printed() << command->Errors();
    }
    EXPECT_THAT(send.Printed(), AllOf(HasSubstr("phone@example.net: taken"), HasSubstr("office@example.net: taken")));
    EXPECT_THAT(Left(), IsEmpty());
}

}  // namespace
}  // namespace tarvex::testing
