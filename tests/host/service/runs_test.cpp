// Runs that commands ask the service for.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "host/system/command_error.h"
#include "tests/host/service/served_tree.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::StartsWith;

class ServedRuns : public ServiceTest {
protected:
    // Two profiles that will not be due for long, the second one switched off; and a service.
    void AddTwoProfiles() {
        profile_ = AddProfile(600);
        host_.AddProfile(1, 1, [](CPopProfile& profile) { profile.setting.status = 0; });
    }

    std::string profile_;
};

TEST_F(ServedRuns, AreMadeByTheServiceAndReportedAsWithoutOne) {
    AddTwoProfiles();
    const auto service = Serve({}, "60");
    mailbox_.Add(MailNumber(1));
    const std::string report = Tell({"run", kProfile, "--now"});
    EXPECT_EQ(AsInTheLog(report), "== " + Slashed(profile_) + ": forwarded 1 message" +
                                      Unix("\n" + ReadFile(profile_ + "/profile.log")).erase(0, 1));
    EXPECT_THAT(report, AllOf(HasSubstr("\nmail-1 received\n"), HasSubstr("* SMTP Process - success")));
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
    EXPECT_EQ(Tell({"run", kProfile, "--now", "--quiet"}), "");
    EXPECT_EQ(mailbox_.Received("QUIT"), 2);
    EXPECT_THAT(Tell({"run", "--now", "--verbose"}), StartsWith("== " + Slashed(profile_) + ": "));
    EXPECT_THAT(Tell({"run", kProfile}), AllOf(StartsWith("user0/from0 is not due before "), HasSubstr("--now")));
    EXPECT_EQ(Tell({"run", "--now", "user1/from0"}), "user1/from0 is switched off (status 0).\n");
    EXPECT_EQ(Tell({"run"}), "No profile was due.\n");
    EXPECT_EQ(mailbox_.Received("QUIT"), 3);
    Stop(*service);
    EXPECT_THAT(service->Printed(), AllOf(HasSubstr("run user0/from0 --now"), HasSubstr("user0/from0: run started")));
    CPopProfileSetting setting;
    ASSERT_TRUE(setting.Load(profile_));
    EXPECT_GT(setting.lasttime, std::time(nullptr) - 600);
}

TEST_F(ServedRuns, WithoutALogAreReportedToo) {
    host_.AddProfile(mailbox_.Port(), sink_.Port(), [](CPopProfile& profile) { profile.setting.logmode = 0; });
    const auto service = Serve({}, "60");
    EXPECT_THAT(Tell({"run"}), HasSubstr("(its log is switched off)\n"));
    Stop(*service);
}

TEST_F(ServedRuns, OfWrongNamesAreRefusedAsWithoutAService) {
    AddTwoProfiles();
    const auto service = Serve({}, "60");
    ChildProcess ambiguous = host_.StartCommand({"run", "from0"});
    ambiguous.Wait();
    EXPECT_EQ(ambiguous.ExitCode(), host::kBadUsage);
    EXPECT_THAT(Slashed(ambiguous.Errors()), AllOf(HasSubstr("user0/from0"), HasSubstr("user1/from0")));
    ChildProcess unknown = host_.StartCommand({"run", kProfile, "user2/from0", "--now"});
    unknown.Wait();
    EXPECT_EQ(unknown.ExitCode(), host::kNotFound);
    EXPECT_EQ(mailbox_.Received("QUIT"), 0);
    Stop(*service);
}

TEST_F(ServedRuns, ThatTheServiceIsStoppedInAreToBeTriedAgain) {
    Block();
    AddTwoProfiles();
    const auto service = Serve({}, "60");
    ChildProcess command = host_.StartCommand({"run", "--now"});
    WaitUntilBlocked();
    Stop(*service);
    blocking_ = false;
    command.Wait();
    EXPECT_EQ(command.ExitCode(), host::kTryLater);
    EXPECT_EQ(Slashed(command.Errors()), "tarvex: the service was stopped before it had done this; run it again\n");
    EXPECT_EQ(Slashed(command.Printed()), "");
}

TEST_F(ServedRuns, ComeAfterTheEditsThatWaitForTheSameRun) {
    Block();
    AddTwoProfiles();
    Tell({"profile", "add", "user0", "two@example.org", "--again", "--popserver", "127.0.0.1", "--popport",
          std::to_string(mailbox_.Port()), "--popuser", "user", "--timer", "600"});
    const auto service = Serve({}, "60");
    ChildProcess first = host_.StartCommand({"run", kProfile, "--now"});
    WaitUntilBlocked();
    // The edit wants neither profile to run.
    ChildProcess edit = host_.StartCommand({"user", "remove", "user0", "--yes"}, ChildProcess::Output::Together);
    EXPECT_TRUE(edit.WaitForOutput("waiting for the run of ", kLong));
    ChildProcess second = host_.StartCommand({"run", "user0/from1", "--now"}, ChildProcess::Output::Together);
    EXPECT_TRUE(second.WaitForOutput("waiting for ", kLong));
    blocking_ = false;
    for (ChildProcess* const command : {&first, &edit, &second}) ASSERT_TRUE(command->WaitFor(kLong));
    EXPECT_EQ(edit.ExitCode(), 0);
    EXPECT_EQ(second.ExitCode(), host::kNotFound);
    EXPECT_THAT(Slashed(second.Printed()),
                AllOf(HasSubstr("waiting for user0/from1 to be changed"), HasSubstr("no profile")));
    Stop(*service);
}

}  // namespace
}  // namespace tarvex::testing
