// Files and directories as the system has them: letter case does not count, files can be held by others, and a name is
// in the system's code page.

#include "platform/os/files.h"

#include <gtest/gtest.h>
#include <windows.h>
// Behind the one that it needs.
#include <sddl.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "testing/temp_dir.h"
#include "tests/platform/os/file_tools.h"
#include "tests/support/windows/replaced_import.h"

extern "C" {
extern void* imported_create_file asm("__imp__CreateFileW@28");
extern void* imported_find_next_file asm("__imp__FindNextFileW@8");
extern void* imported_flush asm("__imp__FlushFileBuffers@4");
extern void* imported_get_volume asm("__imp__GetVolumePathNameW@12");
extern void* imported_set_information asm("__imp__SetFileInformationByHandle@16");
void WINAPI RtlSetLastWin32ErrorAndNtStatusFromNtStatus(LONG status);
}

namespace tarvex {

namespace {

using namespace std::chrono_literals;
using testing::Enumerated;
using testing::Lines;
using testing::Names;
using testing::ReadFile;
using testing::ReplacedImport;
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
bool WhileHeldForAMoment(const std::string& path, DWORD sharing, const std::function<bool()>& work) {
    auto holder = std::make_unique<Holder>(path, sharing);
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

BOOL WINAPI NoNextFile(HANDLE, WIN32_FIND_DATAW*) {
    SetLastError(ERROR_NETNAME_DELETED);
    return FALSE;
}

TEST(Files, AListingThatBreaksOffDoesNotPassForAWholeOne) {
    const TempDir dir;
    WriteFile(dir / "user0", "");
    const ReplacedImport broken(imported_find_next_file, NoNextFile);
    EXPECT_THROW(EnumerateDirectory(dir.String() + "\\*"), std::bad_alloc);
}

HANDLE WINAPI NoHandles(LPCWSTR, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE) {
    SetLastError(ERROR_TOO_MANY_OPEN_FILES);
    return INVALID_HANDLE_VALUE;
}

TEST(Files, WithoutHandlesNothingPassesForMissing) {
    const TempDir dir;
    WriteFile(dir / "file", "");
    const ReplacedImport none(imported_create_file, NoHandles);
    EXPECT_THROW(PathExists(dir / "file"), std::bad_alloc);
    EXPECT_THROW(ReadTextLines(dir / "file"), std::bad_alloc);
}

std::wstring root_of_all;

BOOL WINAPI VolumeOfRoot(LPCWSTR, LPWSTR volume, DWORD units) {
    volume[root_of_all.copy(volume, units)] = L'\0';
    return TRUE;
}

TEST(Files, TheRootOfAFileSystemIsNotDeletedWhateverItIsCalled) {
    const TempDir dir;
    ASSERT_TRUE(CreateOneDirectory(dir / "folder"));
    root_of_all = dir.Path().wstring() + L"\\";
    const ReplacedImport root(imported_get_volume, VolumeOfRoot);
    for (const char* const name : {"", "\\", "\\.", "\\folder\\..", "/folder/../"}) {
        DeleteDirectory(dir.String() + name);
        EXPECT_TRUE(PathExists(dir / "folder")) << name;
    }
    DeleteDirectory(dir / "folder\\.\\");
    EXPECT_FALSE(PathExists(dir / "folder"));
}

TEST(Files, ADirectoryWhoseDeletedFileOthersHaveOpenForAMomentIsDeleted) {
    const TempDir dir;
    ASSERT_TRUE(CreateOneDirectory(dir / "user0"));
    WriteFile(dir / "user0/file", "");
    WriteFile(dir / "user0/first", "");
    EXPECT_TRUE(WhileHeldForAMoment(dir / "user0/file", FILE_SHARE_READ | FILE_SHARE_DELETE, [&] {
        DeleteDirectory(dir / "user0");
        return !PathExists(dir / "user0");
    }));
    ASSERT_TRUE(CreateOneDirectory(dir / "user0"));
    WriteFile(dir / "user0/first", "");
    EXPECT_TRUE(WhileHeldForAMoment(dir / "user0/first", FILE_SHARE_READ | FILE_SHARE_DELETE, [&] {
        DeleteDirectory(dir / "user0", "first");
        return !PathExists(dir / "user0");
    }));
}

TEST(Files, TheLastComponentFollowsTheLastBackslash) {
    EXPECT_EQ(LastComponent("C:\\root\\forwardto3"), "forwardto3");
    EXPECT_EQ(LastComponent("forwardto3"), "forwardto3");
    EXPECT_EQ(LastComponent("root\\"), "");
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

// The file is deleted, but others have it open still.
int refused_as_deleted = 0;
decltype(&CreateFileW) real_create_file = nullptr;

HANDLE WINAPI DeletedForAMoment(LPCWSTR path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                                DWORD disposition, DWORD flags, HANDLE like) {
    constexpr LONG kDeletePending = static_cast<LONG>(0xC0000056);
    const bool is_new = std::wstring(path).ends_with(L".new");
    if (!is_new || refused_as_deleted == 0) {
        return real_create_file(path, access, sharing, security, disposition, flags, like);
    }
    --refused_as_deleted;
    RtlSetLastWin32ErrorAndNtStatusFromNtStatus(kDeletePending);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    return INVALID_HANDLE_VALUE;
}

TEST(TextFiles, ANewFileThatIsDeletedButOpenStillIsWaitedFor) {
    const TempDir dir;
    const ReplacedImport replaced(imported_create_file, DeletedForAMoment, real_create_file);
    refused_as_deleted = 2;
    EXPECT_TRUE(Write(dir / "file", "new"));
    EXPECT_EQ(refused_as_deleted, 0);
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
}

// ---- what is asked of the system

Lines calls;
std::string failing_call;
std::unique_ptr<Holder> held;
decltype(&SetFileInformationByHandle) real_set_information = nullptr;
decltype(&FlushFileBuffers) real_flush = nullptr;

bool Record(const std::string& call) {
    calls.push_back(call);
    if (call != failing_call) return true;
    SetLastError(ERROR_DISK_FULL);
    return false;
}

BOOL WINAPI RecordedFlush(HANDLE file) { return Record("flush") && real_flush(file); }

BOOL WINAPI RecordedInformation(HANDLE file, FILE_INFO_BY_HANDLE_CLASS what, void* information, DWORD bytes) {
    constexpr auto kRenameByFlags = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);
    if (what == kRenameByFlags) {
        calls.push_back("rename by flags " + std::to_string(*static_cast<DWORD*>(information)));
        held.reset();  // for a system that does not know it
        what = FileRenameInfo;
    } else if (what == FileRenameInfo && !Record("rename")) {
        return FALSE;
    }
    return real_set_information(file, what, information, bytes);
}

class Recording {
public:
    explicit Recording(std::string failing = {}) {
        calls.clear();
        failing_call = std::move(failing);
    }

private:
    const ReplacedImport flush_{imported_flush, RecordedFlush, real_flush};
    const ReplacedImport set_information_{imported_set_information, RecordedInformation, real_set_information};
};

TEST(TextFiles, TheNewFileIsFlushedBeforeItIsRenamedAndOnceMoreAfterIt) {
    const TempDir dir;
    {
        const Recording recording;
        EXPECT_TRUE(WriteTextFile(dir / "file", "x", Durability::Synced));
        EXPECT_EQ(calls, (Lines{"flush", "rename", "flush"}));
    }
    const Recording recording;
    EXPECT_TRUE(WriteTextFile(dir / "file", "x", Durability::NotSynced));
    EXPECT_EQ(calls, Lines{"rename"});
}

TEST(TextFiles, AFailedFlushOrRenameLeavesTheOldContentAndNoNewFile) {
    const TempDir dir;
    for (const std::string failing : {"flush", "rename"}) {
        WriteFile(dir / "file", "old");
        const Recording recording(failing);
        EXPECT_FALSE(Write(dir / "file", "new"));
        EXPECT_EQ(calls.back(), failing);
        EXPECT_EQ(ReadFile(dir / "file"), "old");
        EXPECT_EQ(Names(dir.String()), Lines{"file"});
    }
}

TEST(TextFiles, AFileThatHoldsTheContentAlreadyIsLeftAloneWhenAsked) {
    const TempDir dir;
    const auto write = [&](const std::string& text) {
        return WriteTextFile(dir / "file", text, Durability::SyncedWhenChanged);
    };
    ASSERT_TRUE(write("one\ntwo\n"));
    {
        const Recording recording;
        EXPECT_TRUE(write("one\ntwo\n"));
        EXPECT_EQ(calls, Lines{});
    }
    for (const std::string changed : {"one\ntwO\n", "one\n", "", "one\ntwo\n"}) {
        const Recording recording;
        EXPECT_TRUE(write(changed));
        EXPECT_EQ(calls, (Lines{"flush", "rename", "flush"})) << changed;
    }
}

TEST(TextFiles, WhereTheSystemCanItReplacesWhatOthersHaveOpen) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    held = std::make_unique<Holder>(dir / "file", FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    const Recording recording;
    EXPECT_TRUE(WriteTextFile(dir / "file", "new", Durability::NotSynced));
    EXPECT_EQ(calls, (Lines{"rename", "rename by flags 3"}));
    EXPECT_EQ(ReadFile(dir / "file"), "new");
}

std::vector<unsigned char> RightsTo(const std::string& path) {
    DWORD bytes = 0;
    GetFileSecurityA(path.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &bytes);
    std::vector<unsigned char> rights(bytes);
    EXPECT_TRUE(GetFileSecurityA(path.c_str(), DACL_SECURITY_INFORMATION, rights.data(), bytes, &bytes));
    return rights;
}

TEST(TextFiles, WhoMayUseAFileStays) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    const std::vector<unsigned char> usual = RightsTo(dir / "file");
    void* rights = nullptr;
    ASSERT_TRUE(
        ConvertStringSecurityDescriptorToSecurityDescriptorA("D:P(A;;FA;;;BA)", SDDL_REVISION_1, &rights, nullptr));
    ASSERT_TRUE(SetFileSecurityA((dir / "file").c_str(), DACL_SECURITY_INFORMATION, rights));
    LocalFree(rights);
    const std::vector<unsigned char> changed = RightsTo(dir / "file");
    ASSERT_NE(changed, usual);
    EXPECT_TRUE(Write(dir / "file", "new"));
    EXPECT_EQ(RightsTo(dir / "file"), changed);
}

TEST(TextFiles, AFileThatIsHeldForAMomentIsReadAndReplacedAllTheSame) {
    const TempDir dir;
    for (const Durability durability : {Durability::Synced, Durability::SyncedWhenChanged, Durability::NotSynced}) {
        WriteFile(dir / "file", "old");
        EXPECT_TRUE(WhileHeldForAMoment(dir / "file", 0, [&] { return ReadTextLines(dir / "file") == Lines{"old"}; }));
        EXPECT_TRUE(
            WhileHeldForAMoment(dir / "file", 0, [&] { return WriteTextFile(dir / "file", "new", durability); }));
        EXPECT_EQ(ReadFile(dir / "file"), "new");
    }
    EXPECT_TRUE(WhileHeldForAMoment(dir / "file", 0, [&] {
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
