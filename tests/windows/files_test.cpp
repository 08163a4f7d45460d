// Files and directories as the system has them: letter case does not count, files can be held by others, and a name is
// in the system's code page.

#include "platform/os/files.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "testing/temp_dir.h"
#include "tests/file_tools.h"

namespace tarvex {

namespace {

using namespace std::chrono_literals;
using testing::Enumerated;
using testing::Lines;
using testing::Names;
using testing::ReadFile;
using testing::TempDir;
using testing::Write;
using testing::WriteFile;

// Somebody else's handle of a file.
class Holder {
public:
    Holder(const std::string& path, DWORD sharing)
        : handle_(CreateFileA(path.c_str(), GENERIC_READ, sharing, nullptr, OPEN_EXISTING, 0, nullptr)) {
        EXPECT_NE(handle_, INVALID_HANDLE_VALUE);
    }
    ~Holder() { CloseHandle(handle_); }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

private:
    HANDLE handle_;
};

// Does the work while somebody holds the file, who lets it go a moment after the work has begun.
bool WhileHeldForAMoment(const std::string& path, const std::function<bool()>& work) {
    auto holder = std::make_unique<Holder>(path, 0);
    const std::jthread release([&holder] {
        std::this_thread::sleep_for(100ms);  // what a virus scanner takes
        holder.reset();
    });
    return work();
}

TEST(Files, BackslashAndSlashSeparateAndLetterCaseDoesNotCount) {
    const TempDir dir;
    ASSERT_TRUE(CreateOneDirectory(dir.String() + "\\user0"));
    ASSERT_TRUE(CreateOneDirectory(dir.String() + "/user0/from0"));
    EXPECT_TRUE(PathExists(dir.String() + "\\USER0\\From0"));
    EXPECT_TRUE(PathExists(dir.String() + "\\user0/from0\\\\"));
    EXPECT_FALSE(PathExists(dir.String() + "\\user1"));
    EXPECT_FALSE(PathExists(""));
}

TEST(Files, ADirectoryIsMadeOnce) {
    const TempDir dir;
    WriteFile(dir / "file", "");
    EXPECT_TRUE(CreateOneDirectory(dir / "user0"));
    EXPECT_FALSE(CreateOneDirectory(dir / "user0"));
    EXPECT_FALSE(CreateOneDirectory(dir.String() + "\\user1\\from0"));
    EXPECT_FALSE(CreateOneDirectory(dir / "file"));
    EXPECT_FALSE(CreateOneDirectory(""));
}

TEST(Files, AMaskIsTheSystems) {
    const TempDir dir;
    for (const char* const name : {"user0", "user10", "userdata", "User1", "use", "xuser0"}) WriteFile(dir / name, "");
    ASSERT_TRUE(CreateOneDirectory(dir / "user2"));
    EXPECT_EQ(Enumerated(dir.String() + "\\user*"), "User1 user0 user10 user2/ userdata");
    EXPECT_EQ(Enumerated(dir.String() + "\\user?"), "User1 user0 user2/");
    EXPECT_EQ(Enumerated(dir.String() + "\\USER1"), "User1");
    EXPECT_EQ(Enumerated(dir.String() + "\\missing\\*"), "");
    EXPECT_EQ(Enumerated(""), "");
}

TEST(Files, ANameThatTheCodePageCannotExpressIsLeftOut) {
    const TempDir dir;
    WriteFile(dir / "user0", "");
    WriteFile(dir.Path() / L"user\u0E01", "");  // a Thai letter
    EXPECT_EQ(Enumerated(dir.String() + "\\user*"), "user0");
}

TEST(Files, ADirectoryIsDeletedWithEverythingInItAlsoWhatMayNotBeWritten) {
    const TempDir dir;
    ASSERT_TRUE(std::filesystem::create_directories(dir / "user0/from0/forwardto0"));
    WriteFile(dir / "user0/userset.def", "x");
    WriteFile(dir / "user0/from0/forwardto0/.hidden", "x");
    WriteFile(dir / "user1", "x");
    ASSERT_TRUE(SetFileAttributesA((dir / "user0/userset.def").c_str(), FILE_ATTRIBUTE_READONLY));
    DeleteDirectory(dir.String() + "\\user0\\");
    EXPECT_EQ(Names(dir.String()), Lines{"user1"});
}

TEST(Files, WhatIsNoDirectoryIsNotDeleted) {
    const TempDir dir;
    WriteFile(dir / "file", "x");
    DeleteDirectory(dir / "file");
    DeleteDirectory(dir / "missing");
    DeleteDirectory("");
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
}

TEST(Files, TwoDirectoriesAreToldApartAndOneIsItself) {
    const TempDir dir;
    ASSERT_TRUE(CreateOneDirectory(dir / "a"));
    ASSERT_TRUE(CreateOneDirectory(dir / "b"));
    const DirectoryIdentity a = IdentifyDirectory(dir / "a");
    WriteFile(dir / "a/file", "");
    EXPECT_EQ(IdentifyDirectory(dir / "A"), a);
    EXPECT_NE(IdentifyDirectory(dir / "b"), a);
    EXPECT_EQ(IdentifyDirectory(dir / "c"), DirectoryIdentity());
}

TEST(Files, TheApplicationPathIsTheDirectoryOfTheProgram) {
    std::vector<char> program(1000);
    const DWORD length = GetModuleFileNameA(nullptr, program.data(), static_cast<DWORD>(program.size()));
    const std::string path(program.data(), length);
    EXPECT_EQ(GetApplicationPath(), path.substr(0, path.rfind('\\')));
}

TEST(TextFiles, WhatIsNoFileIsNeitherReadNorReplaced) {
    const TempDir dir;
    ASSERT_TRUE(CreateOneDirectory(dir / "directory"));
    for (const std::string& path : {dir / "directory", dir / "missing\\file", std::string("NUL"), std::string()}) {
        EXPECT_EQ(ReadTextLines(path), std::nullopt) << path;
        EXPECT_FALSE(Write(path, "x")) << path;
    }
    EXPECT_EQ(Names(dir.String()), Lines{"directory"});
}

TEST(TextFiles, AFileThatMayNotBeWrittenStays) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    ASSERT_TRUE(SetFileAttributesA((dir / "file").c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_FALSE(Write(dir / "file", "new"));
    EXPECT_EQ(ReadFile(dir / "file"), "old");
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
    SetFileAttributesA((dir / "file").c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST(TextFiles, AttributesStay) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    ASSERT_TRUE(SetFileAttributesA((dir / "file").c_str(), FILE_ATTRIBUTE_HIDDEN));
    EXPECT_TRUE(Write(dir / "file", "new"));
    EXPECT_EQ(GetFileAttributesA((dir / "file").c_str()) & FILE_ATTRIBUTE_HIDDEN, DWORD{FILE_ATTRIBUTE_HIDDEN});
    EXPECT_EQ(ReadFile(dir / "file"), "new");
}

TEST(TextFiles, SomethingElseInThePlaceOfTheNewFileFailsTheWrite) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    ASSERT_TRUE(CreateOneDirectory(dir / "file.new"));
    EXPECT_FALSE(Write(dir / "file", "new"));
    EXPECT_EQ(ReadFile(dir / "file"), "old");
}

TEST(TextFiles, AFileThatIsHeldForAMomentIsReadAndReplacedAllTheSame) {
    const TempDir dir;
    for (const Durability durability : {Durability::Synced, Durability::SyncedWhenChanged, Durability::NotSynced}) {
        WriteFile(dir / "file", "old");
        EXPECT_TRUE(WhileHeldForAMoment(dir / "file", [&] { return ReadTextLines(dir / "file") == Lines{"old"}; }));
        EXPECT_TRUE(WhileHeldForAMoment(dir / "file", [&] { return WriteTextFile(dir / "file", "new", durability); }));
        EXPECT_EQ(ReadFile(dir / "file"), "new");
    }
    EXPECT_TRUE(WhileHeldForAMoment(dir / "file", [&] {
        DeleteDirectory(dir.String());
        return !PathExists(dir / "file");
    }));
}

TEST(TextFiles, AFileThatIsHeldForLongKeepsItsContent) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    {
        const Holder holder(dir / "file", 0);
        EXPECT_EQ(ReadTextLines(dir / "file"), std::nullopt);
        EXPECT_FALSE(Write(dir / "file", "new"));
        EXPECT_TRUE(PathExists(dir / "file"));
    }
    EXPECT_EQ(ReadFile(dir / "file"), "old");
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
}

// And readers, by whom it is open all the time, do not keep them from it.
TEST(TextFiles, WritersOfOneFileExcludeEachOther) {
    const TempDir dir;
    constexpr int kReaders = 4;
    constexpr int kWriters = 2;
    constexpr int kRounds = 10;
    const auto text_of = [](int writer) {
        const std::string line = std::to_string(writer) + std::string(200, static_cast<char>('a' + writer)) + "\n";
        std::string text;
        for (int i = 0; i <= writer * 40; ++i) text += line;
        return text;
    };
    const auto is_whole = [](const Lines& lines) {
        if (lines.empty()) return false;
        const auto writer = static_cast<std::size_t>(lines.front().front() - '0');
        return lines == Lines(lines.size(), lines.front()) && lines.size() == writer * 40 + 1;
    };
    ASSERT_TRUE(Write(dir / "file", text_of(0)));
    std::atomic<int> running = kWriters;
    std::atomic<int> written = 0;
    std::vector<std::jthread> threads;
    for (int writer = 0; writer < kWriters; ++writer) {
        threads.emplace_back([&, writer] {
            for (int i = 0; i < kRounds; ++i) {
                if (WriteTextFile(dir / "file", text_of(writer), Durability::NotSynced)) ++written;
            }
            --running;
        });
    }
    for (int reader = 0; reader < kReaders; ++reader) {
        threads.emplace_back([&] {
            do {
                const auto lines = ReadTextLines(dir / "file");
                EXPECT_TRUE(lines && is_whole(*lines));
            } while (running > 0);
        });
    }
    threads.clear();
    EXPECT_EQ(written, kWriters * kRounds);
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
}

}  // namespace

}  // namespace tarvex
