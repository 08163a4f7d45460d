// The command `tarvex`, run as a program: what it prints, and its exit codes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "loopback/mail_servers.h"
#include "testing/scripted_server.h"
#include "testing/temp_dir.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Output = ChildProcess::Output;

// ---- the command line

TEST(Host, AWrongCommandLineEndsWithAReasonAndCode64) {
    const TempDir folder;
    for (const std::vector<std::string>& words : {std::vector<std::string>{"fly"},
                                                  {"--fly"},
                                                  {"run", "--root"},
                                                  {"run", "--fly"},
                                                  {"run", "--root", folder.String(), "--quiet=perhaps"},
                                                  {"demo", "more"}}) {
        std::vector<std::string> command = {TARVEX_HOST};
        command.insert(command.end(), words.begin(), words.end());
        ChildProcess host(command);
        host.Wait();
        SCOPED_TRACE(::testing::PrintToString(words));
        EXPECT_EQ(host.ExitCode(), kBadUsage);
        EXPECT_EQ(host.Printed(), "");
        EXPECT_THAT(host.Errors(), HasSubstr("--help"));
    }
}

TEST(Host, ExplainsItself) {
    for (const char* const word : {"--help", "--version"}) {
        ChildProcess host({TARVEX_HOST, word});
        host.Wait();
        EXPECT_EQ(host.ExitCode(), 0);
        EXPECT_THAT(host.Printed(), HasSubstr(std::string(word) == "--help" ? "demo" : "tarvex "));
        EXPECT_EQ(host.Errors(), "");
    }
}

TEST(Host, AMissingRootIsCreatedAndHasNothingToRun) {
    const Host host;
    EXPECT_EQ(host.Run(), "No profile was due.\n");
    EXPECT_TRUE(fs::is_directory(host.Root()));
    EXPECT_EQ(host.Run(), "No profile was due.\n");
}

TEST(Host, AProfileThatIsNotDueIsLeftAlone) {
    Host host;
    const std::string profile = host.AddProfile(1, 1, [](CPopProfile& changed) { changed.setting.timer = 10; });
    EXPECT_EQ(host.Run(), "No profile was due.\n");
    EXPECT_FALSE(fs::exists(profile + "/profile.log"));
}

// ---- what a run prints

TEST(Host, PrintsWhatThisRunAddedToTheLog) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    Host host;
    const std::string profile = host.AddProfile(mailbox.Port(), sink.Port());
    mailbox.Add(MailNumber(1));
    const std::string heading = "== " + profile + ": forwarded 1 message";
    const std::string first = AsInTheLog(host.Run());
    const std::string first_log = Log(profile);
    EXPECT_EQ(first, heading + first_log);
    EXPECT_THAT(first, HasSubstr("\nmail-1 received\n"));

    mailbox.Add(MailNumber(2));
    const std::string second = AsInTheLog(host.Run());
    EXPECT_THAT(second, ::testing::StartsWith(heading));
    EXPECT_EQ(first_log + second.substr(heading.size()), Log(profile));
    EXPECT_THAT(second, HasSubstr("\nmail-2 received\n"));
    EXPECT_THAT(second, Not(HasSubstr("\nmail-1 received\n")));
}

TEST(Host, PrintsTheWholeRunThoughTheLogKeepsLess) {
    MailboxServer mailbox("user", "secret");
    Host host;
    const std::string profile =
        host.AddProfile(mailbox.Port(), 1, [](CPopProfile& changed) { changed.setting.logsize = 1; });
    EXPECT_THAT(host.Run(), HasSubstr("\n---- Operation starting at "));
    EXPECT_THAT(Log(profile), ::testing::StartsWith("---- End Operation at "));
}

TEST(Host, QuietPrintsNothing) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    Host host;
    host.AddProfile(mailbox.Port(), sink.Port());
    mailbox.Add(MailNumber(1));
    ChildProcess run = host.Start(Output::Pipe, {"--quiet"});
    run.Wait();
    EXPECT_EQ(run.ExitCode(), 0);
    EXPECT_EQ(run.Printed() + run.Errors(), "");
    EXPECT_EQ(sink.Delivered().size(), 1u);
}

TEST(Host, ALogThatIsSwitchedOffIsSaidToBeSo) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    Host host;
    const std::string profile =
        host.AddProfile(mailbox.Port(), sink.Port(), [](CPopProfile& changed) { changed.setting.logmode = 0; });
    mailbox.Add(MailNumber(1));
    EXPECT_EQ(host.Run(), "== " + profile + ": forwarded 1 message\n(its log is switched off)\n");
    EXPECT_FALSE(fs::exists(profile + "/profile.log"));
    EXPECT_EQ(sink.Delivered().size(), 1u);
}

TEST(Host, EveryProfileHasItsOwnPart) {
    MailboxServer first("user", "secret"), second("user", "secret");
    SinkServer sink;
    Host host;
    const std::vector<std::string> profiles = {host.AddProfile(first.Port(), sink.Port()),
                                               host.AddProfile(second.Port(), sink.Port())};
    first.Add(MailNumber(1));
    second.Add(MailNumber(2));
    const std::string printed = host.Run(0, {"--verbose"});
    const std::string one = "== " + profiles[0] + ": forwarded 1 message" + Log(profiles[0]);
    const std::string two = "== " + profiles[1] + ": forwarded 1 message" + Log(profiles[1]);
    EXPECT_THAT(AsInTheLog(printed), AnyOf(one + two, two + one));  // the tree is in the order of the directory
    EXPECT_THAT(one, HasSubstr("\nmail-1 received\n"));
    EXPECT_THAT(two, HasSubstr("\nmail-2 received\n"));
    EXPECT_EQ(sink.Delivered().size(), 2u);
}

TEST(Host, ShiftJisIsShownAsUtf8) {
    Host host;
    host.AddProfile(UnusedPort(), 1, [](CPopProfile& changed) {
        changed.forward_addresses[0]->setting.address = "\x8C\x67\x91\xD1 <phone@example.net>";
        changed.forward_addresses[0]->SaveSetting();
    });
    EXPECT_THAT(host.Run(kUnavailable), HasSubstr("\n* enabled : 携帯 <phone@example.net>\n"));
}

// ---- hostile text

TEST(Host, NothingThatAServerSaysReachesTheTerminalAsACommand) {
    // A window title, a bell, C1 controls as bytes and as UTF-8, no Shift-JIS, and half a character at the end.
    const std::string hostile =
        "\x1B]0;owned\x07 \x9B"
        "31m \xC2\x9B"
        "31m \b\x7F \x80\xA0\xFD\xFF\r \x85\xC2\x85 \x81";
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    mailbox.Add(MailNumber(1));
    mailbox.SetFault([&](const std::string& command) { return command == "QUIT" ? "+OK " + hostile : ""; });
    sink.SetFault([&](const std::string&) { return "550-" + hostile + "\r\n550 " + hostile; });
    Host host;
    const std::string profile = host.AddProfile(
        mailbox.Port(), sink.Port(), [&](CPopProfile& changed) { changed.setting.address = hostile.substr(0, 10); });
    const std::string printed = host.Run(kUnavailable);
    ExpectFitForATerminal(printed);
    EXPECT_THAT(printed, HasSubstr("\n+OK \\x1b]0;owned\\x07 ?31m"));
    EXPECT_THAT(printed, HasSubstr("\n550-\\x1b]0;owned\\x07 ?31m"));
    EXPECT_THAT(printed, HasSubstr("\n  550 \\x1b]0;owned\\x07 ?31m"));
    EXPECT_THAT(Log(profile), HasSubstr("+OK \x1B]0;owned\x07"));
}

// ---- the demo

TEST(Host, ADemoWithoutAFolderIsBroken) {
    const TempDir folder;
    ChildProcess demo({TARVEX_HOST, "demo"}, Output::Pipe,
                      {"TMPDIR=" + (folder / "missing"), "TMP=" + (folder / "missing")});
    demo.Wait();
    EXPECT_EQ(demo.ExitCode(), kBroken);
    EXPECT_EQ(demo.Printed(), "");
    EXPECT_THAT(demo.Errors(), ::testing::StartsWith("tarvex: "));
}

// At midnight and while the clocks change, the demo's schedule is open as well; zones stand for moments.
TEST(Host, TheDemoWorksAtEveryTimeOfTheDay) {
    const TempDir folder;
    for (int hours = -12; hours < 12; hours += 3) {
        ChildProcess demo({TARVEX_HOST, "demo"}, Output::Pipe,
                          {"TMPDIR=" + folder.String(), "TMP=" + folder.String(), "TZ=X" + std::to_string(hours)});
        demo.Wait();
        EXPECT_EQ(demo.ExitCode(), 0) << demo.Printed();
        EXPECT_THAT(demo.Printed(), HasSubstr("set aside for the three of them"));
    }
}

}  // namespace
}  // namespace tarvex::testing
