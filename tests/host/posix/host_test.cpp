// The command `tarvex` where there are signals, terminals, modes and names of any bytes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <future>
#include <ostream>
#include <string>
#include <vector>

#include "host/system/command_error.h"
#include "loopback/mail_servers.h"
#include "testing/child_process.h"
#include "testing/scripted_server.h"
#include "testing/temp_dir.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using Output = ChildProcess::Output;

constexpr int kTerminated = 128 + SIGTERM;

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

TEST(Host, ADirectoryWithAStrangeNameIsShownHarmlessly) {
    Host host;
    const fs::path profile = host.AddProfile(UnusedPort(), 1);
    fs::rename(profile, profile.parent_path() / "from\x1B[31m\n\x9B\xC2\x9B\xFF \xE6\x90\xBA");
    const std::string printed = host.Run(kUnavailable);
    ExpectFitForATerminal(printed);
    EXPECT_THAT(printed, ::testing::StartsWith("== " + profile.parent_path().string() +
                                               "/from\\x1b[31m\\x0a\\x9b\\xc2\\x9b\\xff \xE6\x90\xBA: failed: "));
}

TEST(Host, OutputThatFailsIsAnErrorButTheMailIsForwarded) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    Host host;
    const std::string profile = host.AddProfile(mailbox.Port(), sink.Port());
    mailbox.Add(MailNumber(1));
    ChildProcess full = host.Start(Output::Full);
    full.Wait();
    EXPECT_EQ(full.ExitCode(), host::kCannotWrite);
    EXPECT_EQ(full.Errors(), "tarvex: cannot write to standard output\n");
    EXPECT_EQ(Uidls(profile), "mail-1\n");

    mailbox.Add(MailNumber(2));
    ChildProcess closed = host.Start(Output::Closed);
    closed.Wait();
    EXPECT_EQ(closed.ExitCode(), 128 + SIGPIPE);
    EXPECT_EQ(Uidls(profile), "mail-1\nmail-2\n");
    EXPECT_EQ(sink.Delivered().size(), 2u);
}

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

}  // namespace
}  // namespace tarvex::testing
