// A service whose tree cannot be relied on: files that cannot be read or written, for a while.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "host/system/command_error.h"
#include "tests/host/service/served_tree.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

namespace fs = std::filesystem;

using ServingWithCare = ServiceTest;

// Where the service has it open for a moment, Windows moves nothing.
void Move(const std::string& from, const std::string& to) {
    EXPECT_TRUE(Eventually([&] {
        std::error_code error;
        fs::rename(from, to, error);
        return !error;
    }));
}

// A directory in the place of the file cannot be read by the superuser either.
void MakeUnreadable(const std::string& file) {
    Move(file, file + ".aside");
    fs::create_directory(file);
}

void MakeReadable(const std::string& file) {
    Move(file, file + ".directory");
    Move(file + ".aside", file);
}

// A directory in one step: the service removes an empty one.
void Obstruct(const std::string& path) {
    fs::create_directories(path + ".whole/full");
    Move(path + ".whole", path);
}

TEST_F(ServingWithCare, AListThatCannotBeReadIsNotTakenForAnEmptyOne) {
    mailbox_.Add(MailNumber(1));
    const std::string profile = AddProfile();
    host_.AddProfile(mailbox_.Port(), sink_.Port());
    host_.Run();
    ASSERT_THAT(sink_.Delivered(), SizeIs(2));
    const std::string list = profile + "/forwardto0/uidl.def";
    MakeUnreadable(list);
    ChildProcess run = host_.StartCommand({"run", "--quiet"});
    run.Wait();
    EXPECT_EQ(run.ExitCode(), host::kCannotWrite);
    EXPECT_THAT(Slashed(run.Errors()), AllOf(StartsWith("tarvex: user0/from0: cannot read \""), HasSubstr("uidl.def")));
    const std::string told = "user0/from0: left out, cannot read \"" + Slashed(list);
    EXPECT_THAT(Tell({"status"}, 1), HasSubstr(told));
    const auto service = Serve();
    ASSERT_TRUE(service->WaitForOutput("user1/from0: run ended, nothing new", kLong));
    ChildProcess asked = host_.StartCommand({"run", "--now", "--verbose"});
    asked.Wait();
    EXPECT_EQ(asked.ExitCode(), host::kCannotWrite);
    EXPECT_THAT(Slashed(asked.Printed()), AllOf(HasSubstr("user1"), Not(HasSubstr("user0"))));
    EXPECT_THAT(Slashed(asked.Errors()), StartsWith("tarvex: user0/from0: cannot read \""));
    EXPECT_THAT(Tell({"status"}, 1), HasSubstr(told));
    EXPECT_THAT(Tell({"status", "--json"}, 1), HasSubstr("\"trouble\": \"left out, cannot read "));
    MakeReadable(list);
    EXPECT_TRUE(service->WaitForOutput("user0/from0: run ended, nothing new", kLong));
    EXPECT_THAT(Tell({"status"}), Not(HasSubstr(told)));
    Stop(*service);
    EXPECT_EQ(Count(service->Printed(), told), 1);
    EXPECT_THAT(service->Printed(), HasSubstr("user0/from0: is run again"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(2));
}

TEST_F(ServingWithCare, ASettingThatCouldNotBeReadIsReadBeforeTheProfileRuns) {
    const std::string profile = AddProfile();
    const std::string file = profile + "/popprofile.def";
    MakeUnreadable(file);
    const auto service = Serve();
    EXPECT_TRUE(service->WaitForOutput("user0/from0: left out, cannot read \"" + Slashed(file), kLong));
    MakeReadable(file);
    EXPECT_TRUE(service->WaitForOutput("user0/from0: run ended, nothing new", kLong));
    Stop(*service);
    EXPECT_THAT(ReadFile(file), HasSubstr("me@example.org"));
}

TEST_F(ServingWithCare, NoEditPutsDefaultsInThePlaceOfASettingThatCouldNotBeRead) {
    const std::string file = AddProfile() + "/popprofile.def";
    MakeUnreadable(file);
    const auto service = Serve({}, "600");
    ASSERT_TRUE(service->WaitForOutput("user0/from0: left out", kLong));
    const std::vector<std::string> edit = {"profile", "set", "user0/from0", "--nickname", "office"};
    ChildProcess refused = host_.StartCommand(edit);
    refused.Wait();
    EXPECT_EQ(refused.ExitCode(), host::kCannotWrite);
    EXPECT_THAT(Slashed(refused.Errors()), StartsWith("tarvex: cannot read \"" + Slashed(file)));
    MakeReadable(file);
    Tell(edit);
    Stop(*service);
    EXPECT_THAT(ReadFile(file), AllOf(HasSubstr("office"), HasSubstr("me@example.org")));
}

// Where a save writes first there is something that it cannot replace, as on a disk that is full.
TEST_F(ServingWithCare, AProfileWhoseListCannotBeSavedIsNotRun) {
    const std::string profile = AddProfile();
    const auto service = Serve();
    ASSERT_TRUE(service->WaitForOutput("run ended, nothing new", kLong));
    const std::string obstacle = profile + "/forwardto0/uidl.def.new";
    Obstruct(obstacle);
    ASSERT_TRUE(service->WaitForOutput("user0/from0: left out, cannot write \"", kLong));
    mailbox_.Add(MailNumber(1));
    EXPECT_THAT(Tell({"status"}, 1), HasSubstr("user0/from0: left out, cannot write \""));
    EXPECT_THAT(sink_.Delivered(), SizeIs(0));
    Move(obstacle, obstacle + ".gone");
    EXPECT_TRUE(service->WaitForOutput("run ended, forwarded 1 message", kLong));
    EXPECT_TRUE(Eventually(
        [&] { return Count(service->Printed(), "nothing new") > 1 || service->WaitForOutput("(never)", 1ms); }));
    Stop(*service);
    EXPECT_EQ(Count(service->Printed(), "left out"), 1);
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
}

TEST_F(ServingWithCare, AfterARunWhoseListCouldNotBeSavedTheProfileRunsWhenItCan) {
    mailbox_.Add(MailNumber(1));
    Block();
    const std::string profile = AddProfile();
    const auto service = Serve();
    WaitUntilBlocked();
    const std::string obstacle = profile + "/forwardto0/uidl.def.new";
    Obstruct(obstacle);
    blocking_ = false;
    ASSERT_TRUE(service->WaitForOutput("what its last run forwarded could not be recorded", kLong));
    EXPECT_THAT(Tell({"status"}, 1), HasSubstr("could not be recorded"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
    Move(obstacle, obstacle + ".gone");
    EXPECT_TRUE(service->WaitForOutput("run ended, nothing new", kLong));
    Stop(*service);
    EXPECT_EQ(Count(service->Printed(), "could not be recorded"), 1);
    EXPECT_THAT(sink_.Delivered(), SizeIs(2)) << "once more, and then no more";
    EXPECT_EQ(Uidls(profile), "mail-1\n");
}

TEST_F(ServingWithCare, ARunOnceWhoseListCouldNotBeSavedSaysSo) {
    mailbox_.Add(MailNumber(1));
    Block();
    const std::string profile = AddProfile();
    ChildProcess run = host_.StartCommand({"run"});
    WaitUntilBlocked();
    Obstruct(profile + "/forwardto0/uidl.def.new");
    blocking_ = false;
    run.Wait();
    EXPECT_EQ(run.ExitCode(), host::kCannotWrite);
    EXPECT_THAT(Slashed(run.Errors()), HasSubstr("user0/from0: what its last run forwarded could not be recorded"));
    ChildProcess next = host_.StartCommand({"run"});
    next.Wait();
    EXPECT_EQ(next.ExitCode(), host::kCannotWrite);
    EXPECT_THAT(Slashed(next.Errors()), HasSubstr("user0/from0: cannot write"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
}

}  // namespace
}  // namespace tarvex::testing
