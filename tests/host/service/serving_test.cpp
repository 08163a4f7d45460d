// The service as a process on every system: its ticks, its runs, and what it tells of them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/system/command_error.h"
#include "tests/host/service/served_tree.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

using Serving = ServiceTest;

TEST_F(Serving, ChangesRulesAndRunsNoProfileOfAUserWhoIsOff) {
    AddProfile();
    mailbox_.Add(MailNumber(1));
    const std::string rules = host_.Root() + "/host.def";
    WriteFile(rules, "[version]\n0\n");
    Tell({"user", "set", "user0", "--status", "off"});
    const auto service = Serve();
    EXPECT_THAT(Tell({"rules", "set", "--runsize", "7"}), HasSubstr("runsize: \"64\" -> \"7\""));
    EXPECT_TRUE(service->WaitForOutput("rules set", kLong));
    EXPECT_THAT(ReadFile(rules), HasSubstr("[runsize]\r\n7\r\n"));
    EXPECT_THAT(Tell({"run", "--now", kProfile}), HasSubstr("switched off with its user"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(0));
    Tell({"user", "set", "user0", "--status", "on"});
    EXPECT_TRUE(service->WaitForOutput(kStarted, kLong));
    Stop(*service);
}

TEST_F(Serving, WhatIsDueAtTheStartOfATreeWithRulesDoesNotStartAllAtOnce) {
    AddDueProfile();
    AddDueProfile();
    WriteFile(host_.Root() + "/host.def", "[version]\n0\n");
    const auto service = Serve();
    ASSERT_TRUE(service->WaitForOutput(kStarted, kLong));
    const auto first = Clock::now();
    ASSERT_TRUE(service->WaitForOutput("user1/from0: run started", kLong));
    EXPECT_GT(Clock::now() - first, 1s);
    Stop(*service);
}

TEST_F(Serving, NoMoreRunsThanTheRulesAllowGoToOneServer) {
    Block();
    AddDueProfile();
    AddDueProfile();
    WriteFile(host_.Root() + "/host.def", "[version]\n0\n[serverruns]\n1\n[spread]\n0\n");
    const auto service = Serve();
    WaitUntilBlocked();
    Tell({"status"});  // a turn of the service, and a tick before it
    ASSERT_TRUE(service->WaitForOutput(kStarted, kLong));
    EXPECT_EQ(Count(service->Printed(), "run started"), 1);
    blocking_ = false;
    EXPECT_TRUE(service->WaitForOutput("user1/from0: run started", kLong));
    EXPECT_TRUE(service->WaitForOutput("user1/from0: run ended", kLong));
    Stop(*service);
}

TEST_F(Serving, WhatWaitsForRoomStartsWhenARunHasEndedAndNotAtATick) {
    for (int i = 0; i < 3; ++i) AddDueProfile();
    WriteFile(host_.Root() + "/host.def", "[version]\n0\n[serverruns]\n1\n[spread]\n0\n");
    const auto service = Serve({}, "3600");
    EXPECT_TRUE(service->WaitForOutput("user2/from0: run ended", kLong));
    Stop(*service);
}

TEST_F(Serving, RunThatACommandAsksForWaitsForRoomAndSaysSo) {
    Block();
    AddDueProfile();
    AddProfile(600);
    WriteFile(host_.Root() + "/host.def", "[version]\n0\n[serverruns]\n1\n[spread]\n0\n");
    const auto service = Serve({}, "60");
    ChildProcess first = host_.StartCommand({"run", kProfile, "--now"});
    ASSERT_TRUE(service->WaitForOutput("run user0/from0 --now", kLong));
    WaitUntilBlocked();
    ChildProcess second = host_.StartCommand({"run", "user1/from0", "--now"}, ChildProcess::Output::Together);
    EXPECT_TRUE(second.WaitForOutput("1 run to wait until others have ended", kLong));
    ASSERT_TRUE(service->WaitForOutput("run user1/from0 --now", kLong));
    const std::size_t told = service->Printed().size();
    ChildProcess third = host_.StartCommand({"run", "user1/from0", "--now"});
    EXPECT_TRUE(service->WaitForOutput("run user1/from0 --now", kLong, told));
    EXPECT_FALSE(third.WaitFor(100ms));
    ASSERT_TRUE(service->WaitForOutput(kStarted, kLong));
    EXPECT_EQ(Count(service->Printed(), "run started"), 1);
    blocking_ = false;
    for (ChildProcess* const command : {&first, &second, &third}) {
        ASSERT_TRUE(command->WaitFor(kLong));
        EXPECT_EQ(command->ExitCode(), 0);
    }
    EXPECT_THAT(Slashed(second.Printed()), HasSubstr("nothing new"));
    EXPECT_EQ(mailbox_.Received("QUIT"), 2) << "the second and the third are one run";
    Stop(*service);
}

TEST_F(Serving, CommandHearsThatTheProfileItWaitsForIsNotRunAnyMore) {
    Block();
    AddDueProfile();
    AddProfile(600);
    WriteFile(host_.Root() + "/host.def", "[version]\n0\n[serverruns]\n1\n[spread]\n0\n");
    const auto service = Serve();
    WaitUntilBlocked();
    for (const std::vector<std::string>& edit : {std::vector<std::string>{"set", "user1/from0", "--status", "off"},
                                                 {"set", "user1/from0", "--status", "on"},
                                                 {"remove", "user1/from0", "--yes"}}) {
        const bool goes_on = edit.back() == "on";
        ChildProcess command = host_.StartCommand({"run", "user1/from0", "--now"}, ChildProcess::Output::Together);
        EXPECT_TRUE(command.WaitForOutput(goes_on ? "switched off" : "to wait", kLong));
        std::vector<std::string> words = {"profile"};
        words.insert(words.end(), edit.begin(), edit.end());
        Tell(words);
        EXPECT_TRUE(command.WaitFor(kLong));
        const std::string end = goes_on ? "" : edit[0] == "set" ? "switched off" : "not there any more";
        EXPECT_THAT(Slashed(command.Printed()), HasSubstr(end));
    }
    blocking_ = false;
    Stop(*service);
}

TEST_F(Serving, SwitchingAProfileOffOrRemovingItEndsItsRunByTheRules) {
    for (const bool remove : {false, true}) {
        const std::string profile = "user" + std::to_string(remove ? 1 : 0) + "/from0";
        mailbox_.SetFault([](const std::string& command) { return command == "UIDL" ? "stall" : ""; });
        AddDueProfile();
        WriteFile(host_.Root() + "/host.def", "[version]\n0\n");
        const auto service = Serve();
        ASSERT_TRUE(service->WaitForOutput(profile + ": run started", kLong));
        ASSERT_TRUE(Eventually([this, remove] { return mailbox_.Received("UIDL") == (remove ? 2 : 1); }));
        const std::vector<std::string> set = {"profile", "set", profile, "--status", "off"};
        const std::vector<std::string> gone = {"profile", "remove", profile, "--yes"};
        ChildProcess edit = host_.StartCommand(remove ? gone : set);
        EXPECT_TRUE(edit.WaitFor(kLong));
        EXPECT_EQ(edit.ExitCode(), 0);
        EXPECT_TRUE(service->WaitForOutput("interrupted", kLong));
        Stop(*service);
    }
}

TEST_F(Serving, RunsAgainAndAgainAndTellsOfEachRunInTwoLines) {
    mailbox_.Add(MailNumber(1));
    AddProfile();
    const auto service = Serve();
    ASSERT_TRUE(service->WaitForOutput("run ended, nothing new", kLong));
    Stop(*service);
    EXPECT_THAT(service->Printed(), HasSubstr("user0/from0: run ended, forwarded 1 message"));
    EXPECT_EQ(Count(service->Printed(), "run started"), Count(service->Printed(), "run ended"));
    EXPECT_THAT(service->Printed(), HasSubstr("stopped"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
}

TEST_F(Serving, AFailureIsToldAndDisturbsNoOtherProfile) {
    host_.AddProfile(1, sink_.Port());
    host_.AddProfile(mailbox_.Port(), sink_.Port());
    const auto service = Serve();
    ASSERT_TRUE(service->WaitForOutput("user0/from0: run ended, failed: ", kLong));
    ASSERT_TRUE(service->WaitForOutput("user1/from0: run ended, nothing new", kLong));
    mailbox_.Add(MailNumber(1));
    EXPECT_TRUE(service->WaitForOutput("user1/from0: run ended, forwarded 1 message", kLong));
    Stop(*service);
}

TEST_F(Serving, StopsWithinSecondsFromAStalledRunWhoseStateIsSaved) {
    mailbox_.Add(MailNumber(1));
    mailbox_.Add(MailNumber(2));
    sink_.SetFault([this, count = 0](const std::string& command) mutable {
        if (command != "." || ++count == 1) return "";
        ++blocked_;
        return "stall";
    });
    const std::string profile = AddProfile();
    using enum ServiceProcess::Event;
    for (const auto event : {CtrlC, CtrlBreak, Close, LogOff, Shutdown}) {
        blocked_ = 0;
        const auto service = Serve();
        WaitUntilBlocked();
        const auto start = Clock::now();
        Stop(*service, event);
        EXPECT_LT(Clock::now() - start, 5s);
        EXPECT_THAT(service->Printed(), HasSubstr("user0/from0: run ended, failed: "));
        EXPECT_EQ(Uidls(profile), "mail-1\n");
        EXPECT_THAT(Log(profile), HasSubstr("---- End Operation at "));
    }
}

TEST_F(Serving, ASecondHostIsRefusedByTheNameOfTheFirst) {
    AddProfile();
    const auto service = Serve({}, "60");
    ChildProcess second = host_.StartCommand({"serve"});
    second.Wait();
    EXPECT_EQ(second.ExitCode(), host::kTryLater);
    EXPECT_THAT(Slashed(second.Errors()), HasSubstr("is in use by tarvex serve (process "));
    Stop(*service);
}

TEST_F(Serving, ARootThatIsNotThereIsNoPlaceForAService) {
    ChildProcess service = host_.StartCommand({"serve"});
    service.Wait();
    EXPECT_EQ(service.ExitCode(), host::kNotFound);
}

}  // namespace
}  // namespace tarvex::testing
