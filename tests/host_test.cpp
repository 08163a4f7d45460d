// The command `tarvex`, run as a program: what it prints, its exit codes, and what a signal leaves behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <future>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tarvex/tarvex.h"
#include "testing/child_process.h"
#include "testing/mail_servers.h"
#include "testing/scripted_server.h"
#include "testing/temp_dir.h"
#include "tests/host_program.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using Output = ChildProcess::Output;

constexpr int kNoRoot = 2;
constexpr int kBadUsage = 64;
constexpr int kBroken = 70;
constexpr int kTerminated = 128 + SIGTERM;

std::string Log(const std::string& profile) { return Unix(ReadFile(profile + "/profile.log")); }
std::string Uidls(const std::string& profile) { return Unix(ReadFile(profile + "/forwardto0/uidl.def")); }

// ---- the command line

TEST(Host, AWrongCommandLineEndsWithAReasonAndCode64) {
    const TempDir folder;
    for (const std::vector<std::string>& words : {std::vector<std::string>{},
                                                  {"fly"},
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

// ---- the root

TEST(Host, ARootThatCannotBeHadEndsWithAReasonAndCode2) {
    const TempDir folder;
    WriteFile(folder / "file", "");
    fs::create_directory(folder / "closed");
    fs::permissions(folder / "closed", fs::perms::none);
    struct Case {
        std::string root;
        std::string reason;
    };
    std::vector<Case> cases = {{folder / "file", "Not a directory"},
                               {folder / "file/below", "it does not exist and cannot be created"},
                               {folder / "missing/below", "it does not exist and cannot be created"},
                               {"", "it does not exist and cannot be created"}};
    if (geteuid() != 0) cases.push_back({folder / "closed", "Permission denied"});  // nothing is closed to root
    for (const auto& [root, reason] : cases) {
        ChildProcess host({TARVEX_HOST, "run", "--root", root});
        host.Wait();
        EXPECT_EQ(host.ExitCode(), kNoRoot);
        EXPECT_EQ(host.Printed(), "");
        EXPECT_EQ(host.Errors(),
                  std::string("tarvex: cannot use \"").append(root).append("\" as the root: " + reason + "\n"));
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
    const std::string heading = "== " + profile;
    const std::string first = host.Run();
    const std::string first_log = Log(profile);
    EXPECT_EQ(first, heading + first_log);
    EXPECT_THAT(first, HasSubstr("\nmail-1 received\n"));

    mailbox.Add(MailNumber(2));
    const std::string second = host.Run();
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
    EXPECT_EQ(host.Run(), "== " + profile + "\n(its log is switched off)\n");
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
    const std::string printed = host.Run();
    const std::string one = "== " + profiles[0] + Log(profiles[0]);
    const std::string two = "== " + profiles[1] + Log(profiles[1]);
    EXPECT_THAT(printed, AnyOf(one + two, two + one));  // the tree is in the order of the directory
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
    EXPECT_THAT(host.Run(), HasSubstr("\n* enabled : 携帯 <phone@example.net>\n"));
}

// ---- hostile text

// Neither control characters nor bytes that are no UTF-8.
void ExpectFitForATerminal(std::string_view text) {
    while (!text.empty()) {
        const auto first = static_cast<unsigned char>(text[0]);
        const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
        ASSERT_LE(length, text.size());
        ASSERT_TRUE(first < 0x80 || first > 0xC2 || (first == 0xC2 && static_cast<unsigned char>(text[1]) >= 0xA0));
        ASSERT_TRUE(first == '\n' || (first >= 0x20 && first != 0x7F)) << text.substr(0, 40);
        for (const char c : text.substr(1, length - 1)) ASSERT_EQ(static_cast<unsigned char>(c) & 0xC0, 0x80);
        text.remove_prefix(length);
    }
}

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
    const std::string printed = host.Run();
    ExpectFitForATerminal(printed);
    EXPECT_THAT(printed, HasSubstr("\n+OK \\x1b]0;owned\\x07 ?31m"));
    EXPECT_THAT(printed, HasSubstr("\n550-\\x1b]0;owned\\x07 ?31m"));
    EXPECT_THAT(printed, HasSubstr("\n550 \\x1b]0;owned\\x07 ?31m"));
    EXPECT_THAT(Log(profile), HasSubstr("+OK \x1B]0;owned\x07"));
}

TEST(Host, ADirectoryWithAStrangeNameIsShownHarmlessly) {
    Host host;
    const fs::path profile = host.AddProfile(UnusedPort(), 1);
    fs::rename(profile, profile.parent_path() / "from\x1B[31m\n\x9B\xC2\x9B\xFF \xE6\x90\xBA");
    const std::string printed = host.Run();
    ExpectFitForATerminal(printed);
    EXPECT_THAT(printed, ::testing::StartsWith("== " + profile.parent_path().string() +
                                               "/from\\x1b[31m\\x0a\\x9b\\xc2\\x9b\\xff \xE6\x90\xBA\n----"));
}

// ---- output that fails

TEST(Host, OutputThatFailsIsAnErrorButTheMailIsForwarded) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    Host host;
    const std::string profile = host.AddProfile(mailbox.Port(), sink.Port());
    mailbox.Add(MailNumber(1));
    ChildProcess full = host.Start(Output::Full);
    full.Wait();
    EXPECT_EQ(full.ExitCode(), kBroken);
    EXPECT_EQ(full.Errors(), "tarvex: cannot write to standard output\n");
    EXPECT_EQ(Uidls(profile), "mail-1\n");

    mailbox.Add(MailNumber(2));
    ChildProcess closed = host.Start(Output::Closed);
    closed.Wait();
    EXPECT_EQ(closed.ExitCode(), 128 + SIGPIPE);
    EXPECT_EQ(Uidls(profile), "mail-1\nmail-2\n");
    EXPECT_EQ(sink.Delivered().size(), 2u);
}

// ---- signals

TEST(Host, ASignalEndsARunThatStallsAndItsStateIsSaved) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        MailboxServer mailbox("user", "secret");
        SinkServer sink;
        std::promise<void> stalls;
        sink.SetFault([&, mails = 0](const std::string& command) mutable {
            if (!command.starts_with("MAIL") || ++mails != 2) return "";
            stalls.set_value();
            return "stall";
        });
        Host host;
        const std::string profile = host.AddProfile(mailbox.Port(), sink.Port());
        const std::string settings = ReadFile(profile + "/popprofile.def");
        mailbox.Add(MailNumber(1));
        mailbox.Add(MailNumber(2));

        ChildProcess run = host.Start();
        ASSERT_EQ(stalls.get_future().wait_for(20s), std::future_status::ready);
        run.Signal(signal);
        ASSERT_TRUE(run.WaitFor(10s)) << "the time-out of the conversation is 30 s";
        EXPECT_EQ(run.ExitCode(), 128 + signal);
        EXPECT_EQ(run.Printed() + run.Errors(), "");
        EXPECT_EQ(Uidls(profile), "mail-1\n");
        EXPECT_THAT(Log(profile), HasSubstr("\n---- End Operation at "));
        EXPECT_THAT(ReadFile(profile + "/popprofile.def"), EndsWith(settings.substr(settings.find("[timeout]"))));

        sink.SetFault({});
        host.Run();
        std::vector<std::string> texts;
        for (const DeliveredMail& mail : sink.Delivered()) texts.push_back(mail.text);
        EXPECT_THAT(texts, ElementsAre(MailNumber(1).text, MailNumber(2).text));
    }
}

TEST(Host, ASignalEndsManyRunsThatWaitForAServer) {
    ScriptedServer silent([](Peer& peer) { peer.WaitForClose(); });
    constexpr int kProfiles = 20;
    Host host;
    std::vector<std::string> profiles;
    profiles.reserve(kProfiles);
    for (int i = 0; i < kProfiles; ++i) profiles.push_back(host.AddProfile(silent.Port(), 1));
    ChildProcess run = host.Start();
    while (silent.Connections() < kProfiles) ASSERT_FALSE(run.WaitFor(5ms)) << run.Printed();
    run.Signal(SIGTERM);
    ASSERT_TRUE(run.WaitFor(10s));
    EXPECT_EQ(run.ExitCode(), kTerminated);
    for (const std::string& profile : profiles) EXPECT_THAT(Log(profile), HasSubstr("\n---- End Operation at "));
}

TEST(Host, ASignalThatIsIgnoredStaysIgnored) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    std::promise<void> greeted, signalled;
    sink.SetFault([&](const std::string& command) {
        if (command.starts_with("MAIL")) {
            greeted.set_value();
            signalled.get_future().wait_for(20s);
        }
        return "";
    });
    Host host;
    const std::string profile = host.AddProfile(mailbox.Port(), sink.Port());
    mailbox.Add(MailNumber(1));
    ChildProcess run({"/bin/sh", "-c", "trap '' HUP; exec \"$@\"", "sh", TARVEX_HOST, "run", "--root", host.Root()});
    ASSERT_EQ(greeted.get_future().wait_for(20s), std::future_status::ready);
    run.Signal(SIGHUP);
    signalled.set_value();
    run.Wait();
    EXPECT_EQ(run.ExitCode(), 0);
    EXPECT_EQ(Uidls(profile), "mail-1\n");
}

// ---- the demo

struct Demo {
    const char* name;
    Output output;
    std::vector<std::string> variables;
    bool colours;
};

class DemoProgram : public ::testing::TestWithParam<Demo> {};

TEST_P(DemoProgram, ForwardsEverythingAndShowsColoursOnATerminalOnly) {
    const TempDir folder;
    std::vector<std::string> variables = GetParam().variables;
    variables.push_back("TMPDIR=" + folder.String());
    ChildProcess demo({TARVEX_HOST, "demo"}, GetParam().output, variables);
    demo.Wait();
    EXPECT_EQ(demo.ExitCode(), 0);
    EXPECT_EQ(demo.Errors(), "");
    EXPECT_THAT(demo.Printed(), HasSubstr("Everything arrived once: at phone and office byte for byte, at pager as the "
                                          "text it should be."));
    for (const char* const text :
         {"お世話になっております。\n             会議の資料をお送りします。\n             "
          "次回は来週の火曜日、午後三時からです。\n",
          "ご注文ありがとうございます。\n             合計は 1,024 円です。\n",
          "冬のセールのご案内\n             全品20% OFF、送料は無料です。\n", "The report is attached.\n"}) {
        EXPECT_THAT(Unix(demo.Printed()), HasSubstr(std::string("\n      pager  ") + text));
    }
    EXPECT_THAT(Unix(demo.Printed()),
                HasSubstr("雨の日は集会所です。\n             エプロンと手ぬぐいをお\n"));  // 120 bytes
    EXPECT_THAT(demo.Printed(), HasSubstr(" - operation continued by schedule setting"));
    EXPECT_EQ(demo.Printed().find('\x1B') != std::string::npos, GetParam().colours);
    if (!GetParam().colours) ExpectFitForATerminal(Unix(demo.Printed()));

    const auto left = fs::directory_iterator(folder.Path());
    ASSERT_NE(left, fs::directory_iterator());
    EXPECT_EQ(left->status().permissions(), fs::perms::owner_all);
    EXPECT_THAT(demo.Printed(), HasSubstr(left->path().string() + "/user0/from0/profile.log"));
}

void PrintTo(const Demo& demo, std::ostream* out) { *out << demo.name; }

INSTANTIATE_TEST_SUITE_P(Host, DemoProgram,
                         ::testing::Values(Demo{"Pipe", Output::Pipe, {"TERM=xterm", "NO_COLOR="}, false},
                                           Demo{"Terminal", Output::Terminal, {"TERM=xterm", "NO_COLOR="}, true},
                                           Demo{"NoColour", Output::Terminal, {"TERM=xterm", "NO_COLOR=1"}, false},
                                           Demo{"DumbTerminal", Output::Terminal, {"TERM=dumb", "NO_COLOR="}, false}),
                         [](const auto& demo) { return demo.param.name; });

TEST(Host, ADemoWithoutAFolderIsBroken) {
    const TempDir folder;
    ChildProcess demo({TARVEX_HOST, "demo"}, Output::Pipe, {"TMPDIR=" + (folder / "missing")});
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
                          {"TMPDIR=" + folder.String(), "TZ=X" + std::to_string(hours)});
        demo.Wait();
        EXPECT_EQ(demo.ExitCode(), 0) << demo.Printed();
    }
}

}  // namespace
}  // namespace tarvex::testing
