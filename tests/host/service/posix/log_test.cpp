// The service's log: entries of the journal with fields, lines of JSON, and what becomes of them where nobody takes
// them.

#include <fcntl.h>
#include <gmock/gmock.h>
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
#include <cstdlib>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/service/log/posix/journal.h"
#include "host/service/log/service_log.h"
#include "host/service/service.h"
#include "host/system/posix/descriptor.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using host::Descriptor;
using host::JournalEntry;
using host::LogFacts;
using host::LogFormat;
using host::LogLevel;
using host::LogMatter;
using host::ServiceLog;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using Json = nlohmann::json;

// A journal that a test reads.
class JournalServer {
public:
    JournalServer() : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::ranges::copy(Path(), address.sun_path);
        EXPECT_EQ(bind(socket_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        constexpr timeval kLong{20, 0};
        setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &kLong, sizeof kLong);
    }

    std::string Path() const { return folder_ / "journal"; }

    // The next entry, out of the datagram or out of the file that comes with it.
    std::string Next() const {
        std::vector<char> room(1 << 20);
        iovec piece{room.data(), room.size()};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
        msghdr message{};
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t count = recvmsg(socket_.Get(), &message, MSG_CMSG_CLOEXEC);
        if (count < 0) return "nothing came";
        const cmsghdr* const header = CMSG_FIRSTHDR(&message);
        if (!header) return {room.data(), static_cast<std::size_t>(count)};
        int number = -1;
        std::memcpy(&number, CMSG_DATA(header), sizeof number);
        const Descriptor file(number);
        EXPECT_EQ(fcntl(file.Get(), F_GET_SEALS), F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE);
        std::string bytes(static_cast<std::size_t>(lseek(file.Get(), 0, SEEK_END)), '\0');
        EXPECT_EQ(pread(file.Get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        return bytes;
    }

    // The next entry that says so.
    std::string NextWith(const std::string& words) const {
        std::string entry;
        do {
            entry = Next();
        } while (entry.find(words) == std::string::npos && entry != "nothing came");
        return entry;
    }

private:
    TempDir folder_;
    Descriptor socket_;
};

// What is written to standard error meanwhile, which is a file; JOURNAL_STREAM names it where that is wanted.
class StandardError {
public:
    explicit StandardError(bool is_journal) : saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
        const Descriptor file(open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        dup2(file.Get(), STDERR_FILENO);
        struct stat status {};
        fstat(STDERR_FILENO, &status);
        const std::string stream = std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
        if (is_journal) setenv("JOURNAL_STREAM", stream.c_str(), 1);
    }
    ~StandardError() {
        unsetenv("JOURNAL_STREAM");
        dup2(saved_.Get(), STDERR_FILENO);
    }
    StandardError(const StandardError&) = delete;
    StandardError& operator=(const StandardError&) = delete;

    std::string Text() const { return ReadFile(path_); }

private:
    TempDir folder_;
    std::string path_ = folder_ / "errors";
    Descriptor saved_;
};

const LogFacts kRunFailed{LogMatter::RunFailed, "user0/from0", "delivery failed",
                          {"a@b.c", "d@e.f"},   "root",        {"timer"}};

TEST(JournalEntry, TellsTheLengthOfAValueWithSeveralLines) {
    EXPECT_EQ(JournalEntry({{"A", "b"}, {"MESSAGE", "x\ny"}}),
              std::string("A=b\nMESSAGE\n\x03\0\0\0\0\0\0\0x\ny\n", 8 + 12 + 4));
}

TEST(ServiceLog, GivesTheJournalFieldsAndStandardErrorNothing) {
    const JournalServer journal;
    const StandardError errors(true);
    ServiceLog log(LogFormat::Automatic, journal.Path());
    log.Warn("it failed", kRunFailed);
    EXPECT_EQ(journal.Next(),
              "MESSAGE=it failed\nPRIORITY=4\nSYSLOG_IDENTIFIER=tarvex\nSYSLOG_PID=" + std::to_string(getpid()) +
                  "\nMESSAGE_ID=dba51d3afde7414bb652c1862a6f4088\nTARVEX_PROFILE=user0/from0\n"
                  "TARVEX_RESULT=delivery failed\nTARVEX_ADDRESS=a@b.c\nTARVEX_ADDRESS=d@e.f\n"
                  "TARVEX_USER=root\nTARVEX_KEY=timer\n");
    EXPECT_EQ(errors.Text(), "");
}

TEST(ServiceLog, HandsAnEntryThatIsTooLargeForADatagramOverAsAFile) {
    const JournalServer journal;
    const StandardError errors(true);
    ServiceLog log(LogFormat::Automatic, journal.Path());
    const std::string large(5'000'000, 'x');
    log.Say(large);
    EXPECT_THAT(journal.Next(), StartsWith("MESSAGE=" + large + "\nPRIORITY=6\n"));
    EXPECT_EQ(errors.Text(), "");
}

TEST(ServiceLog, FallsBackToLinesWithTheirLevelWhereTheJournalTakesNothing) {
    const StandardError errors(true);
    ServiceLog log(LogFormat::Automatic, "/nonexistent/journal");
    log.Warn("it failed", kRunFailed);
    log.Say(LogLevel::Debug, "nothing new");
    EXPECT_EQ(errors.Text(), "<4>it failed\n<7>nothing new\n");
}

TEST(Journal, ThatDoesNotReadKeepsOneEntryWaitingAndNotEach) {
    const JournalServer server;
    host::Journal journal(server.Path());
    int queued = 0;
    while (journal.Send({{"MESSAGE", "x"}})) ++queued;
    const auto begun = std::chrono::steady_clock::now();
    for (int i = 0; i < 50; ++i) EXPECT_FALSE(journal.Send({{"MESSAGE", "y"}}));
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 2s);
    for (; queued > 0; --queued) server.Next();
    EXPECT_TRUE(journal.Send({{"MESSAGE", "z"}}));
    EXPECT_EQ(server.Next(), "MESSAGE=z\n");
}

TEST(ServiceLog, IsPlainWhereStandardErrorIsNotTheJournals) {
    const JournalServer journal;
    const StandardError errors(false);
    ServiceLog(LogFormat::Automatic, journal.Path()).Warn("it failed", kRunFailed);
    EXPECT_THAT(errors.Text(), ContainsRegex("^[-0-9]+ [:0-9]+ it failed\n$"));
}

TEST(ServiceLog, WritesOneObjectALineAsJson) {
    const StandardError errors(false);
    ServiceLog log(LogFormat::JsonLines);
    log.Warn("it \"failed\"", kRunFailed);
    log.Say("stopped", {.matter = LogMatter::Service});
    std::istringstream lines(errors.Text());
    std::string line;
    std::getline(lines, line);
    const Json json = Json::parse(line);
    EXPECT_THAT(json["time"].get<std::string>(), ContainsRegex("^[-0-9]+T[:0-9]+[+-][0-9]+$"));
    EXPECT_EQ(json["level"], "warning");
    EXPECT_EQ(json["message"], "it \"failed\"");
    EXPECT_EQ(json["profile"], "user0/from0");
    EXPECT_EQ(json["result"], "delivery failed");
    EXPECT_EQ(json["address"], Json::parse(R"(["a@b.c", "d@e.f"])"));
    std::getline(lines, line);
    EXPECT_FALSE(Json::parse(line).contains("profile"));
    EXPECT_FALSE(std::getline(lines, line));
}

// ---- a whole service

// In a process of its own, with a journal of the test.
class JournalledService {
public:
    JournalledService(const std::string& root, const std::string& journal) : process_(fork()) {
        if (process_ != 0) return;
        const StandardError errors(true);
        int code = EXIT_FAILURE;
        try {
            code = host::Service(root, 20ms, "", LogFormat::Automatic, journal).Run();
        } catch (const std::exception&) {
        }
        _exit(code);
    }
    ~JournalledService() {
        kill(process_, SIGTERM);
        int status = -1;
        waitpid(process_, &status, 0);
        EXPECT_EQ(status, 0);
    }
    JournalledService(const JournalledService&) = delete;
    JournalledService& operator=(const JournalledService&) = delete;

private:
    const pid_t process_;
};

TEST(ServiceLog, OfAServiceSaysWhatARunDidAndWhoSetWhat) {
    const JournalServer journal;
    const Host host;
    CRootPath root;
    ASSERT_TRUE(root.SetRootPath(host.Root()));
    CPopProfile& profile = *root.CreateNewUser("user", "secret", 0)->CreateNewPopProfile("", "me@example.org");
    profile.setting.popserver = "127.0.0.1";
    profile.setting.popport = 1;
    profile.setting.timer = 600;
    profile.setting.lasttime = 1;
    profile.SaveSetting();
    const JournalledService service(host.Root(), journal.Path());
    EXPECT_THAT(journal.NextWith("serving"), HasSubstr("\nMESSAGE_ID=d0db19ba90c945eebf54a806dc926842\n"));
    const std::string quiet = journal.NextWith("run ended");  // nobody takes part
    EXPECT_THAT(quiet, HasSubstr("\nPRIORITY=7\n"));
    EXPECT_THAT(quiet, HasSubstr("\nTARVEX_PROFILE=user0/from0\nTARVEX_RESULT=no address took part\n"));

    host.Tell({"forward", "add", "user0/from0", "phone@example.net"});
    EXPECT_THAT(journal.NextWith("forward add"), HasSubstr("\nPRIORITY=5\n"));
    ChildProcess run = host.StartCommand({"run", "--now"});
    run.Wait();
    const std::string failed = journal.NextWith("run ended");
    EXPECT_THAT(failed, HasSubstr("\nPRIORITY=4\n"));
    EXPECT_THAT(failed, HasSubstr("\nTARVEX_RESULT=mailbox failed\n"));

    host.Tell({"profile", "set", "user0/from0", "--smtpuser", "her-name", "--timer", "20"});
    const std::string edit = journal.NextWith("profile set");
    EXPECT_THAT(edit, HasSubstr("\nMESSAGE_ID=02922ae1acff418380e825422c7bc7c7\nTARVEX_USER="));
    EXPECT_THAT(edit, HasSubstr("\nTARVEX_KEY=smtpuser\nTARVEX_KEY=timer\n"));
    EXPECT_THAT(edit, Not(HasSubstr("her-name")));
}

}  // namespace
}  // namespace tarvex::testing
