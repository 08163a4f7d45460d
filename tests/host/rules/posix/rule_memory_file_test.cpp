// The memory's files: who may read them, what a killed process leaves, and where there is no room or no permission.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/memory/memory.h"
#include "testing/temp_dir.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr CTime kNow = 1'800'000'000;
const std::vector<CString> kAddresses = {"a@x", "b@x"};

class MemoryFile : public ::testing::Test {
protected:
    MemoryFile() { fs::create_directories(root_ / "user0/from0"); }

    CString Profile() const { return root_.String() + "\\user0\\from0"; }

    // How a process of its own ended that did this.
    static int StatusAfter(const std::function<bool()>& body) {
        const pid_t child = fork();
        if (child == 0) _exit(body() ? EXIT_SUCCESS : EXIT_FAILURE);
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return status;
    }

    const testing::TempDir root_;
};

void Fail(const std::string& sentence) { ADD_FAILURE() << sentence; }

TEST_F(MemoryFile, AreTheirOwnersAlone) {
    const mode_t old_mask = umask(0);
    RuleMemory memory(root_.String(), Fail);
    memory.Of(Profile()).RecordSent(kAddresses, memory.DigestOf("1"), kNow);
    umask(old_mask);
    int files = 0;
    for (const auto& file : fs::directory_iterator(root_ / ".tarvex")) {
        EXPECT_EQ(file.status().permissions(), fs::perms::owner_read | fs::perms::owner_write) << file.path();
        ++files;
    }
    EXPECT_EQ(files, 4);  // sent.db, sent.db-wal, sent.db-shm, sent.recent
}

TEST_F(MemoryFile, OfAKilledProcessHoldEveryCopyThatWasRecorded) {
    for (int copies : {1, 10, 1500}) {
        const int status = StatusAfter([&] {
            RuleMemory memory(root_.String(), Fail);
            ProfileMemory profile = memory.Of(Profile());
            for (int i = 0; i < copies; ++i) {
                profile.RecordSent(kAddresses, memory.DigestOf(std::to_string(i)), kNow);
            }
            profile.Park("a@x", "550", kNow);
            profile.RecordSent(kAddresses, memory.DigestOf("last"), kNow);
            return raise(SIGKILL) == 0;
        });
        ASSERT_TRUE(WIFSIGNALED(status));
        RuleMemory memory(root_.String(), Fail);
        ProfileMemory profile = memory.Of(Profile());
        for (int i = 0; i < copies; ++i) {
            EXPECT_TRUE(profile.WasSent("a@x", memory.DigestOf(std::to_string(i)), kNow)) << i;
        }
        EXPECT_TRUE(profile.WasSent("b@x", memory.DigestOf("last"), kNow));
        EXPECT_FALSE(profile.WasSent("a@x", memory.DigestOf(std::to_string(copies)), kNow));
        EXPECT_TRUE(profile.IsParked("a@x"));
        for (const CString& address : kAddresses) profile.Forget(address, kNow);
        profile.Unpark("a@x");
    }
}

TEST_F(MemoryFile, WithoutRoomOnTheDiskNothingIsForgottenAndItIsSaidOnce) {
    const int status = StatusAfter([this] {
        std::vector<std::string> told;
        const auto tell = [&](const std::string& sentence) { told.push_back(sentence); };
        RuleMemory memory(root_.String(), tell, 0ms);
        ProfileMemory profile = memory.Of(Profile());
        profile.RecordSent(kAddresses, memory.DigestOf("before"), kNow);
        memory.Save(kNow);
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit no_room{1, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &no_room);
        for (int i = 0; i < 100; ++i) profile.RecordSent(kAddresses, memory.DigestOf(std::to_string(i)), kNow);
        profile.Park("a@x", "550", kNow);
        profile.Forget("b@x", kNow);
        const bool known = !profile.WasSent("b@x", memory.DigestOf("before"), kNow) &&
                           profile.WasSent("a@x", memory.DigestOf("7"), kNow) &&
                           profile.WasSent("a@x", memory.DigestOf("before"), kNow) && profile.IsParked("a@x");
        const std::size_t told_then = told.size();
        setrlimit(RLIMIT_FSIZE, &limit);
        memory.Save(kNow);
        return known && told_then == 1 && told.size() == 2;
    });
    EXPECT_EQ(status, 0);
    RuleMemory memory(root_.String(), Fail);
    EXPECT_TRUE(memory.Of(Profile()).WasSent("a@x", memory.DigestOf("99"), kNow));
    EXPECT_TRUE(memory.Of(Profile()).IsParked("a@x"));
}

TEST_F(MemoryFile, InAFolderThatMayNotBeWrittenIsNotKnown) {
    {
        RuleMemory memory(root_.String(), Fail);
        memory.Of(Profile()).RecordSent(kAddresses, memory.DigestOf("1"), kNow);
    }
    for (const std::string part : {"", "/.tarvex"}) {
        fs::permissions(root_.String() + part, fs::perms::owner_read | fs::perms::owner_exec | fs::perms::others_exec);
    }
    const int status = StatusAfter([this] {
        if (geteuid() == 0 && setuid(65534) != 0) return false;
        int told = 0;
        RuleMemory memory(
            root_.String(), [&](const std::string&) { ++told; }, 0ms);
        ProfileMemory profile = memory.Of(Profile());
        const MailDigest mail = memory.DigestOf("1");
        const bool known_before = profile.WasSent("a@x", mail, kNow);
        profile.RecordSent(kAddresses, mail, kNow);
        return !known_before && profile.WasSent("a@x", mail, kNow) && told == 1;
    });
    for (const std::string part : {"", "/.tarvex"}) fs::permissions(root_.String() + part, fs::perms::owner_all);
    EXPECT_EQ(status, 0);
}

TEST_F(MemoryFile, APipeInThePlaceOfTheJournalKeepsNobodyWaitingAndLosesNothing) {
    fs::create_directories(root_ / ".tarvex");
    ASSERT_EQ(mkfifo((root_ / ".tarvex/sent.recent").c_str(), 0600), 0);
    const int status = StatusAfter([this] {
        RuleMemory memory(root_.String(), Fail);
        memory.Of(Profile()).RecordSent(kAddresses, memory.DigestOf("1"), kNow);
        return raise(SIGKILL) == 0;
    });
    ASSERT_TRUE(WIFSIGNALED(status));
    RuleMemory memory(root_.String(), Fail);
    EXPECT_TRUE(memory.Of(Profile()).WasSent("a@x", memory.DigestOf("1"), kNow));
}

}  // namespace
}  // namespace tarvex::host
