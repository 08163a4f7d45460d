// The service as a process on POSIX: its signals, what it tells its manager, trees that cannot be relied on, and who
// may connect.

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
#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "host/service/posix/control_socket.h"
#include "host/service/service_connection.h"
#include "host/system/command_error.h"
#include "host/system/posix/descriptor.h"
#include "tests/host/edit_words.h"
#include "tests/host/service/served_tree.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;
constexpr const char* kSocketName = ".tarvex.sock";

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

class PosixService : public ServiceTest {
protected:
    template <class Process>
    static void Stop(Process& service, int signal = SIGTERM) {
        service.Signal(signal);
        EXPECT_TRUE(service.WaitFor(kLong));
        EXPECT_EQ(service.ExitCode(), 0) << service.Printed();
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
};

using PosixServing = PosixService;

TEST_F(PosixServing, SaysAtItsStartAndAtSighupWhatLooksWrongInAFile) {
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

TEST_F(PosixServing, TheTreeIsLoadedAgainAtSighup) {
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

TEST_F(PosixServing, ATreeThatHasGoneIsNotLoadedAgain) {
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

TEST_F(PosixServing, TheSocketOfANewServiceAtTheSamePathIsNotRemoved) {
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

TEST_F(PosixServing, AJournalThatNobodyReadsGoesIntoNoOtherFile) {
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
TEST_F(PosixServing, ATerminalThatNobodyReadsKeepsNoRunWaiting) {
    AddProfile();
    ChildProcess service({TARVEX_HOST, "--root", host_.Root(), "serve", "--every", "0.01"},
                         ChildProcess::Output::Terminal);
    ASSERT_TRUE(service.WaitForOutput(kServing, kLong));
    EXPECT_TRUE(Eventually([this] { return mailbox_.Received("QUIT") > 400; })) << mailbox_.Received("QUIT");
    EXPECT_TRUE(service.WaitForOutput(" lines lost)", kLong));
    Stop(service);
}

TEST_F(PosixServing, SchedulesNameTheZoneInWhichTheServiceReadsThem) {
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

TEST_F(PosixServing, AReloadLeavesARunningCopyAlone) {
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

// ---- trees that cannot be relied on

using PosixServingWithCare = PosixService;

TEST_F(PosixServingWithCare, ARootThatHasGoneIsNotTakenForOneWithoutLists) {
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

TEST_F(PosixServingWithCare, AFolderThatCannotBeEnteredIsNotTakenForNone) {
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

// Without threads, which no limit keeps from the superuser.
TEST_F(PosixServingWithCare, ARunThatCouldNotBeginStandsInTheStatus) {
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

class ServiceManaged : public PosixService, public ::testing::WithParamInterface<bool> {
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

using PosixServedEdits = PosixService;

TEST_F(PosixServedEdits, ARootWithALongNameHasASocketToo) {
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

TEST_F(PosixServedEdits, AServiceThatIsHaltedIsSpokenOfAndMakesNoEditOfACommandThatHasGone) {
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

// ---- runs that a command asks for

class PosixServedRuns : public PosixService {
protected:
    // Two profiles that will not be due for long, the second one switched off; and a service.
    void AddTwoProfiles() {
        profile_ = AddProfile(600);
        host_.AddProfile(1, 1, [](CPopProfile& profile) { profile.setting.status = 0; });
    }

    std::string profile_;
};

TEST_F(PosixServedRuns, ThatAreUnderWayAreWaitedForAndShownOnATerminal) {
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

TEST_F(PosixServedRuns, GoOnWithoutTheCommandThatAskedForThem) {
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

// ---- clients that mean no good

using PosixServiceClients = PosixService;

TEST_F(PosixServiceClients, TrustNoServiceOfAnotherUser) {
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

TEST_F(PosixServiceClients, TakeNoLockFileOfAnotherUser) {
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

TEST_F(PosixServiceClients, AndServicesRefuseARootInWhichOthersMayWrite) {
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
TEST_F(PosixServiceClients, ShowNoControlCharactersOfTheService) {
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

TEST_F(PosixServiceClients, MayNotBeStrangers) {
    EXPECT_TRUE(host::IsAllowedPeer(1000, 1000));
    EXPECT_TRUE(host::IsAllowedPeer(0, 1000));
    EXPECT_FALSE(host::IsAllowedPeer(1001, 1000));
    EXPECT_FALSE(host::IsAllowedPeer(1000, 0));
}

TEST_F(PosixServiceClients, OfAnotherUserAreRefusedEvenWhereTheSocketIsOpenToAll) {
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

}  // namespace
}  // namespace tarvex::testing
