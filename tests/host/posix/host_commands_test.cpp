// The commands that keep a tree, run as a program: what a person types and sees.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/edit/root_lock.h"
#include "host/settings/keys.h"
#include "host/settings/login_password.h"
#include "host/system/command_error.h"
#include "loopback/mail_servers.h"
#include "tarvex/tarvex.h"
#include "testing/child_process.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

using loopback::MailboxServer;
using loopback::SinkServer;

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using Json = nlohmann::json;
using Output = ChildProcess::Output;
using Words = std::vector<std::string>;

// A home of one's own, so that nothing of this machine's settings is read or written.
class HostCommands : public ::testing::Test {
protected:
    std::string Settings() const { return home_ / "config/tarvex/appset.def"; }
    std::string Tree() const { return home_ / "data/tarvex"; }

    Words Command(const Words& words) const {
        Words command = {TARVEX_HOST};
        command.insert(command.end(), words.begin(), words.end());
        return command;
    }
    Words Variables() const {
        return {"XDG_CONFIG_HOME=" + (home_ / "config"), "XDG_DATA_HOME=" + (home_ / "data"), "HOME=" + home_.String()};
    }

    // What a command prints that goes well.
    std::string Do(const Words& words, const std::string& input = {}) const {
        ChildProcess command(Command(words), Output::Pipe, Variables(), input);
        command.Wait();
        EXPECT_EQ(command.ExitCode(), host::kDone) << ::testing::PrintToString(words) << command.Errors();
        EXPECT_EQ(command.Errors(), "");
        return command.Printed();
    }

    // What a command says that fails with the code.
    std::string Fail(int exit_code, const Words& words, const std::string& input = {}) const {
        ChildProcess command(Command(words), Output::Pipe, Variables(), input);
        command.Wait();
        EXPECT_EQ(command.ExitCode(), exit_code) << ::testing::PrintToString(words) << command.Errors();
        EXPECT_EQ(command.Printed(), "");
        return command.Errors();
    }

    Json DoJson(const Words& words) const { return Json::parse(Do(words)); }

    // A tree with one of each.
    void MakeTree() const {
        Do({"init"});
        Do({"user", "add", "taro"});
        Do({"profile", "add", "taro", "me@example.org", "--popserver", "pop.example.org", "--popuser", "me", "--plain",
            "--password-stdin"},
           "secret\n");
        Do({"forward", "add", "me@example.org", "phone@example.net", "--nickname", "phone"});
    }

    CPopProfileSetting Profile() const {
        CPopProfileSetting setting;
        EXPECT_EQ(setting.Load(Tree() + "/user0/from0"), 1);
        return setting;
    }

    TempDir home_;
};

// ---- the root

TEST_F(HostCommands, ATreeElsewhereIsNotTheOneThatTheServiceServes) {
    const std::string note = "Note: the service serves ";
    EXPECT_THAT(Do({"init"}), Not(HasSubstr(note)));
    ChildProcess service(Command({"serve"}), Output::Together, Variables());
    ASSERT_TRUE(service.WaitForOutput("serving ", 20s));
    EXPECT_THAT(Do({"init"}), Not(HasSubstr(note)));
    EXPECT_THAT(Do({"init", home_ / "other"}), HasSubstr(note + Tree() + ", not this tree"));
    service.Signal(SIGTERM);
    EXPECT_TRUE(service.WaitFor(20s));

    if (geteuid() != 0) return;  // who has no business with the system's service
    fs::create_directory(home_ / "units");
    WriteFile(home_ / "units/tarvex.service", "[Service]\nExecStart=/usr/bin/tarvex --root " + Tree() + " serve\n");
    const auto said = [this](const std::string& directory) {
        Words variables = Variables();
        variables.push_back("SYSTEMD_UNIT_PATH=/nowhere:" + (home_ / "units"));
        ChildProcess command(Command({"init", directory}), Output::Pipe, variables);
        command.Wait();
        return command.Printed();
    };
    EXPECT_THAT(said(home_ / "third"), HasSubstr(note + Tree() + ", not this tree"));
    EXPECT_THAT(said(Tree()), Not(HasSubstr(note)));
    EXPECT_THAT(said(Tree() + "-shop"), Not(HasSubstr(note)));  // that of tarvex@shop
}

TEST_F(HostCommands, InitMakesATreeAndRemembersIt) {
    EXPECT_THAT(Fail(host::kNotFound, {"user", "list"}), AllOf(HasSubstr("TarvexRoot"), HasSubstr("`tarvex init`")));
    EXPECT_THAT(Do({"init"}), AllOf(HasSubstr(Tree()), HasSubstr(Settings())));
    EXPECT_EQ(fs::status(Tree()).permissions(), fs::perms::owner_all);
    EXPECT_EQ(DoJson({"settings", "show", "--json"})["rootpath"], Tree());
    Do({"user", "add", "taro"});
    EXPECT_TRUE(fs::exists(Tree() + "/user0/userset.def"));
    EXPECT_THAT(Do({"init"}), HasSubstr("The data tree is " + Tree()));
    EXPECT_EQ(DoJson({"user", "list", "--json"}).size(), 1U);

    Do({"init", home_ / "a/b/other"});
    EXPECT_EQ(DoJson({"user", "list", "--json"}).size(), 0U);
    EXPECT_EQ(DoJson({"--root", Tree(), "user", "list", "--json"}).size(), 1U);
    EXPECT_EQ(DoJson({"user", "list", "--json", "--root", Tree()}).size(), 1U);
}

TEST_F(HostCommands, InitWithRootRemembersNothing) {
    Do({"--root", home_ / "tree", "init"});
    EXPECT_TRUE(fs::is_directory(home_ / "tree"));
    EXPECT_FALSE(fs::exists(Settings()));
    Fail(host::kBadUsage, {"--root", home_ / "tree", "init", home_ / "tree"});
}

TEST_F(HostCommands, ARootThatIsNoDirectoryIsNotMade) {
    EXPECT_THAT(Fail(host::kNotFound, {"--root", home_ / "missing", "user", "add", "taro"}), HasSubstr("missing"));
    EXPECT_FALSE(fs::exists(home_ / "missing"));
    WriteFile(home_ / "file", "");
    EXPECT_THAT(Fail(host::kNotFound, {"--root", home_ / "file", "user", "list"}), HasSubstr("Not a directory"));
    EXPECT_THAT(Fail(host::kCannotMake, {"init", home_ / "file"}), HasSubstr("file"));
    EXPECT_THAT(Fail(host::kNoRoot, {"run"}), HasSubstr("`tarvex init`"));
}

TEST_F(HostCommands, ARootThatTheSettingsFileWouldLoseIsRefused) {
    EXPECT_THAT(Fail(host::kBadData, {"init", home_ / "[x]"}), HasSubstr("rootpath"));
    EXPECT_FALSE(fs::exists(Settings()));
}

// A service that runs as a user of its own must be able to read what the superuser has changed.
TEST_F(HostCommands, TheSuperuserWorksAsTheOwnerOfTheTree) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can";
    constexpr uid_t kOther = 65534;
    MakeTree();
    fs::permissions(home_ / "data", fs::perms::owner_all | fs::perms::others_exec);
    fs::permissions(home_.Path(), fs::perms::owner_all | fs::perms::others_exec);
    for (const auto& entry : fs::recursive_directory_iterator(Tree())) {
        ASSERT_EQ(chown(entry.path().c_str(), kOther, kOther), 0);
    }
    ASSERT_EQ(chown(Tree().c_str(), kOther, kOther), 0);
    Do({"user", "add", "hana"});
    Do({"profile", "set", "me@example.org", "--password-stdin"}, "secret");
    Do({"profile", "add", "hana", "hana@example.org", "--popserver", "127.0.0.1", "--popuser", "hana",
        "--password-stdin"},
       "secret");                               // looks for the tree twice
    WriteFile(home_ / "password", "secret\n");  // which the owner of the tree may not read
    fs::permissions(home_ / "password", fs::perms::owner_read);
    Do({"profile", "add", "hana", "hana@example.net", "--again", "--popserver", "127.0.0.1", "--popuser", "hana",
        "--password-file", home_ / "password"});
    fs::remove(Tree() + "/.tarvex.lock");  // so that the next one makes it
    Do({"run"});
    for (const auto& entry : fs::recursive_directory_iterator(Tree())) {
        struct stat status {};
        ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, kOther) << entry.path();
    }
    Do({"settings", "set", "--allowcreatenewuser", "off"});  // which are still the superuser's
    Do({"init"});
}

TEST_F(HostCommands, TheSettingsMayForbidNewUsers) {
    Do({"init"});
    Do({"settings", "set", "--allowcreatenewuser", "off"});
    EXPECT_THAT(Fail(host::kNotAllowed, {"user", "add", "taro"}), HasSubstr("allowcreatenewuser"));
    Do({"settings", "set", "--allowcreatenewuser", "on"});
    Do({"user", "add", "taro"});
}

TEST_F(HostCommands, SettingsThatWereCutAreNeitherShownNorSavedOver) {
    Do({"init"});
    WriteFile(Settings(), "");
    EXPECT_THAT(Fail(host::kCannotWrite, {"settings", "set", "--allowcreatenewuser", "off"}), HasSubstr("appset.def"));
    EXPECT_THAT(Fail(host::kCannotWrite, {"init", home_ / "other"}), HasSubstr("is empty"));
    EXPECT_THAT(Fail(host::kCannotWrite, {"settings", "show"}), HasSubstr("is empty"));
    EXPECT_EQ(ReadFile(Settings()), "");
}

// ---- the lock

TEST_F(HostCommands, AnEditIsRefusedWhileAnotherHasTheRootAndNamesIt) {
    MakeTree();
    const host::RootLock lock = host::RootLock::Take(Tree(), "serve", 0ms);
    const std::string holder = "tarvex serve (process " + std::to_string(getpid()) + ")";
    EXPECT_THAT(Fail(host::kTryLater, {"profile", "set", "me@example.org", "--timer", "5"}), HasSubstr(holder));
    EXPECT_THAT(Fail(host::kTryLater, {"run"}), HasSubstr(holder));
    EXPECT_EQ(Profile().timer, 10);
    EXPECT_EQ(DoJson({"profile", "list", "--json"}).size(), 1U);  // reading needs no lock
}

TEST_F(HostCommands, ALockEndsWithItsHolder) {
    MakeTree();
    std::optional<host::RootLock> lock = host::RootLock::Try(Tree(), "serve");
    EXPECT_FALSE(host::RootLock::Try(Tree(), "other").has_value());
    EXPECT_EQ(fs::status(Tree() + "/.tarvex.lock").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    lock.reset();
    Do({"profile", "set", "me@example.org", "--timer", "5"});
    EXPECT_EQ(Profile().timer, 5);
    WriteFile(Tree() + "/.tarvex.lock", "1 left-over\n");  // of one that was killed
    Do({"profile", "set", "me@example.org", "--timer", "6"});
}

TEST_F(HostCommands, EditsAtTheSameTimeWaitForOneAnother) {
    MakeTree();
    std::vector<std::unique_ptr<ChildProcess>> edits;
    for (int i = 0; i < 8; ++i) {
        edits.push_back(std::make_unique<ChildProcess>(
            Command({"forward", "add", "me@example.org", std::to_string(i) + "@example.net"}), Output::Pipe,
            Variables()));
    }
    for (const auto& edit : edits) {
        edit->Wait();
        EXPECT_EQ(edit->ExitCode(), host::kDone) << edit->Errors();
    }
    EXPECT_EQ(DoJson({"forward", "list", "--json"}).size(), 9U);
}

std::vector<std::string> ScratchFolders(const std::string& tree) {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(tree)) {
        if (entry.path().filename().string().starts_with(".tarvex-")) found.push_back(entry.path().filename());
    }
    std::ranges::sort(found);
    return found;
}

// A write beyond the limit would end a process that does nothing about it.
TEST_F(HostCommands, ALimitOnTheSizeOfFilesIsAFullDisk) {
    MakeTree();
    const auto limited = [this](const Words& words, Output output = Output::Pipe) {
        Words all = {"/bin/sh", "-c", "ulimit -c 0; ulimit -f 1; exec \"$@\"", "sh"};  // 512 or 1,024 bytes
        const Words command = Command(words);
        all.insert(all.end(), command.begin(), command.end());
        return std::make_unique<ChildProcess>(all, output, Variables());
    };
    const auto edit = limited({"profile", "set", "me@example.org", "--nickname", std::string(1100, 'x')});
    edit->Wait();
    EXPECT_EQ(edit->ExitCode(), host::kCannotWrite) << edit->Errors();
    EXPECT_THAT(edit->Errors(), StartsWith("tarvex: cannot write in "));
    EXPECT_EQ(Profile().nickname, "");
    EXPECT_THAT(ScratchFolders(Tree()), IsEmpty());

    Do({"forward", "add", "me@example.org", "pager@example.net"});
    WriteFile(Tree() + "/user0/from0/forwardto0/uidl.def", std::string(5000, 'x') + "\r\n");
    const auto run = limited({"run", "--now"});
    run->Wait();
    EXPECT_EQ(run->ExitCode(), host::kCannotWrite) << run->Errors();

    Do({"profile", "set", "me@example.org", "--lasttime", "never"});  // due
    const auto service = limited({"serve", "--every", "0.02"}, Output::Together);
    EXPECT_TRUE(service->WaitForOutput("user0/from0: left out, cannot write", 20s));
    service->Signal(SIGTERM);
    service->Wait();
    EXPECT_EQ(service->ExitCode(), host::kDone) << service->Errors();
}

TEST_F(HostCommands, WhatAKilledEditLeavesIsSweptByTheNextHolderOfTheLock) {
    MakeTree();
    fs::create_directory(Tree() + "/.tarvex-try-Killed");
    WriteFile(Tree() + "/.tarvex-try-Killed/popprofile.def.new", "[version]");

    Do({"profile", "show", "me@example.org"});  // a reading command leaves it alone: it may be in use
    {
        const host::RootLock lock = host::RootLock::Take(Tree(), "serve", 0ms);
        EXPECT_THAT(ScratchFolders(Tree()), IsEmpty());
        fs::create_directory(Tree() + "/.tarvex-try-inuse1");
        Fail(host::kTryLater, {"profile", "set", "me@example.org", "--timer", "5"});
        Fail(host::kTryLater, {"run"});
        EXPECT_THAT(ScratchFolders(Tree()), ElementsAre(".tarvex-try-inuse1"));
    }
    Do({"run", "--quiet"});
    EXPECT_THAT(ScratchFolders(Tree()), IsEmpty());
}

TEST_F(HostCommands, WhatMayBeSomebodyElsesIsNotSwept) {
    MakeTree();
    const std::vector<std::string> names = {".tarvex-backup", ".tarvex-try-1234567", ".tarvex-try-folder",
                                            ".tarvex-try-linked", ".tarvex-try-others"};
    for (const std::string& name : {names[0], names[1]}) {
        fs::create_directory(Tree() + '/' + name);
        WriteFile(Tree() + '/' + name + "/popprofile.def", "mine");
    }
    fs::create_directories(Tree() + '/' + names[2] + "/userset.def");
    fs::create_directory(home_ / "elsewhere");
    WriteFile(home_ / "elsewhere/userset.def", "mine");
    fs::create_directory_symlink(home_ / "elsewhere", Tree() + '/' + names[3]);
    fs::create_directory(Tree() + '/' + names[4]);
    WriteFile(Tree() + '/' + names[4] + "/notes", "mine");
    Do({"profile", "set", "me@example.org", "--timer", "5"});
    EXPECT_EQ(ScratchFolders(Tree()), names);
    EXPECT_EQ(ReadFile(home_ / "elsewhere/userset.def"), "mine");
}

// ---- passwords

TEST_F(HostCommands, APasswordIsAskedForAndNotShownOnTheTerminal) {
    MakeTree();
    ChildProcess dialogue(Command({"profile", "set", "me@example.org", "--password", "--timer", "7"}), Output::Dialogue,
                          Variables());
    ASSERT_TRUE(dialogue.WaitForOutput("Password: ", 20s)) << dialogue.Printed();
    dialogue.Type("top secret\n");
    dialogue.Wait();
    EXPECT_EQ(dialogue.ExitCode(), host::kDone);
    EXPECT_THAT(dialogue.Printed(),
                AllOf(HasSubstr("poppassword: stored"), Not(HasSubstr("top")), Not(HasSubstr("secret"))));
    EXPECT_EQ(Profile().poppassword, "top secret");
    EXPECT_EQ(Profile().timer, 7);
}

TEST_F(HostCommands, ASignalAtTheQuestionLeavesTheTerminalAsItWas) {
    MakeTree();
    ChildProcess dialogue(Command({"profile", "set", "me@example.org", "--password"}), Output::Dialogue, Variables());
    ASSERT_TRUE(dialogue.WaitForOutput("Password: ", 20s)) << dialogue.Printed();
    EXPECT_FALSE(dialogue.ShowsTyping());
    dialogue.Signal(SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!dialogue.ShowsTyping() && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(dialogue.ShowsTyping());
    dialogue.Wait();
    EXPECT_EQ(dialogue.ExitCode(), 128 + SIGTERM);
    EXPECT_EQ(Profile().poppassword, "secret");
}

TEST_F(HostCommands, ANewProfileAsksForItsPassword) {
    MakeTree();
    ChildProcess dialogue(
        Command({"profile", "add", "taro", "you@example.org", "--popserver", "p", "--popuser", "you", "--plain"}),
        Output::Dialogue, Variables());
    ASSERT_TRUE(dialogue.WaitForOutput("POP3 password: ", 20s)) << dialogue.Printed();
    dialogue.Type("secret2\n");
    dialogue.Wait();
    CPopProfileSetting setting;
    setting.Load(Tree() + "/user0/from1");
    EXPECT_EQ(setting.poppassword, "secret2");
    EXPECT_THAT(dialogue.Printed(), Not(HasSubstr("secret2")));
}

TEST_F(HostCommands, PasswordsComeFromInputAndFilesByTheLine) {
    MakeTree();
    Do({"profile", "set", "me@example.org", "--password-stdin", "--smtp-password-stdin"}, "first\nsecond\r\nthird");
    EXPECT_EQ(Profile().poppassword, "first");
    EXPECT_EQ(Profile().smtppassword, "second");
    WriteFile(home_ / "password", "from a file\nand more\n");
    Do({"profile", "set", "me@example.org", "--smtp-password-file", home_ / "password"});
    EXPECT_EQ(Profile().smtppassword, "from a file");
    Do({"profile", "set", "me@example.org", "--smtp-password-stdin"}, "\n");
    EXPECT_EQ(Profile().smtppassword, "");
    Do({"user", "set", "taro", "--password-stdin"}, "login");
    CUserSetting user;
    user.Load(Tree() + "/user0");
    EXPECT_TRUE(host::FitsPassword(user.password, "login"));

    EXPECT_THAT(Fail(host::kBadUsage, {"profile", "set", "me@example.org", "--password-stdin"}),
                HasSubstr("standard input"));
    EXPECT_THAT(Fail(host::kNotFound, {"profile", "set", "me@example.org", "--password-file", home_ / "none"}),
                HasSubstr("No such file"));
    EXPECT_THAT(Fail(host::kBadUsage, {"profile", "set", "me@example.org", "--password"}), HasSubstr("terminal"));
    Fail(host::kBadUsage,
         {"profile", "set", "me@example.org", "--password-stdin", "--password-file", home_ / "password"});
}

TEST_F(HostCommands, APasswordOnTheCommandLineIsRefusedAndNotRepeated) {
    MakeTree();
    for (const Words& words : {Words{"profile", "set", "me@example.org", "--password", "hunter2"},
                               {"profile", "set", "me@example.org", "--password=hunter2"},
                               {"profile", "set", "me@example.org", "--poppassword", "hunter2"},
                               {"profile", "set", "me@example.org", "poppassword=hunter2"},
                               {"profile", "set", "me@example.org", "--smtp-password", "hunter2"},
                               {"user", "add", "hana", "--password", "hunter2"},
                               {"profile", "set", "me@example.org", "--poppassword", "hunter2", "--password"}}) {
        EXPECT_THAT(Fail(host::kBadUsage, words), AllOf(HasSubstr("--password-stdin"), Not(HasSubstr("hunter2"))));
    }
}

TEST_F(HostCommands, NoListShowsAPassword) {
    MakeTree();
    Do({"user", "set", "taro", "--password-stdin"}, "secret");
    const std::string stored = EncodePassWord("secret");
    for (const Words& words : {Words{"user", "list"},
                               {"user", "show", "taro"},
                               {"profile", "list"},
                               {"profile", "show", "me@example.org"},
                               {"user", "list", "--json"},
                               {"user", "show", "taro", "--json"},
                               {"profile", "list", "--json"},
                               {"profile", "show", "me@example.org", "--json"}}) {
        EXPECT_THAT(Do(words), AllOf(Not(HasSubstr("secret")), Not(HasSubstr(stored))));
    }
    EXPECT_EQ(DoJson({"profile", "show", "me@example.org", "--json"})["poppassword"], "(set)");
}

// ---- numbers that make no sense, and output that fails

TEST_F(HostCommands, NumbersThatAreNoneAreRefused) {
    MakeTree();
    Fail(host::kBadUsage, {"log", "me@example.org", "-n", "-3"});
    for (const char* const every : {"nan", "inf", "0", "-1"}) Fail(host::kBadUsage, {"serve", "--every", every});
}

TEST_F(HostCommands, AnEditThatCannotBeToldIsAnErrorThatSaysThatItWasMade) {
    MakeTree();
    ChildProcess full(Command({"user", "add", "hanako"}), Output::Full, Variables());
    full.Wait();
    EXPECT_EQ(full.ExitCode(), host::kCannotWrite);
    EXPECT_EQ(full.Errors(), "tarvex: the change was made, but standard output cannot be written\n");
    EXPECT_EQ(DoJson({"user", "list", "--json"}).size(), 2U);
}

// ---- a tree without rules

TEST_F(HostCommands, InitAsksWhetherATreeThatIsInUseGetsRules) {
    MakeTree();
    fs::remove(Tree() + "/host.def");
    EXPECT_THAT(Do({"init"}), HasSubstr("`tarvex init --rules` adds them"));
    for (const bool wanted : {false, true}) {
        ChildProcess dialogue(Command({"init"}), Output::Dialogue, Variables());
        ASSERT_TRUE(dialogue.WaitForOutput("Add them? [y/N] ", 20s)) << dialogue.Printed();
        dialogue.Type(wanted ? "y\n" : "\n");
        dialogue.Wait();
        EXPECT_EQ(dialogue.ExitCode(), host::kDone);
        EXPECT_EQ(fs::exists(Tree() + "/host.def"), wanted) << dialogue.Printed();
    }
    EXPECT_EQ(Do({"init"}), "The data tree is " + Tree() + ".\nIt is remembered in " + Settings() + ".\n");
}

// ---- removing

TEST_F(HostCommands, RemovingAsksFirst) {
    MakeTree();
    EXPECT_THAT(Fail(host::kBadUsage, {"profile", "remove", "me@example.org"}), HasSubstr("--yes"));
    for (const char* const answer : {"\n", "n\n", "yesterday\n", "\x04"}) {
        ChildProcess dialogue(Command({"profile", "remove", "me@example.org"}), Output::Dialogue, Variables());
        ASSERT_TRUE(
            dialogue.WaitForOutput("Remove user0/from0 (me@example.org, with 1 forwarding address)? [y/N] ", 20s))
            << dialogue.Printed();
        dialogue.Type(answer);
        dialogue.Wait();
        EXPECT_THAT(dialogue.Printed(), HasSubstr("Nothing was removed."));
        EXPECT_TRUE(fs::exists(Tree() + "/user0/from0"));
    }
    {
        ChildProcess dialogue(Command({"forward", "remove", "phone"}), Output::Dialogue, Variables());
        ASSERT_TRUE(dialogue.WaitForOutput("[y/N] ", 20s));
        Do({"forward", "remove", "phone", "--yes"});
        Do({"forward", "add", "me@example.org", "precious@example.net", "--nickname", "phone"});
        dialogue.Type("y\n");
        dialogue.Wait();
        EXPECT_EQ(dialogue.ExitCode(), host::kNotFound);
        EXPECT_TRUE(fs::exists(Tree() + "/user0/from0/forwardto0/forwardaddress.def"));
    }
    ChildProcess dialogue(Command({"forward", "remove", "phone"}), Output::Dialogue, Variables());
    ASSERT_TRUE(dialogue.WaitForOutput("[y/N] ", 20s));
    dialogue.Type("y\n");
    dialogue.Wait();
    EXPECT_FALSE(fs::exists(Tree() + "/user0/from0/forwardto0"));
    Do({"profile", "remove", "me@example.org", "--yes"});
    EXPECT_FALSE(fs::exists(Tree() + "/user0/from0"));
    Do({"user", "remove", "taro", "-y"});
    EXPECT_EQ(DoJson({"user", "list", "--json"}).size(), 0U);
}

// ---- text and lists

TEST_F(HostCommands, TextIsUtf8OnTheTerminalAndShiftJisInTheTree) {
    MakeTree();
    Do({"profile", "set", "me@example.org", "--nickname", "仕事用"});
    EXPECT_THAT(ReadFile(Tree() + "/user0/from0/popprofile.def"), HasSubstr("\r\n\x8E\x64\x8E\x96\x97\x70\r\n"));
    EXPECT_THAT(Do({"profile", "list"}), HasSubstr("仕事用  "));
    EXPECT_EQ(DoJson({"profile", "list", "--json"})[0]["nickname"], "仕事用");
    Do({"forward", "set", "仕事用/phone", "--nickname", "電話"});
    EXPECT_EQ(DoJson({"forward", "show", "電話", "--json"})["address"], "phone@example.net");
    EXPECT_THAT(Fail(host::kBadData, {"profile", "set", "仕事用", "--nickname", "a\xF0\x9F\x98\x80"}),
                AllOf(HasSubstr("nickname"), HasSubstr("\"😀\" (U+1F600)")));
    EXPECT_THAT(Fail(host::kBadData, {"profile", "set", "仕事用", "--nickname", "\xFF"}), HasSubstr("0xFF"));
}

TEST_F(HostCommands, EveryKeyCanBeSetAndShown) {
    MakeTree();
    const auto try_all = [&]<class Record>(const std::string& kind, const std::string& name, const Record&) {
        for (const host::Key<Record>& key : host::Keys<Record>()) {
            if (key.type == host::KeyType::Password) continue;
            std::string word = "x";
            if (key.type == host::KeyType::Number)
                word = key.words.empty() ? std::to_string(key.highest) : key.words.back().word;
            if (key.type == host::KeyType::Mailbox || key.type == host::KeyType::Recipient)
                word = kind + "@example.com";
            if (key.type == host::KeyType::Moment) word = "2026-12-24 18:00";
            EXPECT_THAT(Do({kind, "set", name, "--" + std::string(key.name), word}), HasSubstr(key.name));
            EXPECT_THAT(Do({kind, "show", name}), HasSubstr(std::string(key.name) + ' '));
        }
    };
    try_all("user", "user0", CUserSetting());
    try_all("profile", "user0/from0", CPopProfileSetting());
    try_all("forward", "user0/from0/forwardto0", CForwardAddressSetting());
    EXPECT_EQ(DoJson({"profile", "show", "user0/from0", "--json"})["smtpport"], 65535);
    EXPECT_THAT(DoJson({"profile", "show", "user0/from0", "--json"})["lasttime"].get<std::string>(),
                StartsWith("2026-12-24T18:00:00"));
}

TEST_F(HostCommands, TheHelpExplainsEveryKey) {
    const std::string help = Do({"profile", "set", "--help"});
    for (const auto& key : host::Keys<CPopProfileSetting>()) {
        if (key.type == host::KeyType::Password) continue;
        EXPECT_THAT(help, HasSubstr("--" + std::string(key.name) + ' '));
    }
    EXPECT_THAT(help, Not(HasSubstr("\n\n\n")));
    const std::string in_one_line = std::regex_replace(help, std::regex("\\s+"), " ");
    EXPECT_THAT(in_one_line,
                AllOf(HasSubstr("(1 to 86400; default 30)"), HasSubstr("(plain, tls or starttls; default plain)"),
                      HasSubstr("--password-file FILE The same")));
}

TEST_F(HostCommands, EveryHelpFitsATerminal) {
    std::vector<Words> commands = {{}, {"init"}, {"run"}, {"demo"}, {"check"}, {"plan"}, {"status"}, {"log"}};
    for (const char* const kind : {"user", "profile", "forward"}) {
        commands.push_back({kind});
        for (const char* const verb : {"add", "list", "show", "set", "remove"}) commands.push_back({kind, verb});
    }
    for (const char* const verb : {"add", "list", "on", "off", "remove"}) commands.push_back({"schedule", verb});
    for (const char* const verb : {"show", "set"}) commands.push_back({"settings", verb});
    for (Words& words : commands) {
        words.push_back("--help");
        std::istringstream help(Do(words));
        for (std::string line; std::getline(help, line);) {
            const bool is_path = line.find(home_.String()) != std::string::npos;  // as long as the system likes it
            EXPECT_TRUE(is_path || line.size() <= 80) << line;
        }
    }
}

TEST_F(HostCommands, AScheduleIsAddedListedAndRemoved) {
    MakeTree();
    EXPECT_THAT(Do({"schedule", "add", "phone", "mon-fri", "9:00-17:30"}),
                HasSubstr("every Friday from 9:00 to 17:30"));
    Do({"schedule", "add", "phone", "2026-12-24 18:00 .. 2026-12-26 9:00"});
    const Json terms = DoJson({"schedule", "list", "phone", "--json"});
    ASSERT_EQ(terms.size(), 6U);
    EXPECT_EQ(terms[0]["term"], "mon 9:00-17:30");
    EXPECT_EQ(terms[5]["meaning"], "once, from 2026-12-24 18:00 to 2026-12-26 9:00");
    Do({"schedule", "remove", "phone", "6"});
    EXPECT_THAT(Do({"schedule", "list", "phone"}), AllOf(HasSubstr("5       fri 9:00-17:30"), Not(HasSubstr("2026"))));
    EXPECT_THAT(Do({"schedule", "off", "phone", "2"}), HasSubstr("(switched off) every Tuesday"));
    EXPECT_EQ(DoJson({"schedule", "list", "phone", "--json"})[1]["on"], false);
    Do({"schedule", "on", "phone", "all"});
    EXPECT_EQ(DoJson({"schedule", "list", "phone", "--json"})[1]["on"], true);
    Do({"schedule", "remove", "phone", "all"});
    EXPECT_EQ(DoJson({"schedule", "list", "phone", "--json"}), Json::array());
    Fail(host::kNotFound, {"schedule", "remove", "phone", "1"});
    Fail(host::kBadUsage, {"schedule", "add", "phone", "whenever"});
}

// Of everything that a folder holds: what is in it, and when that was last changed.
std::map<std::string, std::string> Everything(const fs::path& folder) {
    std::map<std::string, std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.path().string().ends_with("-shm")) continue;  // memory that readers of the history share
        struct stat status {};
        EXPECT_EQ(lstat(entry.path().c_str(), &status), 0);
        std::ostringstream text;
        text << status.st_ino << ' ' << status.st_mode << ' ' << status.st_mtim.tv_sec << '.' << status.st_mtim.tv_nsec;
        all[entry.path()] = text.str() + (entry.is_regular_file() ? '\n' + ReadFile(entry.path()) : "");
    }
    return all;
}

// Whatever stands in the files: a password in clear, keys that nobody knows, terms in an unusual form.
TEST_F(HostCommands, CommandsThatOnlyReadChangeNothing) {
    MailboxServer mailbox("me", "secret");
    SinkServer sink;
    mailbox.Add({"id-1", "Subject: new\r\n\r\nnew\r\n"});
    MakeTree();
    Do({"profile", "set", "me@example.org", "--popserver", "127.0.0.1", "--popport", std::to_string(mailbox.Port()),
        "--smtpserver", "127.0.0.1", "--smtpport", std::to_string(sink.Port()), "--timer", "always"});
    Do({"run", "--quiet"});
    const std::string other = Tree() + "/user0/from1";
    fs::create_directories(other + "/forwardto0");
    fs::create_directories(other + "/forwardto1");
    WriteFile(other + "/popprofile.def",
              "; mine\n[address]\nb@example.org\n[popserver]\n127.0.0.1\n[popport]\n" + std::to_string(mailbox.Port()) +
                  "\n[popuser]\nme\n[poppassword]\nsecret\n[smtppassword]\nanother1\n[unknown]\n1\n");
    WriteFile(other + "/forwardto0/forwardaddress.def", "[address]\nb@example.net");
    WriteFile(other + "/forwardto1/forwardaddress.def", "[address]\nodd@example.net");
    WriteFile(other + "/forwardto1/schedule.def", "[schedule]\nstatus=2\nmode=TERM_EVERY_SUN\nterm=1:2\n");
    WriteFile(Tree() + "/user0/userset.def", "[loginname]\ntaro\n[password]\nclear\n");
    fs::remove(Tree() + "/.tarvex.lock");
    const auto before = Everything(home_.Path());
    for (const Words& words : {Words{"settings", "show"},
                               {"user", "list"},
                               {"user", "show", "taro"},
                               {"profile", "list"},
                               {"profile", "show", "b@example.org"},
                               {"forward", "list"},
                               {"forward", "show", "b@example.net"},
                               {"schedule", "list", "odd@example.net"},
                               {"status"},
                               {"plan"},
                               {"check", "--no-dns"},
                               {"log", "me@example.org"}}) {
        for (const bool as_json : {false, true}) {
            Words all = words;
            if (as_json && words[0] == "log") continue;
            if (as_json) all.emplace_back("--json");
            ChildProcess command(Command(all), Output::Pipe, Variables());
            command.Wait();
            // The server refuses the password of this tree.
            const bool asks_servers = words[0] == "plan" || words[0] == "check";
            EXPECT_EQ(command.ExitCode(), asks_servers ? host::kUnavailable : host::kDone) << command.Errors();
            EXPECT_EQ(Everything(home_.Path()), before) << ::testing::PrintToString(all);
        }
    }
}

TEST_F(HostCommands, WrongCommandLinesSayWhereTheHelpIs) {
    MakeTree();
    for (const Words& words : {Words{"user"},
                               {"profile", "add", "taro"},
                               {"profile", "add", "taro", "a@b.c"},
                               {"profile", "set"},
                               {"profile", "set", "me@example.org", "--fly", "1"},
                               {"profile", "set", "me@example.org"},
                               {"settings", "set"},
                               {"schedule", "add", "phone"},
                               {"schedule", "remove", "phone", "1", "2"}}) {
        EXPECT_THAT(Fail(host::kBadUsage, words), HasSubstr("--help"));
    }
}

// ---- only new mail

TEST_F(HostCommands, ANewAddressCanBeSparedWhatIsInTheMailbox) {
    MailboxServer mailbox("me", "secret");
    SinkServer sink;
    mailbox.Add({"id-1", "Subject: old\r\n\r\nold\r\n"});
    mailbox.Add({"id-2", "Subject: older\r\n\r\nolder\r\n"});
    MakeTree();
    Do({"profile", "set", "me@example.org", "--popserver", "127.0.0.1", "--popport", std::to_string(mailbox.Port()),
        "--smtpserver", "127.0.0.1", "--smtpport", std::to_string(sink.Port()), "--timer", "always"});
    Do({"forward", "remove", "phone", "--yes"});
    EXPECT_THAT(Do({"forward", "add", "me@example.org", "new@example.net", "--new-mail-only"}),
                HasSubstr("2 in the mailbox"));
    EXPECT_EQ(ReadFile(Tree() + "/user0/from0/forwardto0/uidl.def"), "id-1\r\nid-2\r\n");
    Do({"run", "--quiet"});
    EXPECT_TRUE(sink.Delivered().empty());
    mailbox.Add({"id-3", "Subject: new\r\n\r\nnew\r\n"});
    Do({"run", "--quiet"});
    ASSERT_EQ(sink.Delivered().size(), 1U);
    EXPECT_THAT(sink.Delivered()[0].text, HasSubstr("Subject: new"));
}

TEST_F(HostCommands, OldMailCannotBeToldFromNewWithoutUniqueIds) {
    MailboxServer mailbox("me", "secret");
    mailbox.OfferUidl(false);
    mailbox.Add({"id-1", "Subject: old\r\n\r\nold\r\n"});
    MakeTree();
    Do({"profile", "set", "me@example.org", "--popserver", "127.0.0.1", "--popport", std::to_string(mailbox.Port())});
    EXPECT_THAT(Fail(host::kUnavailable, {"forward", "add", "me@example.org", "new@example.net", "--new-mail-only"}),
                HasSubstr("UIDL"));
    EXPECT_EQ(DoJson({"forward", "list", "--json"}).size(), 1U);
}

TEST_F(HostCommands, NoAddressIsAddedWhenTheMailboxCannotBeListed) {
    MakeTree();
    int port = 0;
    { port = MailboxServer("me", "secret").Port(); }
    Do({"profile", "set", "me@example.org", "--popserver", "127.0.0.1", "--popport", std::to_string(port)});
    EXPECT_THAT(Fail(host::kUnavailable, {"forward", "add", "me@example.org", "new@example.net", "--new-mail-only"}),
                AllOf(HasSubstr("127.0.0.1"), HasSubstr("nothing was added"), EndsWith("\n")));
    EXPECT_EQ(DoJson({"forward", "list", "--json"}).size(), 1U);
}

}  // namespace
}  // namespace tarvex::testing
