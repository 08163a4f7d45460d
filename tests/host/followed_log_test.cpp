// `tarvex log --follow`: what it shows of a log that runs write.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// In one step, as runs do.
void WriteLog(const std::string& profile, const std::string& text) {
    WriteFile(profile + "/log", text);
    std::filesystem::rename(profile + "/log", profile + "/profile.log");
}

TEST(FollowedLog, ShowsWhatRunsAddThatReplaceAndShortenIt) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    Host host;
    const std::string profile = host.AddProfile(mailbox.Port(), sink.Port(), [](CPopProfile& changed) {
        changed.setting.logsize = 40;  // more than one run, less than two
    });
    ChildProcess log = host.StartCommand({"log", "from0", "--follow"}, Host::Output::Together);
    std::string expected = "---- End Operation at first\n";
    WriteLog(profile, expected);  // there was none
    ASSERT_TRUE(log.WaitForOutput(expected, 20s)) << log.Printed();
    for (int run = 1; run <= 3; ++run) {
        mailbox.Add(MailNumber(run));
        expected += "\n" + AsInTheLog(host.Run()).substr(("== " + profile + ": forwarded 1 message\n").size());
        ASSERT_TRUE(log.WaitForOutput(expected, 20s)) << log.Printed();
    }
    EXPECT_EQ(log.Printed(), expected);
    EXPECT_THAT(Log(profile), AllOf(HasSubstr("\nmail-3 received\n"), Not(HasSubstr("at first")),
                                    HasSubstr("\n\n---- Operation starting at ")));
    log.Interrupt();
    EXPECT_TRUE(log.WaitFor(20s));
}

TEST(FollowedLog, IsShownFromItsLastTenLinesOn) {
    Host host;
    const std::string profile = host.AddProfile(1, 1);
    std::string text;
    for (int line = 1; line <= 12; ++line) text += std::to_string(line) + "\r\n";
    WriteLog(profile, text);
    ChildProcess log = host.StartCommand({"log", "from0", "-f"}, Host::Output::Together);
    EXPECT_TRUE(log.WaitForOutput("12\n", 20s));
    EXPECT_THAT(log.Printed(), StartsWith("3\n4\n"));
}

}  // namespace
}  // namespace tarvex::testing
