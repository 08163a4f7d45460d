// The service as a process: its ticks, its signals, what it tells its manager, and edits that are made through it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "host/service/posix/control_socket.h"
#include "host/service/service_connection.h"
#include "host/system/command_error.h"
#include "host/system/posix/descriptor.h"
#include "tests/host/edit_words.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using Clock = std::chrono::steady_clock;

namespace fs = std::filesystem;

constexpr auto kLong = 20s;
constexpr uid_t kNobody = 65534;
constexpr const char* kProfile = "user0/from0";
constexpr const char* kStarted = "user0/from0: run started";
constexpr const char* kServing = "serving ";
constexpr const char* kSocketName = ".tarvex.sock";

template <class Condition>
bool Eventually(Condition condition) {
    for (const auto deadline = Clock::now() + kLong; Clock::now() < deadline; std::this_thread::sleep_for(5ms)) {
        if (condition()) return true;
    }
    return condition();
}

int Count(const std::string& text, const std::string& what) {
    int count = 0;
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += what.size()) ++count;
    return count;
}

// A way to a folder that is short enough for the name of a socket in there, for any process of this user.
class ShortWay {
public:
    explicit ShortWay(const std::string& folder) : folder_(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}
    std::string operator/(const std::string& name) const {
        return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(folder_.Get()) + "/" + name;
    }

private:
    host::Descriptor folder_;
};

sockaddr_un AddressOf(const std::string& name) {
    sockaddr_un address{};
    if (name.size() >= sizeof address.sun_path) throw std::length_error(name);
    address.sun_family = AF_UNIX;
    std::ranges::copy(name, address.sun_path);
    return address;
}

// A tree with one profile, its two servers, and a service.
class ServiceTest : public ::testing::Test {
protected:
    std::string AddProfile(int timer = 0) {
        return host_.AddProfile(mailbox_.Port(), sink_.Port(),
                                [timer](CPopProfile& profile) { profile.setting.timer = timer; });
    }

    // It ran last long ago, so that it is due once.
    void AddDueProfile() {
        host_.AddProfile(mailbox_.Port(), sink_.Port(), [](CPopProfile& profile) {
            profile.setting.timer = 60;
            profile.setting.lasttime = 1;
        });
    }

    std::unique_ptr<ChildProcess> Serve(const std::vector<std::string>& variables = {}, const char* every = "0.02") {
        auto service = std::make_unique<ChildProcess>(
            std::vector<std::string>{TARVEX_HOST, "--root", host_.Root(), "serve", "--every", every},
            ChildProcess::Output::Together, variables);
        EXPECT_TRUE(service->WaitForOutput(kServing, kLong));
        return service;
    }

    static void Stop(ChildProcess& service, int signal = SIGTERM) {
        service.Signal(signal);
        EXPECT_TRUE(service.WaitFor(kLong));
        EXPECT_EQ(service.ExitCode(), 0) << service.Printed();
    }

    // The mailbox keeps silent about its messages until it is told to go on; how often it has done so.
    void Block() {
        mailbox_.SetFault([this](const std::string& command) {
            if (command == "UIDL" && blocking_) {
                ++blocked_;
                for (const auto end = Clock::now() + kLong; blocking_ && Clock::now() < end;)
                    std::this_thread::sleep_for(1ms);
            }
            return "";
        });
    }

    void WaitUntilBlocked() {
        ASSERT_TRUE(Eventually([this] { return blocked_ > 0; }));
    }

    // A raw connection to the service.
    host::Descriptor Connect() const {
        host::Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const ShortWay root(host_.Root());
        const sockaddr_un address = AddressOf(root / kSocketName);
        EXPECT_EQ(connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return client;
    }

    static void Send(const host::Descriptor& client, const std::string& bytes) {
        EXPECT_EQ(send(client.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    // All that comes until the service closes the connection.
    static std::string ReadAll(const host::Descriptor& client) {
        std::string text;
        std::array<char, 4096> piece;
        for (ssize_t count; (count = recv(client.Get(), piece.data(), piece.size(), 0)) > 0;) {
            text.append(piece.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

    // For another user; what lies in the tree stays closed to him.
    void OpenTheWayToTheTree() const {
        for (fs::path folder = host_.Root(); folder != folder.root_path() && folder != "/tmp";
             folder = folder.parent_path()) {
            fs::permissions(folder, fs::perms::others_exec, fs::perm_options::add);
        }
    }

    void GiveTheTreeTo(uid_t user) const {
        EXPECT_EQ(chown(host_.Root().c_str(), user, static_cast<gid_t>(-1)), 0);
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(host_.Root())) {
            EXPECT_EQ(lchown(entry.path().c_str(), user, static_cast<gid_t>(-1)), 0);
        }
    }

    std::string Socket() const { return host_.Root() + "/" + kSocketName; }

    std::string Setting(const std::string& key) const {
        CRootPath root;
        EXPECT_TRUE(root.SetRootPath(host_.Root()));
        const CPopProfileSetting& setting = root.users.at(0)->profiles.at(0)->setting;
        return key == "nickname" ? setting.nickname : std::to_string(setting.timer);
    }

    Host host_;
    std::atomic<bool> blocking_ = true;
    std::atomic<int> blocked_ = 0;
    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
};

using Serving = ServiceTest;

TEST_F(Serving, SaysAtItsStartAndAtSighupWhatLooksWrongInAFile) {
    const std::string file = AddProfile() + "/popprofile.def";
    WriteFile(file, ReadFile(file) + "[timerr]\r\n5\r\n");
    const std::filesystem::path profile = std::filesystem::path(file).parent_path();
    for (const char* const place : {"popprofile.def", ".", "..", "../..", "../../.."}) {
        std::filesystem::permissions(profile / place, std::filesystem::perms(0755));
    }
    const auto service = Serve({}, "60");
    EXPECT_TRUE(service->WaitForOutput("\"" + file + "\" can be read by every user", kLong));
    EXPECT_TRUE(service->WaitForOutput("has an unknown key: [timerr]", kLong));
    std::filesystem::permissions(profile / "../../..", std::filesystem::perms(0700));
    ASSERT_TRUE(service->WaitForOutput("run ended", kLong));
    WriteFile(file, ReadFile(file) + "[timeuot]\r\n5\r\n[popport]\r\n11O\r\n");
    service->Signal(SIGHUP);
    EXPECT_TRUE(service->WaitForOutput("\"" + file + "\" has an unknown key: [timeuot]", kLong));
    EXPECT_TRUE(service->WaitForOutput("\"" + file + "\" has no number for popport but \"11O\"", kLong));
    Stop(*service);
    const std::string said = service->Printed();
    EXPECT_EQ(said.find("can be read by"), said.rfind("can be read by")) << "a folder above keeps others out";
}

TEST_F(Serving, ChangesRulesAndRunsNoProfileOfAUserWhoIsOff) {
    AddProfile();
    mailbox_.Add(MailNumber(1));
    const std::string rules = host_.Root() + "/host.def";
    WriteFile(rules, "[version]\n0\n");
    host_.Tell({"user", "set", "user0", "--status", "off"});
    const auto service = Serve();
    EXPECT_THAT(host_.Tell({"rules", "set", "--runsize", "7"}), HasSubstr("runsize: \"64\" -> \"7\""));
    EXPECT_TRUE(service->WaitForOutput("rules set", kLong));
    EXPECT_THAT(ReadFile(rules), HasSubstr("[runsize]\r\n7\r\n"));
    EXPECT_THAT(host_.Tell({"run", "--now", kProfile}), HasSubstr("switched off with its user"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(0));
    host_.Tell({"user", "set", "user0", "--status", "on"});
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
    host_.Tell({"status"});  // a turn of the service, and a tick before it
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
    WaitUntilBlocked();
    ChildProcess second = host_.StartCommand({"run", "user1/from0", "--now"}, ChildProcess::Output::Together);
    EXPECT_TRUE(second.WaitForOutput("1 run to wait until others have ended", kLong));
    ChildProcess third = host_.StartCommand({"run", "user1/from0", "--now"});
    EXPECT_FALSE(third.WaitFor(100ms));
    ASSERT_TRUE(service->WaitForOutput(kStarted, kLong));
    EXPECT_EQ(Count(service->Printed(), "run started"), 1);
    blocking_ = false;
    for (ChildProcess* const command : {&first, &second, &third}) {
        ASSERT_TRUE(command->WaitFor(kLong));
        EXPECT_EQ(command->ExitCode(), 0);
    }
    EXPECT_THAT(second.Printed(), HasSubstr("nothing new"));
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
        host_.Tell(words);
        EXPECT_TRUE(command.WaitFor(kLong));
        const std::string end = goes_on ? "" : edit[0] == "set" ? "switched off" : "not there any more";
        EXPECT_THAT(command.Printed(), HasSubstr(end));
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

TEST_F(Serving, ASecondHostIsRefusedByTheNameOfTheFirst) {
    AddProfile();
    const auto service = Serve({}, "60");
    ChildProcess second = host_.StartCommand({"serve"});
    second.Wait();
    EXPECT_EQ(second.ExitCode(), host::kTryLater);
    EXPECT_THAT(second.Errors(), HasSubstr("is in use by tarvex serve (process "));
    Stop(*service);
}

TEST_F(Serving, ARootThatIsNotThereIsNoPlaceForAService) {
    ChildProcess service = host_.StartCommand({"serve"});
    service.Wait();
    EXPECT_EQ(service.ExitCode(), host::kNotFound);
}

TEST_F(Serving, TheTreeIsLoadedAgainAtSighup) {
    const std::string profile = AddProfile(600);
    const auto service = Serve();
    EXPECT_EQ(Count(service->Printed(), "run started"), 0);
    CPopProfileSetting setting;
    ASSERT_TRUE(setting.Load(profile));
    setting.timer = 0;
    ASSERT_TRUE(setting.Save(profile));
    service->Signal(SIGHUP);
    EXPECT_TRUE(service->WaitForOutput("loaded the tree again", kLong));
    EXPECT_TRUE(service->WaitForOutput(kStarted, kLong));
    Stop(*service);
}

TEST_F(Serving, ATreeThatHasGoneIsNotLoadedAgain) {
    AddProfile(600);
    const auto service = Serve();
    std::filesystem::rename(host_.Root(), host_.Root() + ".gone");
    service->Signal(SIGHUP);
    EXPECT_TRUE(service->WaitForOutput("cannot load the tree again: No such file", kLong));
    EXPECT_FALSE(std::filesystem::exists(host_.Root()));
    std::filesystem::rename(host_.Root() + ".gone", host_.Root());
    EXPECT_THAT(host_.Tell({"profile", "set", kProfile, "--nickname", "still"}), HasSubstr("still"));
    Stop(*service);
}

TEST_F(Serving, TheSocketOfANewServiceAtTheSamePathIsNotRemoved) {
    AddProfile(600);
    const auto old_service = Serve();
    std::filesystem::rename(host_.Root(), host_.Root() + ".gone");
    AddProfile(600);
    const auto service = Serve();
    Stop(*old_service);
    EXPECT_THAT(host_.Tell({"user", "set", "user0", "--loginname", "new"}), HasSubstr("new"));
    EXPECT_TRUE(service->WaitForOutput("user set user0", kLong));
    Stop(*service);
    EXPECT_FALSE(std::filesystem::exists(Socket()));
}

TEST_F(Serving, AJournalThatNobodyReadsGoesIntoNoOtherFile) {
    AddProfile(600);
    const std::string lock = host_.Root() + "/.tarvex.lock";
    ChildProcess service({"/bin/sh", "-c", "exec \"$@\" <&- 2>&-", "sh", TARVEX_HOST, "--root", host_.Root(), "serve"});
    ASSERT_TRUE(Eventually([&] { return fs::exists(Socket()); }));
    host_.Tell({"user", "set", "user0", "--loginname", "new"});
    const std::string holder = ReadFile(lock);
    EXPECT_THAT(holder, AllOf(HasSubstr(" serve "), Not(HasSubstr("user0"))));
    service.Signal(SIGTERM);
    EXPECT_TRUE(service.WaitFor(kLong));
    EXPECT_EQ(service.ExitCode(), 0);
}

// More is written than a terminal keeps unread.
TEST_F(Serving, ATerminalThatNobodyReadsKeepsNoRunWaiting) {
    AddProfile();
    ChildProcess service({TARVEX_HOST, "--root", host_.Root(), "serve", "--every", "0.01"},
                         ChildProcess::Output::Terminal);
    ASSERT_TRUE(service.WaitForOutput(kServing, kLong));
    EXPECT_TRUE(Eventually([this] { return mailbox_.Received("QUIT") > 400; })) << mailbox_.Received("QUIT");
    EXPECT_TRUE(service.WaitForOutput(" lines lost)", kLong));
    Stop(service);
}

TEST_F(Serving, SchedulesNameTheZoneInWhichTheServiceReadsThem) {
    AddProfile();
    const auto tell = [this](const std::vector<std::string>& words) {
        ChildProcess command = host_.StartCommand(words, ChildProcess::Output::Pipe, {"TZ=UTC"});
        command.Wait();
        return command.Printed();
    };
    const auto service = Serve({"TZ=Asia/Tokyo"});
    EXPECT_THAT(tell({"schedule", "add", kPhone, "daily 9:00-17:00"}),
                HasSubstr("\nTimes are in Asia/Tokyo (+0900).\n"));
    EXPECT_THAT(tell({"schedule", "list", kPhone}), HasSubstr("\nTimes are in Asia/Tokyo (+0900).\n"));
    Stop(*service);
    EXPECT_THAT(tell({"schedule", "list", kPhone}), HasSubstr("\nTimes are in UTC (+0000).\n"));
}

TEST_F(Serving, AReloadLeavesARunningCopyAlone) {
    mailbox_.Add(MailNumber(1));
    Block();
    AddProfile();
    const auto service = Serve();
    WaitUntilBlocked();
    service->Signal(SIGHUP);
    ASSERT_TRUE(service->WaitForOutput("loaded the tree again", kLong));
    blocking_ = false;
    EXPECT_TRUE(service->WaitForOutput("user0/from0: run ended, forwarded 1 message", kLong));
    Stop(*service);
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
}

TEST_F(Serving, StopsWithinSecondsFromAStalledRunWhoseStateIsSaved) {
    mailbox_.Add(MailNumber(1));
    mailbox_.Add(MailNumber(2));
    sink_.SetFault([this, count = 0](const std::string& command) mutable {
        if (command != "." || ++count != 2) return "";
        ++blocked_;
        return "stall";
    });
    const std::string profile = AddProfile();
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto service = Serve();
        WaitUntilBlocked();
        const auto start = Clock::now();
        Stop(*service, signal);
        EXPECT_LT(Clock::now() - start, 5s);
        EXPECT_THAT(service->Printed(), HasSubstr("user0/from0: run ended, failed: "));
        EXPECT_THAT(ReadFile(profile + "/forwardto0/uidl.def"), StartsWith("mail-1\r\n"));
        EXPECT_THAT(ReadFile(profile + "/profile.log"), HasSubstr("---- End Operation at "));
        if (signal == SIGTERM) {
            EXPECT_THAT(ReadFile(profile + "/forwardto0/uidl.def"), Not(HasSubstr("mail-2")));
            sink_.SetFault([this](const std::string& command) {
                if (command != ".") return "";
                ++blocked_;
                return "stall";
            });
            blocked_ = 0;
        }
    }
    EXPECT_FALSE(std::filesystem::exists(Socket()));
}

// ---- trees that cannot be relied on

using ServingWithCare = ServiceTest;

TEST_F(ServingWithCare, ARootThatHasGoneIsNotTakenForOneWithoutLists) {
    mailbox_.Add(MailNumber(1));
    Block();
    blocking_ = false;
    AddProfile();
    const auto service = Serve();
    ASSERT_TRUE(service->WaitForOutput("run ended, nothing new", kLong));
    blocking_ = true;
    WaitUntilBlocked();
    auto connection = host::ServiceConnection::Try(host_.Root());
    ASSERT_TRUE(connection);
    std::filesystem::rename(host_.Root(), host_.Root() + ".gone");
    ASSERT_TRUE(service->WaitForOutput("the tree that the service has loaded is not here any more", kLong));
    host::Reply reply;
    EXPECT_EQ(connection->Edit(EditOf({"user", "set", "user0", "loginname=other"}), reply, [](const auto&) {}),
              host::kCannotWrite);
    EXPECT_THAT(reply.error, HasSubstr("is restarted"));
    service->Signal(SIGHUP);
    EXPECT_TRUE(service->WaitForOutput("cannot load the tree again: ", kLong));
    const int runs = mailbox_.Received("QUIT") + 1;  // with the one that is under way
    blocking_ = false;
    const auto ran_again = [&] { return mailbox_.Received("QUIT") > runs; };
    for (const auto end = Clock::now() + 300ms; !ran_again() && Clock::now() < end;) std::this_thread::sleep_for(5ms);
    EXPECT_FALSE(ran_again());
    std::filesystem::rename(host_.Root() + ".gone", host_.Root());
    EXPECT_TRUE(service->WaitForOutput("the root is there again", kLong));
    EXPECT_TRUE(Eventually([&] { return mailbox_.Received("QUIT") > runs + 1; }));
    Stop(*service);
    EXPECT_EQ(Count(service->Printed(), "\": the tree that"), 1);
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
}

// A directory in the place of the file cannot be read by the superuser either.
TEST_F(ServingWithCare, AListThatCannotBeReadIsNotTakenForAnEmptyOne) {
    mailbox_.Add(MailNumber(1));
    const std::string profile = AddProfile();
    host_.AddProfile(mailbox_.Port(), sink_.Port());
    host_.Run();
    ASSERT_THAT(sink_.Delivered(), SizeIs(2));
    const std::string list = profile + "/forwardto0/uidl.def";
    std::filesystem::rename(list, list + ".aside");
    std::filesystem::create_directory(list);
    ChildProcess run = host_.StartCommand({"run", "--quiet"});
    run.Wait();
    EXPECT_EQ(run.ExitCode(), host::kCannotWrite);
    EXPECT_THAT(run.Errors(), AllOf(StartsWith("tarvex: user0/from0: cannot read \""), HasSubstr("uidl.def")));
    const std::string told = "user0/from0: left out, cannot read \"" + list;
    EXPECT_THAT(host_.Tell({"status"}, 1), HasSubstr(told));
    const auto service = Serve();
    ASSERT_TRUE(service->WaitForOutput("user1/from0: run ended, nothing new", kLong));
    ChildProcess asked = host_.StartCommand({"run", "--now", "--verbose"});
    asked.Wait();
    EXPECT_EQ(asked.ExitCode(), host::kCannotWrite);
    EXPECT_THAT(asked.Printed(), AllOf(HasSubstr("user1"), Not(HasSubstr("user0"))));
    EXPECT_THAT(asked.Errors(), StartsWith("tarvex: user0/from0: cannot read \""));
    EXPECT_THAT(host_.Tell({"status"}, 1), HasSubstr(told));
    EXPECT_THAT(host_.Tell({"status", "--json"}, 1), HasSubstr("\"trouble\": \"left out, cannot read "));
    std::filesystem::remove(list);
    std::filesystem::rename(list + ".aside", list);
    EXPECT_TRUE(service->WaitForOutput("user0/from0: run ended, nothing new", kLong));
    EXPECT_THAT(host_.Tell({"status"}), Not(HasSubstr(told)));
    Stop(*service);
    EXPECT_EQ(Count(service->Printed(), told), 1);
    EXPECT_THAT(service->Printed(), HasSubstr("user0/from0: is run again"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(2));
}

TEST_F(ServingWithCare, ASettingThatCouldNotBeReadIsReadBeforeTheProfileRuns) {
    const std::string profile = AddProfile();
    const std::string file = profile + "/popprofile.def";
    std::filesystem::rename(file, file + ".aside");
    std::filesystem::create_directory(file);
    const auto service = Serve();
    EXPECT_TRUE(service->WaitForOutput("user0/from0: left out, cannot read \"" + file, kLong));
    std::filesystem::remove(file);
    std::filesystem::rename(file + ".aside", file);
    EXPECT_TRUE(service->WaitForOutput("user0/from0: run ended, nothing new", kLong));
    Stop(*service);
    EXPECT_THAT(ReadFile(file), HasSubstr("me@example.org"));
}

TEST_F(ServingWithCare, AFolderThatCannotBeEnteredIsNotTakenForNone) {
    mailbox_.Add(MailNumber(1));
    const fs::path profile = AddProfile();
    if (geteuid() == 0) {  // and goes on as the tree's owner
        OpenTheWayToTheTree();
        GiveTheTreeTo(kNobody);
    }
    for (const fs::path& folder : {profile / "forwardto0", profile.parent_path()}) {
        fs::permissions(folder, fs::perms::none);
        const std::string printed = host_.Run(host::kCannotWrite);
        EXPECT_EQ(mailbox_.Received("QUIT"), 0);
        ChildProcess status = host_.StartCommand({"status"});
        status.Wait();
        EXPECT_THAT(status.Printed() + status.Errors(), HasSubstr("cannot read \"" + folder.string()));
        fs::permissions(folder, fs::perms::owner_all);
    }
    fs::permissions(profile / "forwardto0", fs::perms::none);
    const auto service = Serve();
    ASSERT_TRUE(service->WaitForOutput("user0/from0: left out, cannot read \"", kLong));
    fs::permissions(profile / "forwardto0", fs::perms::owner_all);
    EXPECT_TRUE(service->WaitForOutput("run ended, forwarded 1 message", kLong));
    Stop(*service);
}

TEST_F(ServingWithCare, NoEditPutsDefaultsInThePlaceOfASettingThatCouldNotBeRead) {
    const std::string file = AddProfile() + "/popprofile.def";
    std::filesystem::rename(file, file + ".aside");
    std::filesystem::create_directory(file);
    const auto service = Serve({}, "600");
    ASSERT_TRUE(service->WaitForOutput("user0/from0: left out", kLong));
    const std::vector<std::string> edit = {"profile", "set", "user0/from0", "--nickname", "office"};
    ChildProcess refused = host_.StartCommand(edit);
    refused.Wait();
    EXPECT_EQ(refused.ExitCode(), host::kCannotWrite);
    EXPECT_THAT(refused.Errors(), StartsWith("tarvex: cannot read \"" + file));
    std::filesystem::remove(file);
    std::filesystem::rename(file + ".aside", file);
    host_.Tell(edit);
    Stop(*service);
    EXPECT_THAT(ReadFile(file), AllOf(HasSubstr("office"), HasSubstr("me@example.org")));
}

// A directory in one step: the service removes an empty one.
void Obstruct(const std::string& path) {
    std::filesystem::create_directories(path + ".whole/full");
    EXPECT_TRUE(Eventually([&] {
        std::error_code error;
        std::filesystem::rename(path + ".whole", path, error);
        return !error;
    }));
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
    EXPECT_THAT(host_.Tell({"status"}, 1), HasSubstr("user0/from0: left out, cannot write \""));
    EXPECT_THAT(sink_.Delivered(), SizeIs(0));
    std::filesystem::remove_all(obstacle);
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
    EXPECT_THAT(host_.Tell({"status"}, 1), HasSubstr("could not be recorded"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
    std::filesystem::remove_all(obstacle);
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
    EXPECT_THAT(run.Errors(), HasSubstr("user0/from0: what its last run forwarded could not be recorded"));
    ChildProcess next = host_.StartCommand({"run"});
    next.Wait();
    EXPECT_EQ(next.ExitCode(), host::kCannotWrite);
    EXPECT_THAT(next.Errors(), HasSubstr("user0/from0: cannot write"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
}

// Without threads, which no limit keeps from the superuser.
TEST_F(ServingWithCare, ARunThatCouldNotBeginStandsInTheStatus) {
    AddProfile();
    if (geteuid() == 0) {  // and goes on as the tree's owner
        OpenTheWayToTheTree();
        GiveTheTreeTo(kNobody);
    }
    ChildProcess service({"/usr/bin/prlimit", "--nproc=1", TARVEX_HOST, "--root", host_.Root(), "serve"},
                         ChildProcess::Output::Together, {"ASAN_OPTIONS=detect_leaks=0"});  // which takes a thread
    ASSERT_TRUE(service.WaitForOutput("user0/from0: run ended, failed: it could not begin", kLong))
        << service.Printed();
    EXPECT_THAT(host_.Tell({"status"}, 1), HasSubstr("it could not begin"));
    Stop(service);
}

// ---- the service manager

class Manager {
public:
    // A name that begins with "@" is abstract.
    explicit Manager(const std::string& name) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = AddressOf(name);
        if (name.front() == '@') address.sun_path[0] = '\0';
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(bind(socket_.Get(), reinterpret_cast<const sockaddr*>(&address), length), 0);
        const timeval limit{20, 0};
        EXPECT_EQ(setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
    }

    std::string Hear() const {
        std::array<char, 512> text;
        const ssize_t size = recv(socket_.Get(), text.data(), text.size(), 0);
        return size < 0 ? "(nothing)" : std::string(text.data(), static_cast<std::size_t>(size));
    }

private:
    host::Descriptor socket_;
};

class ServiceManaged : public ServiceTest, public ::testing::WithParamInterface<bool> {
protected:
    std::string Name() const { return GetParam() ? "@tarvex-test-" + std::to_string(getpid()) : way_ / "notify"; }
    TempDir folder_;
    ShortWay way_{folder_.String()};
};

TEST_P(ServiceManaged, TellsWhenItIsReadyReloadsAndStops) {
    AddProfile(600);
    const Manager manager(Name());
    const auto service = Serve({"NOTIFY_SOCKET=" + Name()});
    EXPECT_EQ(manager.Hear(), "READY=1");
    service->Signal(SIGHUP);
    EXPECT_THAT(manager.Hear(), StartsWith("RELOADING=1\nMONOTONIC_USEC="));
    EXPECT_EQ(manager.Hear(), "READY=1");
    Stop(*service);
    EXPECT_EQ(manager.Hear(), "STOPPING=1");
}

TEST_P(ServiceManaged, TellsThatItLivesTwiceInTheTimeThatItIsGiven) {
    AddProfile(600);
    const Manager manager(Name());
    const auto start = Clock::now();
    const auto service = Serve({"NOTIFY_SOCKET=" + Name(), "WATCHDOG_USEC=400000"}, "60");
    EXPECT_EQ(manager.Hear(), "READY=1");
    for (int i = 0; i < 4; ++i) EXPECT_EQ(manager.Hear(), "WATCHDOG=1");
    EXPECT_GE(Clock::now() - start, 600ms);
    EXPECT_LT(Clock::now() - start, 10s);
    Stop(*service);
}

TEST_P(ServiceManaged, AWatchdogOfAnotherProcessIsNotFed) {
    AddProfile(600);
    const Manager manager(Name());
    const auto service = Serve({"NOTIFY_SOCKET=" + Name(), "WATCHDOG_USEC=2000", "WATCHDOG_PID=1"});
    EXPECT_EQ(manager.Hear(), "READY=1");
    service->Signal(SIGHUP);
    EXPECT_THAT(manager.Hear(), StartsWith("RELOADING=1"));
    Stop(*service);
}

INSTANTIATE_TEST_SUITE_P(Service, ServiceManaged, ::testing::Bool(),
                         [](const auto& kind) { return kind.param ? "AbstractSocket" : "SocketInAFolder"; });

// ---- edits

using ServedEdits = ServiceTest;

TEST_F(ServedEdits, AreMadeByTheServiceAndTakeEffectAtOnce) {
    AddProfile(600);
    const auto service = Serve();
    EXPECT_THAT(host_.Tell({"profile", "set", kProfile, "--timer", "0"}), HasSubstr("timer: \"600\""));
    EXPECT_TRUE(service->WaitForOutput("profile set user0/from0", kLong));
    EXPECT_TRUE(service->WaitForOutput(kStarted, kLong));
    Stop(*service);
}

TEST_F(ServedEdits, ThatFailSayWhyAndExitAsWithoutAService) {
    AddProfile(600);
    const auto service = Serve();
    ChildProcess command = host_.StartCommand({"profile", "set", "nobody", "--timer", "0"});
    command.Wait();
    EXPECT_EQ(command.ExitCode(), host::kNotFound);
    EXPECT_THAT(command.Errors(), HasSubstr("there is no profile \"nobody\""));
    Stop(*service);
}

TEST_F(ServedEdits, OfARunningProfileWaitForItsEndAndSurviveIt) {
    mailbox_.Add(MailNumber(1));
    Block();
    AddProfile();
    const auto service = Serve();
    WaitUntilBlocked();
    ChildProcess command = host_.StartCommand({"profile", "set", kProfile, "--nickname", "kept"});
    EXPECT_TRUE(service->WaitForOutput(kStarted, kLong));
    EXPECT_FALSE(command.WaitFor(300ms));
    blocking_ = false;
    ASSERT_TRUE(command.WaitFor(kLong));
    EXPECT_EQ(command.ExitCode(), 0);
    EXPECT_EQ(command.Errors(), "tarvex: waiting for the run of user0/from0 to end\n");
    ASSERT_TRUE(service->WaitForOutput("run ended, nothing new", kLong));  // of a run that began with the new name
    Stop(*service);
    EXPECT_EQ(Setting("nickname"), "kept");
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
}

TEST_F(ServedEdits, OfOtherProfilesDoNotWait) {
    Block();
    AddProfile();
    host_.AddProfile(1, 1, [](CPopProfile& profile) { profile.setting.timer = 600; });
    const auto service = Serve();
    WaitUntilBlocked();
    EXPECT_THAT(host_.Tell({"profile", "set", "user1/from0", "--nickname", "other"}), HasSubstr("other"));
    EXPECT_THAT(host_.Tell({"forward", "set", "user0/from0/forwardto0", "--nickname", "small"}), HasSubstr("small"));
    blocking_ = false;
    Stop(*service);
}

TEST_F(ServedEdits, AnAddressThatIsAddedDuringARunKeepsItsListOfIds) {
    mailbox_.Add(MailNumber(1));
    Block();
    const std::string profile = AddProfile();
    const auto service = Serve();
    WaitUntilBlocked();
    auto connection = host::ServiceConnection::Try(host_.Root());
    ASSERT_TRUE(connection);
    host::Reply reply;
    ASSERT_EQ(
        connection->Edit(EditOf({"forward", "add", kProfile, "address=new@example.net"}, {}, {"mail-1", "b\xE9te"}),
                         reply, [](const std::string&) {}),
        0)
        << reply.error;
    EXPECT_EQ(ReadFile(profile + "/forwardto1/uidl.def"), "mail-1\r\nb\xE9te\r\n");
    blocking_ = false;
    mailbox_.Add(MailNumber(2));
    ASSERT_TRUE(Eventually([this] { return sink_.Delivered().size() == 3; }));
    ASSERT_TRUE(Eventually([&] { return ReadFile(profile + "/forwardto1/uidl.def") == "mail-1\r\nmail-2\r\n"; }));
    Stop(*service);
    EXPECT_THAT(sink_.Delivered(), SizeIs(3));
}

TEST_F(ServedEdits, ThatWaitAreMadeWhenTheServiceStops) {
    Block();
    AddProfile();
    const auto service = Serve();
    WaitUntilBlocked();
    ChildProcess command = host_.StartCommand({"profile", "set", kProfile, "--nickname", "last"});
    EXPECT_FALSE(command.WaitFor(300ms));
    service->Signal(SIGTERM);
    ASSERT_TRUE(command.WaitFor(kLong));
    blocking_ = false;
    EXPECT_EQ(command.ExitCode(), 0) << command.Errors();
    EXPECT_TRUE(service->WaitFor(kLong));
    EXPECT_EQ(Setting("nickname"), "last");
}

TEST_F(ServedEdits, AreNotMadeForACommandThatHasGone) {
    Block();
    AddProfile();
    const auto service = Serve();
    WaitUntilBlocked();
    {
        ChildProcess command = host_.StartCommand({"profile", "set", kProfile, "--nickname", "unwanted"});
        EXPECT_FALSE(command.WaitFor(300ms));
    }
    blocking_ = false;
    ASSERT_TRUE(service->WaitForOutput("run ended", kLong));
    const std::size_t told = service->Printed().size();
    ASSERT_TRUE(Eventually([&] {
        service->WaitForOutput("never", 10ms);
        return service->Printed().find("run ended", told) != std::string::npos;
    })) << "the profile is not held for ever";
    Stop(*service);
    EXPECT_EQ(Setting("nickname"), "");
}

TEST_F(ServedEdits, AUserIsRemovedThoughOneOfHisProfilesAlwaysRuns) {
    AddProfile();
    host_.Tell({"profile", "add", "user0", "two@example.org", "--again", "--popserver", "127.0.0.1", "--popport",
                std::to_string(mailbox_.Port()), "--popuser", "user", "--timer", "0"});
    const auto service = Serve({}, "0.01");
    ASSERT_TRUE(service->WaitForOutput("user0/from1: run started", kLong));
    ChildProcess command = host_.StartCommand({"user", "remove", "user0", "--yes"});
    ASSERT_TRUE(command.WaitFor(kLong));
    EXPECT_EQ(command.ExitCode(), 0) << command.Errors();
    Stop(*service);
    EXPECT_FALSE(std::filesystem::exists(host_.Root() + "/user0"));
}

TEST_F(ServedEdits, ARootWithALongNameHasASocketToo) {
    AddProfile(600);
    const std::string deep = host_.Root() + "/" + std::string(100, 'x');
    std::filesystem::create_directory(deep);
    fs::permissions(deep, fs::perms::owner_all);  // whatever the mask
    ChildProcess service({TARVEX_HOST, "--root", deep, "serve"}, ChildProcess::Output::Together);
    ASSERT_TRUE(service.WaitForOutput(kServing, kLong));
    ChildProcess command({TARVEX_HOST, "--root", deep, "user", "add", "hanako"});
    ASSERT_TRUE(command.WaitFor(kLong));
    EXPECT_EQ(command.Printed(), "Added user user0 (hanako).\n");
    EXPECT_TRUE(service.WaitForOutput("user add", kLong));
    Stop(service);
}

// A thousand edits from four clients against a profile that runs all the time: whatever was acknowledged is on disk in
// the end, and no message is delivered twice or forgotten.
TEST_F(ServedEdits, NoneIsLostInAThousandRacesWithQuickRuns) {
    constexpr int kClients = 4;
    constexpr int kEdits = 250;  // of each
    const std::string profile = AddProfile();
    const auto service = Serve({}, "0.01");
    static constexpr std::array<const char*, kClients> kKeys = {"nickname", "popuser", "smtpuser", "logsize"};
    std::atomic<int> failures = 0;
    std::atomic<int> at_work = kClients + 1;
    const auto make = [&](const std::vector<std::string>& words) {
        auto connection = host::ServiceConnection::Try(host_.Root());
        host::Reply reply;
        if (connection && connection->Edit(EditOf(words), reply, [](const std::string&) {}) == 0) return;
        ++failures;
        ADD_FAILURE() << reply.error;
    };
    const auto edit = [&](int client) {
        for (int i = 1; i <= kEdits; ++i) {
            const std::string value = client == 1 ? "user" : client == 3 ? std::to_string(i) : "v" + std::to_string(i);
            make({"profile", "set", kProfile, std::string(kKeys[static_cast<std::size_t>(client)]) + '=' + value});
            CPopProfileSetting setting;
            if (client == 0 && (!setting.Load(profile) || setting.nickname != value)) ++failures;
            if (client == 2 && (!setting.Load(profile) || setting.smtpuser != value)) ++failures;
        }
        --at_work;
    };
    std::atomic<bool> raced = false;
    const auto come_and_go = [&] {
        for (int i = 1; i <= kEdits / 2 || (!raced && i <= 20 * kEdits); ++i) {  // edits are quick on some disks
            const std::string guest = "guest" + std::to_string(i) + "@example.net";
            make({"forward", "add", kProfile, "address=" + guest, "status=0"});
            make({"forward", "remove", guest});
        }
        make({"forward", "add", kProfile, "address=guest@example.net", "status=0"});
        --at_work;
    };
    std::vector<std::thread> clients;
    for (int client = 0; client < kClients; ++client) clients.emplace_back(edit, client);
    clients.emplace_back(come_and_go);
    int mails = 0;
    while (at_work > 0) {
        if (mails < 200) mailbox_.Add(MailNumber(++mails));
        if (mails % 20 == 0) service->Signal(SIGHUP);
        service->WaitForOutput("(never)", 10ms);
        raced = Count(service->Printed(), "run ended") > 100;
    }
    for (std::thread& client : clients) client.join();
    EXPECT_TRUE(Eventually([&] { return std::ssize(sink_.Delivered()) >= mails; }));
    Stop(*service);
    EXPECT_EQ(failures, 0);
    CPopProfileSetting setting;
    ASSERT_TRUE(setting.Load(profile));
    EXPECT_EQ(setting.nickname, "v250");
    EXPECT_EQ(setting.smtpuser, "v250");
    EXPECT_EQ(setting.logsize, kEdits);
    CPopProfile stored;
    stored.SetPath(CString(profile));
    ASSERT_EQ(stored.forward_addresses.size(), 2U);
    EXPECT_TRUE(std::ranges::any_of(
        stored.forward_addresses, [](const auto& forward) { return forward->setting.address == "guest@example.net"; }));
    EXPECT_EQ(std::ssize(sink_.Delivered()), mails);
    EXPECT_EQ(Count(ReadFile(profile + "/forwardto0/uidl.def"), "\r\n"), mails);
    EXPECT_GT(Count(service->Printed(), "run ended"), 100) << "the edits had something to race with";
}

TEST_F(ServedEdits, AServiceThatIsHaltedIsSpokenOfAndMakesNoEditOfACommandThatHasGone) {
    AddProfile(600);
    const auto service = Serve();
    service->Signal(SIGSTOP);
    ChildProcess command({TARVEX_HOST, "--root", host_.Root(), "user", "set", "user0", "--loginname", "unwanted"},
                         ChildProcess::Output::Together);
    EXPECT_TRUE(command.WaitForOutput("tarvex: the service does not answer yet; waiting for it", kLong));
    command.Kill();
    service->Signal(SIGCONT);
    EXPECT_THAT(host_.Tell({"user", "set", "user0", "--loginname", "wanted"}), HasSubstr("\"user\" -> \"wanted\""));
    Stop(*service);
    EXPECT_EQ(Count(service->Printed(), "user set user0"), 1);
}

TEST_F(ServedEdits, AreToldInOneShortLine) {
    AddProfile(600);
    const auto service = Serve();
    const std::string forged = "x\n\xE6\x97\xA5 user0/from0: run ended, failed: " + std::string(100, '!');
    for (const std::string& name : {forged, std::string(100, 'y') + "\xE6\x97\xA5"}) {
        ChildProcess command = host_.StartCommand({"user", "set", name, "--loginname", "z"});
        command.Wait();
        EXPECT_EQ(command.ExitCode(), host::kNotFound);
        ChildProcess run = host_.StartCommand({"run", name});
        run.Wait();
        EXPECT_EQ(run.ExitCode(), host::kNotFound);
    }
    EXPECT_TRUE(service->WaitForOutput("user set y", kLong));
    Stop(*service);
    EXPECT_EQ(Count(service->Printed(), "run ended"), 0);
    EXPECT_EQ(Count(service->Printed(), std::string(56, 'y')), 1) << "in the reason, which may be longer";
}

// ---- runs that a command asks for

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
    const std::string report = host_.Tell({"run", kProfile, "--now"});
    EXPECT_EQ(AsInTheLog(report), "== " + profile_ + ": forwarded 1 message" +
                                      Unix("\n" + ReadFile(profile_ + "/profile.log")).erase(0, 1));
    EXPECT_THAT(report, AllOf(HasSubstr("\nmail-1 received\n"), HasSubstr("* SMTP Process - success")));
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
    EXPECT_EQ(host_.Tell({"run", kProfile, "--now", "--quiet"}), "");
    EXPECT_EQ(mailbox_.Received("QUIT"), 2);
    EXPECT_THAT(host_.Tell({"run", "--now", "--verbose"}), StartsWith("== " + profile_ + ": "));
    EXPECT_THAT(host_.Tell({"run", kProfile}), AllOf(StartsWith("user0/from0 is not due before "), HasSubstr("--now")));
    EXPECT_EQ(host_.Tell({"run", "--now", "user1/from0"}), "user1/from0 is switched off (status 0).\n");
    EXPECT_EQ(host_.Tell({"run"}), "No profile was due.\n");
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
    EXPECT_THAT(host_.Tell({"run"}), HasSubstr("(its log is switched off)\n"));
    Stop(*service);
}

TEST_F(ServedRuns, OfWrongNamesAreRefusedAsWithoutAService) {
    AddTwoProfiles();
    const auto service = Serve({}, "60");
    ChildProcess ambiguous = host_.StartCommand({"run", "from0"});
    ambiguous.Wait();
    EXPECT_EQ(ambiguous.ExitCode(), host::kBadUsage);
    EXPECT_THAT(ambiguous.Errors(), AllOf(HasSubstr("user0/from0"), HasSubstr("user1/from0")));
    ChildProcess unknown = host_.StartCommand({"run", kProfile, "user2/from0", "--now"});
    unknown.Wait();
    EXPECT_EQ(unknown.ExitCode(), host::kNotFound);
    EXPECT_EQ(mailbox_.Received("QUIT"), 0);
    Stop(*service);
}

TEST_F(ServedRuns, ThatAreUnderWayAreWaitedForAndShownOnATerminal) {
    Block();
    AddTwoProfiles();
    const auto service = Serve({}, "60");
    ChildProcess first = host_.StartCommand({"run", kProfile, "--now"});
    WaitUntilBlocked();
    ChildProcess second =
        host_.StartCommand({"run", kProfile, "--now"}, ChildProcess::Output::Terminal, {"TERM=xterm"});
    EXPECT_TRUE(second.WaitForOutput("user0/from0  fetched 0 of 0, delivered 0  (", kLong)) << second.Printed();
    EXPECT_FALSE(first.WaitFor(1ms));
    blocking_ = false;
    for (ChildProcess* const command : {&first, &second}) {
        ASSERT_TRUE(command->WaitFor(kLong));
        EXPECT_EQ(command->ExitCode(), 0) << command->Errors();
    }
    EXPECT_THAT(first.Printed(), StartsWith("== " + profile_ + ": "));
    const std::string shown = Unix(second.Printed());
    EXPECT_EQ(shown.substr(shown.rfind('\x1b')), "\x1b[J" + first.Printed());
    EXPECT_EQ(mailbox_.Received("QUIT"), 1);
    Stop(*service);
}

TEST_F(ServedRuns, GoOnWithoutTheCommandThatAskedForThem) {
    mailbox_.Add(MailNumber(1));
    Block();
    AddTwoProfiles();
    const auto service = Serve({}, "60");
    ChildProcess command = host_.StartCommand({"run", "--now"});
    WaitUntilBlocked();
    command.Signal(SIGINT);
    command.Wait();
    EXPECT_EQ(command.ExitCode(), 128 + SIGINT);
    blocking_ = false;
    EXPECT_TRUE(service->WaitForOutput("user0/from0: run ended, forwarded 1 message", kLong));
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
    EXPECT_EQ(command.Errors(), "tarvex: the service was stopped before it had done this; run it again\n");
    EXPECT_EQ(command.Printed(), "");
}

TEST_F(ServedRuns, ComeAfterTheEditsThatWaitForTheSameRun) {
    Block();
    AddTwoProfiles();
    host_.Tell({"profile", "add", "user0", "two@example.org", "--again", "--popserver", "127.0.0.1", "--popport",
                std::to_string(mailbox_.Port()), "--popuser", "user", "--timer", "600"});
    const auto service = Serve({}, "60");
    ChildProcess first = host_.StartCommand({"run", kProfile, "--now"});
    WaitUntilBlocked();
    ChildProcess edit = host_.StartCommand({"user", "remove", "user0", "--yes"});  // wants neither profile to run
    EXPECT_FALSE(edit.WaitFor(300ms));
    ChildProcess second = host_.StartCommand({"run", "user0/from1", "--now"});
    EXPECT_FALSE(second.WaitFor(300ms));
    blocking_ = false;
    for (ChildProcess* const command : {&first, &edit, &second}) ASSERT_TRUE(command->WaitFor(kLong));
    EXPECT_EQ(edit.ExitCode(), 0);
    EXPECT_EQ(second.ExitCode(), host::kNotFound);
    EXPECT_THAT(second.Errors(), AllOf(HasSubstr("waiting for user0/from1 to be changed"), HasSubstr("no profile")));
    Stop(*service);
}

// ---- clients that mean no good

using ServiceClients = ServiceTest;

TEST_F(ServiceClients, TrustNoServiceOfAnotherUser) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can take another user's place";
    AddProfile(600);
    const host::Descriptor impostor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const ShortWay root(host_.Root());
    const sockaddr_un address = AddressOf(root / kSocketName);
    ASSERT_EQ(bind(impostor.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(seteuid(kNobody), 0);
    const bool listens = listen(impostor.Get(), 1) == 0;
    ASSERT_EQ(seteuid(0), 0);
    ASSERT_TRUE(listens);
    try {
        host::ServiceConnection::Try(host_.Root());
        FAIL();
    } catch (const host::CommandError& trouble) {
        EXPECT_EQ(trouble.ExitCode(), host::kNotAllowed);
        EXPECT_THAT(trouble.what(), HasSubstr("is another user's"));
    }
    EXPECT_THAT(host_.Tell({"status"}), HasSubstr(kProfile));
}

TEST_F(ServiceClients, TakeNoLockFileOfAnotherUser) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can take another user's place";
    AddProfile(600);
    const std::string lock = host_.Root() + "/.tarvex.lock";
    host_.Tell({"user", "set", "user0", "--loginname", "one"});
    ASSERT_EQ(chown(lock.c_str(), kNobody, static_cast<gid_t>(-1)), 0);
    ChildProcess command = host_.StartCommand({"user", "set", "user0", "--loginname", "two"});
    command.Wait();
    EXPECT_EQ(command.ExitCode(), host::kNotAllowed);
    EXPECT_THAT(command.Errors(), HasSubstr("the lock file is another user's"));
}

TEST_F(ServiceClients, AndServicesRefuseARootInWhichOthersMayWrite) {
    AddProfile(600);
    for (const fs::perms others : {fs::perms::group_write, fs::perms::others_write}) {
        fs::permissions(host_.Root(), others, fs::perm_options::add);
        for (const char* const word : {"serve", "run"}) {
            ChildProcess command = host_.StartCommand({word});
            command.Wait();
            EXPECT_EQ(command.ExitCode(), host::kBadSettings);
            EXPECT_THAT(command.Errors(), HasSubstr("may be changed by others than its owner; `chmod go-w` ends that"));
        }
        fs::permissions(host_.Root(), others, fs::perm_options::remove);
    }
    EXPECT_EQ(host_.Tell({"run"}), "No profile was due.\n");
}

// As a service of another make could.
TEST_F(ServiceClients, ShowNoControlCharactersOfTheService) {
    const host::Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    std::filesystem::create_directories(host_.Root());
    const ShortWay root(host_.Root());
    const sockaddr_un address = AddressOf(root / kSocketName);
    ASSERT_EQ(bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener.Get(), 1), 0);
    auto connection = host::ServiceConnection::Try(host_.Root());
    ASSERT_TRUE(connection);
    const host::Descriptor service(accept(listener.Get(), nullptr, nullptr));
    const auto send = [&](const std::string& text) {
        Send(service, std::string("\0\0\0", 3) + static_cast<char>(text.size()) + text);
    };
    send(R"({"note":"\u001b[31m"})");
    send(R"({"code":0,"printed":"\u001b[32m\nnext","error":"\u0007"})");
    host::Reply reply;
    std::string noted;
    EXPECT_EQ(connection->Edit(EditOf({"user", "add"}), reply, [&](const std::string& note) { noted = note; }), 0);
    EXPECT_EQ(noted, "\\x1b[31m");
    EXPECT_EQ(reply.printed, "\\x1b[32m\nnext");
    EXPECT_EQ(reply.error, "\\x07");
}

TEST_F(ServiceClients, MayNotBeStrangers) {
    EXPECT_TRUE(host::IsAllowedPeer(1000, 1000));
    EXPECT_TRUE(host::IsAllowedPeer(0, 1000));
    EXPECT_FALSE(host::IsAllowedPeer(1001, 1000));
    EXPECT_FALSE(host::IsAllowedPeer(1000, 0));
}

TEST_F(ServiceClients, OfAnotherUserAreRefusedEvenWhereTheSocketIsOpenToAll) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can take another user's place";
    AddProfile(600);
    const auto service = Serve();
    struct stat status {};
    ASSERT_EQ(stat(Socket().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0600u);
    fs::permissions(Socket(), fs::perms::all);
    OpenTheWayToTheTree();
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    const pid_t stranger = fork();
    if (stranger == 0) {
        if (chdir(host_.Root().c_str()) != 0) _exit(1);  // whose name may be too long for a socket's
        if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0) _exit(2);
        const host::Descriptor client(socket(AF_UNIX, SOCK_STREAM, 0));
        const sockaddr_un address = AddressOf(kSocketName);
        if (connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) _exit(3);
        const std::string answer = ReadAll(client);
        _exit(write(pipe[1], answer.data(), answer.size()) < 0 ? 4 : 0);
    }
    close(pipe[1]);
    std::string answer(1000, '\0');
    const ssize_t size = read(pipe[0], answer.data(), answer.size());
    close(pipe[0]);
    int code = 0;
    ASSERT_EQ(waitpid(stranger, &code, 0), stranger);
    ASSERT_EQ(code, 0);
    ASSERT_GT(size, 0);
    EXPECT_THAT(answer, AllOf(HasSubstr("\"code\":77"), HasSubstr("only the owner may do this")));
    Stop(*service);
}

TEST_F(ServiceClients, WhoSayNothingOrHalfOfItDoNotStallTheService) {
    AddProfile();
    const auto service = Serve();
    std::vector<host::Descriptor> silent;
    for (int i = 0; i < 30; ++i) {
        silent.push_back(Connect());
        if (i % 2 == 0) Send(silent.back(), std::string("\0\0\1\0{\"edit\"", 11));
    }
    const int runs = mailbox_.Received("QUIT");
    EXPECT_THAT(host_.Tell({"user", "set", "user0", "--loginname", "renamed"}), HasSubstr("renamed"));
    EXPECT_TRUE(Eventually([&] { return mailbox_.Received("QUIT") > runs + 2; }));
    Stop(*service);
}

TEST_F(ServiceClients, MayNotSendWhatIsTooLargeOrNoRequest) {
    AddProfile(600);
    const auto service = Serve();
    const auto ask = [this](const std::string& bytes) {
        const host::Descriptor client = Connect();
        Send(client, bytes);
        return ReadAll(client);
    };
    const auto framed = [](const std::string& text) {
        return std::string("\0\0", 2) + static_cast<char>(text.size() >> 8) + static_cast<char>(text.size() & 0xFF) +
               text;
    };
    EXPECT_THAT(ask("\x7F\xFF\xFF\xFFmore"), HasSubstr("too large"));
    const auto edit = [](const std::string& kind, const std::string& verb, const std::string& rest) {
        return R"({"edit":{"name":"a","values":{},"secrets":{},"uidls":[],"terms":"","expected":"","expected_held":"","kind":")" +
               kind + R"(","verb":")" + verb + "\"," + rest + "}}";
    };
    const std::string all_terms = R"("term_number":null)";
    for (const std::string& text :
         {std::string("{"), std::string("[]"), std::string(R"({"edit":{}})"), edit("planet", "set", all_terms),
          edit("user", "paint", all_terms), edit("user", "set", R"("term":null)"),
          edit("user", "set", R"("term_number":"1")"), edit("user", "set", all_terms + R"(,"name":1)"),
          edit("user", "set", all_terms + R"(,"values":{"a":1})"),
          edit("user", "set", all_terms + ",\"name\":\"\xE3\x81\x82\""), std::string(R"({"run":{}})"),
          std::string(R"({"run":{"names":[],"now":2}})"), std::string(R"({"run":{"names":{"a":1},"now":true}})"),
          std::string(60000, '[')}) {
        EXPECT_THAT(ask(framed(text)), HasSubstr("cannot be read")) << text.substr(0, 200);
    }
    EXPECT_THAT(ask(framed(edit("user", "on", all_terms))), HasSubstr("\"code\":66"));
    EXPECT_EQ(ask(framed("{\"runs\":true}") + "more"), "");
    EXPECT_THAT(ask(framed("{\"runs\":true}")), HasSubstr("\"runs\":[]"));
    Stop(*service);
}

TEST_F(ServiceClients, HearHowFarTheRunsAre) {
    mailbox_.Add(MailNumber(1));
    sink_.SetFault([this](const std::string& command) {
        if (command != ".") return "";
        ++blocked_;
        return "stall";
    });
    AddProfile();
    const auto service = Serve();
    WaitUntilBlocked();
    auto connection = host::ServiceConnection::Try(host_.Root());
    ASSERT_TRUE(connection);
    const std::vector<host::RunNow> runs = connection->Report().runs;
    ASSERT_THAT(runs, SizeIs(1));
    EXPECT_EQ(runs[0].profile, kProfile);
    EXPECT_EQ(runs[0].messages_to_fetch, 1);
    EXPECT_EQ(runs[0].messages_fetched, 1);
    EXPECT_EQ(runs[0].messages_delivered, 0);
    EXPECT_GT(runs[0].bytes_received, 0);
    EXPECT_THAT(host_.Tell({"status"}), HasSubstr("running: fetched 1 of 1, delivered 0"));
    EXPECT_THAT(host_.Tell({"status", "--json"}), HasSubstr("\"messages_fetched\": 1"));
    Stop(*service);
}

}  // namespace
}  // namespace tarvex::testing
