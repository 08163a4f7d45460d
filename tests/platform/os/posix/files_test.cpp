// Files and directories where there are modes, links, locks and signals, including what a crash, a full disk and a
// second writer do to them.

#include "platform/os/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "testing/temp_dir.h"
#include "tests/platform/os/file_tools.h"
#include "tests/support/posix/system_calls.h"

namespace tarvex {

namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;
using testing::Enumerated;
using testing::Lines;
using testing::Names;
using testing::ReadFile;
using testing::system_calls;
using testing::TempDir;
using testing::Write;
using testing::WriteFile;

constexpr uid_t nobody = 65534;

// Runs `body` in a child process and says whether it returned true.
bool InChild(const std::function<bool()>& body) {
    const pid_t child = fork();
    if (child == 0) _exit(body() ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The same without the privileges of root, for whom every file is writable. `dir` is given to the user concerned.
bool Unprivileged(const TempDir& dir, const std::function<bool()>& body) {
    if (geteuid() == 0 && chown(dir.Path().c_str(), nobody, nobody) != 0) return false;
    return InChild([&] {
        if (geteuid() != 0) return body();
        return setgroups(0, nullptr) == 0 && setgid(nobody) == 0 && setuid(nobody) == 0 && body();
    });
}

void GiveToNobody(const std::string& path) {
    if (geteuid() != 0) return;
    ASSERT_EQ(chown(path.c_str(), nobody, nobody), 0);
}

mode_t Mode(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

class Umask {
public:
    explicit Umask(mode_t mask) : old_(umask(mask)) {}
    ~Umask() { umask(old_); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    mode_t old_;
};

class Recording {
public:
    explicit Recording(std::string failing = {}) { system_calls = {true, {}, std::move(failing), {}, 0}; }
    ~Recording() { system_calls = {}; }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
    const Lines& Calls() const { return system_calls.calls; }
};

// ---- paths

TEST(Files, TheBackslashSeparatesByteForByte) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directories(dir / "user0/from0"));
    WriteFile(dir / "user0/from0/a", "x");
    EXPECT_TRUE(PathExists(dir.String() + "\\user0\\from0\\a"));
    EXPECT_TRUE(PathExists(dir.String() + "\\user0/from0\\\\a"));
    EXPECT_FALSE(PathExists(dir.String() + "\\user0\\from0\\b"));
    EXPECT_TRUE(PathExists(dir.String() + "\\user0\\"));

    // 0x81 0x5C would be one character of Shift-JIS; at the end of a name in UTF-8 it is not.
    const std::string hiragana = "\xE3\x81\x81";
    ASSERT_TRUE(CreateOneDirectory(dir.String() + "\\" + hiragana));
    EXPECT_TRUE(Write(dir.String() + "\\" + hiragana + "\\userset.def", "x"));
    EXPECT_EQ(ReadFile(dir / (hiragana + "/userset.def")), "x");
}

TEST(Files, OnlyWhatIsThereExists) {
    const TempDir dir;
    WriteFile(dir / "file", "");
    fs::create_symlink("file", dir / "link");
    fs::create_symlink("nowhere", dir / "dangling");
    EXPECT_TRUE(PathExists(dir.String()));
    EXPECT_TRUE(PathExists(dir / "file"));
    EXPECT_TRUE(PathExists(dir / "link"));
    EXPECT_FALSE(PathExists(dir / "dangling"));
    EXPECT_FALSE(PathExists(dir / "missing"));
    EXPECT_FALSE(PathExists(dir / "file/inner"));
    EXPECT_FALSE(PathExists(""));
}

TEST(Files, ADirectoryIsMadeOnceForItsOwnerAlone) {
    const TempDir dir;
    const Umask umask(0);
    EXPECT_TRUE(CreateOneDirectory(dir.String() + "\\user0"));
    EXPECT_TRUE(fs::is_directory(dir / "user0"));
    EXPECT_EQ(Mode(dir / "user0"), 0700U);
    EXPECT_FALSE(CreateOneDirectory(dir.String() + "\\user0"));
    EXPECT_FALSE(CreateOneDirectory(dir.String() + "\\user1\\from0"));
    EXPECT_FALSE(PathExists(dir / "user1"));
    WriteFile(dir / "file", "");
    EXPECT_FALSE(CreateOneDirectory(dir.String() + "\\file"));
    EXPECT_FALSE(CreateOneDirectory(""));
}

// ---- enumeration

TEST(Files, AMaskIsMatchedWithAsteriskAndQuestionMarkOnly) {
    const TempDir dir;
    for (const char* name :
         {"user0", "user10", "userdata", "User1", "use", "xuser0", "[ab]", "a", "aab", "a*b", ".hidden"}) {
        WriteFile(dir / name, "");
    }
    const struct {
        std::string mask, names;
    } cases[] = {
        {"user*", "user0 user10 userdata"},
        {"user", ""},
        {"user?", "user0"},
        {"user??", "user10"},
        {"*0", "user0 user10 xuser0"},
        {"*", "../ ./ .hidden User1 [ab] a a*b aab use user0 user10 userdata xuser0"},
        {"**", "../ ./ .hidden User1 [ab] a a*b aab use user0 user10 userdata xuser0"},
        {".*", "../ ./ .hidden"},
        {"*.*", "../ ./ .hidden"},
        {"USER*", ""},
        {"U*", "User1"},
        {"[ab]", "[ab]"},
        {"[a*", "[ab]"},
        {"a*b", "a*b aab"},
        {"a?b", "a*b aab"},
        {"*a*b", "a*b aab"},
        {"?", "./ a"},
        {"", ""},
    };
    for (const auto& [mask, names] : cases) EXPECT_EQ(Enumerated(dir.String() + "\\" + mask), names) << mask;
}

TEST(Files, EnumerationTellsDirectoriesAlsoBehindLinks) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directory(dir / "user0"));
    WriteFile(dir / "user1", "");
    fs::create_symlink("user0", dir / "user2");
    fs::create_symlink("user1", dir / "user3");
    fs::create_symlink("nowhere", dir / "user4");
    ASSERT_EQ(mkfifo((dir / "user5").c_str(), 0600), 0);
    EXPECT_EQ(Enumerated(dir.String() + "\\user*"), "user0/ user1 user2/ user3 user4 user5");
}

TEST(Files, EnumerationKeepsTheOrderOfTheSystem) {
    const TempDir dir;
    for (int i = 0; i < 50; ++i) ASSERT_TRUE(fs::create_directory(dir / ("user" + std::to_string(i * 7919 % 50))));
    Lines expected;
    DIR* directory = opendir(dir.String().c_str());
    ASSERT_NE(directory, nullptr);
    while (const dirent* entry = readdir(directory)) expected.emplace_back(entry->d_name);
    closedir(directory);

    Lines names;
    for (const DirectoryEntry& entry : EnumerateDirectory(dir.String() + "\\*")) names.push_back(entry.name);
    EXPECT_EQ(names, expected);
}

TEST(Files, ANameThatHoldsABackslashIsLeftOut) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directory(dir / "user0"));
    ASSERT_TRUE(fs::create_directory(dir / "user0\\.."));
    EXPECT_EQ(Enumerated(dir.String() + "\\user*"), "user0/");
}

TEST(Files, WhatCannotBeEnumeratedIsEmpty) {
    const TempDir dir;
    WriteFile(dir / "file", "");
    EXPECT_TRUE(EnumerateDirectory(dir.String() + "\\missing\\*").empty());
    EXPECT_TRUE(EnumerateDirectory(dir.String() + "\\file\\*").empty());
    EXPECT_TRUE(EnumerateDirectory("").empty());
    ASSERT_TRUE(fs::create_directory(dir / "closed"));
    WriteFile(dir / "closed/file", "");
    fs::permissions(dir / "closed", fs::perms::none);
    EXPECT_TRUE(Unprivileged(dir, [&] { return EnumerateDirectory(dir.String() + "\\closed\\*").empty(); }));
}

TEST(Files, AMaskWithoutADirectoryStandsForTheCurrentOne) {
    const TempDir dir;
    WriteFile(dir / "user0", "");
    EXPECT_TRUE(InChild([&] { return chdir(dir.String().c_str()) == 0 && Enumerated("user*") == "user0"; }));
}

// ---- deletion

TEST(Files, ADirectoryIsDeletedWithEverythingInIt) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directories(dir / "user0/from0/forwardto0"));
    WriteFile(dir / "user0/userset.def", "x");
    WriteFile(dir / "user0/from0/forwardto0/.hidden", "x");
    WriteFile(dir / "user0/back\\slash", "x");
    ASSERT_EQ(mkfifo((dir / "user0/pipe").c_str(), 0600), 0);
    WriteFile(dir / "user1", "x");
    DeleteDirectory(dir.String() + "\\user0");
    EXPECT_EQ(Names(dir.String()), Lines{"user1"});
}

TEST(Files, DeletionRemovesLinksAndDoesNotFollowThem) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directory(dir / "kept"));
    WriteFile(dir / "kept/file", "x");
    ASSERT_TRUE(fs::create_directory(dir / "user0"));
    fs::create_symlink("../kept", dir / "user0/to_directory");
    fs::create_symlink("../kept/file", dir / "user0/to_file");
    fs::create_symlink("nowhere", dir / "user0/dangling");
    fs::create_symlink("kept", dir / "user1");
    fs::create_symlink("kept", dir / "user2");

    DeleteDirectory(dir.String() + "\\user0");
    DeleteDirectory(dir.String() + "\\user1");
    DeleteDirectory(dir.String() + "\\user2\\");
    EXPECT_EQ(Names(dir.String()), Lines{"kept"});
    EXPECT_EQ(ReadFile(dir / "kept/file"), "x");
}

TEST(Files, WhatIsNoDirectoryIsNotDeleted) {
    const TempDir dir;
    WriteFile(dir / "file", "x");
    fs::create_symlink("file", dir / "link");
    fs::create_symlink("nowhere", dir / "dangling");
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    for (const char* name : {"\\file", "\\link", "\\dangling", "\\pipe", "\\missing", "\\file\\"}) {
        DeleteDirectory(dir.String() + name);
    }
    EXPECT_EQ(Names(dir.String()), (Lines{"dangling", "file", "link", "pipe"}));
}

TEST(Files, AnEmptyPathAndTheRootAreNotDeleted) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can make a folder the root";
    const TempDir dir;
    WriteFile(dir / "file", "x");
    EXPECT_TRUE(InChild([&] {
        if (chroot(dir.String().c_str()) != 0 || chdir("/") != 0) return false;
        DeleteDirectory("");
        DeleteDirectory("\\");
        DeleteDirectory("//");
        return true;
    }));
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
}

TEST(Files, DeletionGoesOnAfterWhatItCannotRemove) {
    const TempDir dir;
    EXPECT_TRUE(Unprivileged(dir, [&] {
        Lines kept;
        for (int i = 0; i < 20; ++i) {
            fs::create_directories(dir / ("user0/open" + std::to_string(i)));
            WriteFile(dir / ("user0/open" + std::to_string(i) + "/file"), "");
            const bool is_readable = i % 2 == 0;
            kept.push_back("closed" + std::to_string(i));
            fs::create_directories(dir / ("user0/" + kept.back()));
            WriteFile(dir / ("user0/" + kept.back() + "/file"), "");
            fs::permissions(dir / ("user0/" + kept.back()),
                            is_readable ? fs::perms::owner_read | fs::perms::owner_exec : fs::perms::none);
        }
        DeleteDirectory(dir.String() + "\\user0");
        std::sort(kept.begin(), kept.end());
        return Names(dir / "user0") == kept;
    }));
}

TEST(Files, DeletionDoesNotFollowALinkThatItCannotRemove) {
    const TempDir dir;
    EXPECT_TRUE(Unprivileged(dir, [&] {
        fs::create_directories(dir / "kept");
        WriteFile(dir / "kept/file", "x");
        fs::create_directories(dir / "user0/closed");
        fs::create_symlink("../../kept", dir / "user0/closed/link");
        fs::permissions(dir / "user0/closed", fs::perms::owner_read | fs::perms::owner_exec);
        DeleteDirectory(dir.String() + "\\user0");
        return Names(dir / "user0/closed") == Lines{"link"} && ReadFile(dir / "kept/file") == "x";
    }));
}

TEST(Files, OneFileOfADirectoryIsDeletedBeforeTheOthers) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directories(dir / "user0/from0"));
    for (const char c : "abcdefgh"s) WriteFile(dir / (std::string("user0/") + c), "x");
    WriteFile(dir / "kept", "x");
    fs::create_symlink("user0", dir / "user1");
    const Recording recording;
    DeleteDirectory(dir.String() + "\\user1", "d");
    EXPECT_EQ(Names(dir / "user0").size(), 9U) << "a link was followed";
    DeleteDirectory(dir.String() + "\\user0", "d");
    EXPECT_EQ(Names(dir.String()), Lines{"kept"});
    const auto first = std::ranges::find_if(recording.Calls(), [](const auto& call) { return call.size() == 8; });
    ASSERT_NE(first, recording.Calls().end());
    EXPECT_EQ(*first, "delete d");
}

// ---- reading

TEST(TextFiles, LargeFilesAndFilesOfUnknownSizeAreReadWhole) {
    const TempDir dir;
    std::string content;
    Lines lines;
    for (int i = 0; i < 100'000; ++i) {
        lines.push_back("line " + std::to_string(i));
        content += lines.back() + "\r\n";
    }
    WriteFile(dir / "file", content);
    EXPECT_EQ(ReadTextLines(dir / "file"), lines);

    const auto status = ReadTextLines("/proc/self/status");  // its size is given as 0
    ASSERT_TRUE(status);
    EXPECT_GT(status->size(), 10U);
}

TEST(TextFiles, WhatCannotBeReadToItsEndIsNothing) {
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    fs::create_symlink("nowhere", dir / "dangling");
    fs::create_symlink("loop", dir / "loop");
    for (const char* name : {"\\missing", "\\pipe", "\\dangling", "\\loop", "\\", ""}) {
        EXPECT_EQ(ReadTextLines(dir.String() + name), std::nullopt) << name;
    }
    EXPECT_EQ(ReadTextLines(""), std::nullopt);
    EXPECT_EQ(ReadTextLines("/dev/null"), std::nullopt);
    EXPECT_EQ(ReadTextLines("/proc/self/mem"), std::nullopt);  // a regular file whose first byte cannot be read

    WriteFile(dir / "closed", "x");
    GiveToNobody(dir / "closed");
    fs::permissions(dir / "closed", fs::perms::none);
    EXPECT_TRUE(Unprivileged(dir, [&] { return !ReadTextLines(dir / "closed"); }));
}

TEST(TextFiles, ALinkIsReadLikeItsFile) {
    const TempDir dir;
    WriteFile(dir / "file", "x\n");
    fs::create_symlink("file", dir / "link");
    EXPECT_EQ(ReadTextLines(dir / "link"), Lines{"x"});
}

// ---- writing

TEST(TextFiles, ANewFileIsForItsOwnerAlone) {
    const TempDir dir;
    for (const mode_t mask : {0U, 022U, 0777U}) {
        const Umask umask(mask);
        EXPECT_TRUE(Write(dir.String() + "\\file", "x"));
        EXPECT_EQ(Mode(dir / "file"), 0600U);
        fs::remove(dir / "file");
    }
}

TEST(TextFiles, TheModeOfAnExistingFileStays) {
    const TempDir dir;
    const Umask umask(077);
    for (const mode_t mode : {0600U, 0644U, 0660U, 0666U, 0200U}) {
        WriteFile(dir / "file", "old");
        ASSERT_EQ(chmod((dir / "file").c_str(), mode), 0);
        EXPECT_TRUE(Write(dir.String() + "\\file", "new"));
        EXPECT_EQ(Mode(dir / "file"), mode);
        ASSERT_EQ(chmod((dir / "file").c_str(), 0600), 0);
        EXPECT_EQ(ReadFile(dir / "file"), "new");
    }
}

TEST(TextFiles, TheOwnerStaysWhenThatIsAllowed) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
    const TempDir dir;
    WriteFile(dir / "file", "old");
    ASSERT_EQ(chown((dir / "file").c_str(), nobody, nobody), 0);
    ASSERT_EQ(chmod((dir / "file").c_str(), 0640), 0);
    EXPECT_TRUE(Write(dir / "file", "new"));
    struct stat status {};
    ASSERT_EQ(stat((dir / "file").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, nobody);
    EXPECT_EQ(status.st_gid, nobody);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST(TextFiles, AnOrdinaryUserKeepsTheGroupOfAnothersFileAndTheWriteSucceeds) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can make another's file";
    const TempDir dir;
    const gid_t group = 12345;
    WriteFile(dir / "file", "old");
    ASSERT_EQ(chown((dir / "file").c_str(), 0, group), 0);
    ASSERT_EQ(chmod((dir / "file").c_str(), 0660), 0);
    ASSERT_EQ(chown(dir.String().c_str(), nobody, nobody), 0);
    EXPECT_TRUE(InChild([&] {
        return setgroups(1, &group) == 0 && setgid(nobody) == 0 && setuid(nobody) == 0 && Write(dir / "file", "new");
    }));
    struct stat status {};
    ASSERT_EQ(stat((dir / "file").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, nobody);
    EXPECT_EQ(status.st_gid, group);
    EXPECT_EQ(status.st_mode & 07777U, 0660U);
    EXPECT_EQ(ReadFile(dir / "file"), "new");
}

TEST(TextFiles, AFileThatIsNotWritableStays) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    GiveToNobody(dir / "file");
    fs::permissions(dir / "file", fs::perms::owner_read);
    EXPECT_TRUE(Unprivileged(dir, [&] { return !Write(dir / "file", "new"); }));
    EXPECT_EQ(ReadFile(dir / "file"), "old");
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
}

TEST(TextFiles, AFileInADirectoryThatIsNotWritableStays) {
    const TempDir dir;
    EXPECT_TRUE(Unprivileged(dir, [&] {
        fs::create_directory(dir / "closed");
        WriteFile(dir / "closed/file", "old");
        fs::permissions(dir / "closed", fs::perms::owner_read | fs::perms::owner_exec);
        return !Write(dir / "closed/file", "new") && !Write(dir / "closed/other", "new") &&
               ReadFile(dir / "closed/file") == "old" && Names(dir / "closed") == Lines{"file"};
    }));
}

TEST(TextFiles, WhatIsNoRegularFileIsNotReplaced) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directory(dir / "directory"));
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    fs::create_symlink("nowhere", dir / "dangling");
    fs::create_symlink("directory", dir / "link");
    fs::create_symlink("loop", dir / "loop");
    const Lines before = Names(dir.String());
    for (const char* name : {"\\directory", "\\pipe", "\\dangling", "\\link", "\\loop", "\\missing\\file",
                             "\\pipe\\file", "\\directory\\", "\\new\\", "\\.", "\\.."}) {
        EXPECT_FALSE(Write(dir.String() + name, "x")) << name;
    }
    EXPECT_FALSE(Write("", "x"));
    EXPECT_EQ(Names(dir.String()), before);
    EXPECT_TRUE(fs::is_fifo(dir / "pipe"));
}

TEST(TextFiles, OfALinkTheFileBehindItIsReplaced) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directory(dir / "real"));
    WriteFile(dir / "real/file", "old");
    fs::create_symlink("real/file", dir / "link");
    fs::create_symlink("link", dir / "second");
    WriteFile(dir / "second.new", "somebody else's");
    EXPECT_TRUE(Write(dir.String() + "\\second", "new"));
    EXPECT_EQ(ReadFile(dir / "real/file"), "new");
    EXPECT_TRUE(fs::is_symlink(dir / "link"));
    EXPECT_TRUE(fs::is_symlink(dir / "second"));
    EXPECT_EQ(ReadFile(dir / "second.new"), "somebody else's");
    EXPECT_EQ(Names(dir / "real"), Lines{"file"});
}

TEST(TextFiles, AHardLinkKeepsTheOldContent) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    fs::create_hard_link(dir / "file", dir / "backup");
    EXPECT_TRUE(Write(dir / "file", "new"));
    EXPECT_EQ(ReadFile(dir / "backup"), "old");
    EXPECT_EQ(ReadFile(dir / "file"), "new");
}

TEST(TextFiles, ARelativePathIsTakenFromTheCurrentDirectory) {
    const TempDir dir;
    EXPECT_TRUE(InChild([&] { return chdir(dir.String().c_str()) == 0 && Write("file", "x"); }));
    EXPECT_EQ(ReadFile(dir / "file"), "x");
}

TEST(TextFiles, SomethingElseInThePlaceOfTheNewFileFailsTheWrite) {
    const TempDir dir;
    WriteFile(dir / "victim", "kept");
    const std::function<void()> obstacles[] = {
        [&] { fs::create_directory(dir / "file.new"); },
        [&] { fs::create_symlink("victim", dir / "file.new"); },
        [&] { ASSERT_EQ(mkfifo((dir / "file.new").c_str(), 0600), 0); },
    };
    for (const auto& place : obstacles) {
        WriteFile(dir / "file", "old");
        place();
        EXPECT_FALSE(Write(dir / "file", "new"));
        EXPECT_EQ(ReadFile(dir / "file"), "old");
        EXPECT_EQ(ReadFile(dir / "victim"), "kept");
        EXPECT_EQ(Names(dir.String()), (Lines{"file", "file.new", "victim"}));
        fs::remove(dir / "file.new");
    }
}

// ---- faults

TEST(TextFiles, TheNewFileIsSyncedBeforeTheRenameAndTheDirectoryAfterIt) {
    const TempDir dir;
    {
        const Recording recording;
        EXPECT_TRUE(WriteTextFile(dir / "file", "x", Durability::Synced));
        EXPECT_EQ(recording.Calls(), (Lines{"sync file", "rename", "sync directory"}));
    }
    {
        const Recording recording;
        EXPECT_TRUE(WriteTextFile(dir / "file", "x", Durability::NotSynced));
        EXPECT_EQ(recording.Calls(), Lines{"rename"});
    }
}

ino_t Inode(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_ino;
}

TEST(TextFiles, AFileThatHoldsTheContentAlreadyIsLeftAloneWhenAsked) {
    const TempDir dir;
    const auto write = [&](const std::string& text) {
        return WriteTextFile(dir / "file", text, Durability::SyncedWhenChanged);
    };
    const Lines whole_way = {"sync file", "rename", "sync directory"};
    {
        const Recording recording;
        EXPECT_TRUE(write("one\ntwo\n"));
        EXPECT_EQ(recording.Calls(), whole_way);
    }
    const ino_t before = Inode(dir / "file");
    {
        const Recording recording;
        EXPECT_TRUE(write("one\ntwo\n"));
        EXPECT_EQ(recording.Calls(), Lines{});
        EXPECT_EQ(Inode(dir / "file"), before);
    }
    for (const std::string changed : {"one\ntwO\n", "one\n", "", "one\ntwo\n"}) {
        const Recording recording;
        EXPECT_TRUE(write(changed));
        EXPECT_EQ(recording.Calls(), whole_way) << changed;
    }
    EXPECT_EQ(ReadFile(dir / "file"), "one\r\ntwo\r\n");
    {
        const Recording recording;
        EXPECT_TRUE(Write(dir / "file", "one\ntwo\n"));
        EXPECT_EQ(recording.Calls(), whole_way) << "not asked";
    }
}

TEST(TextFiles, AFileThatIsNotWritableFailsTheWriteAlsoWhereNothingHasChanged) {
    const TempDir dir;
    WriteFile(dir / "file", "same");
    GiveToNobody(dir / "file");
    ASSERT_EQ(chmod((dir / "file").c_str(), 0400), 0);
    EXPECT_TRUE(Unprivileged(dir, [&] { return !WriteTextFile(dir / "file", "same", Durability::SyncedWhenChanged); }));
}

TEST(TextFiles, AFailedSyncOrRenameLeavesTheOldContentAndNoNewFile) {
    const TempDir dir;
    for (const std::string failing : {"sync file", "rename"}) {
        WriteFile(dir / "file", "old");
        const Recording recording(failing);
        EXPECT_FALSE(Write(dir / "file", "new"));
        EXPECT_EQ(recording.Calls().back(), "delete file.new");
        EXPECT_EQ(recording.Calls().at(recording.Calls().size() - 2), failing);
        EXPECT_EQ(ReadFile(dir / "file"), "old");
        EXPECT_EQ(Names(dir.String()), Lines{"file"});
    }
}

TEST(TextFiles, AFailedSyncOfTheDirectoryIsAFailureWithTheNewContentInPlace) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    const Recording recording("sync directory");
    EXPECT_FALSE(Write(dir / "file", "new"));
    EXPECT_EQ(ReadFile(dir / "file"), "new");
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
}

// In a child process, where a file may not grow beyond 4096 bytes: a write across that limit is a short one, and the
// next fails, as on a full disk.
bool WithSmallDisk(const std::function<bool()>& body) {
    return InChild([&] {
        const rlimit limit{4096, 4096};
        return std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR && setrlimit(RLIMIT_FSIZE, &limit) == 0 && body();
    });
}

TEST(TextFiles, AFullDiskLeavesTheOldContentAndNoNewFile) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    const std::string text(10'000, 'x');
    for (const Durability durability : {Durability::Synced, Durability::NotSynced}) {
        EXPECT_TRUE(WithSmallDisk([&] { return !WriteTextFile(dir / "file", text, durability); }));
        EXPECT_TRUE(WithSmallDisk([&] { return !WriteTextFile(dir / "other", text, durability); }));
        EXPECT_EQ(ReadFile(dir / "file"), "old");
        EXPECT_EQ(Names(dir.String()), Lines{"file"});
    }
    EXPECT_TRUE(WithSmallDisk([&] { return Write(dir / "file", text.substr(0, 4096)); }));
    EXPECT_FALSE(
        WithSmallDisk([&] { return Write(dir / "file", text.substr(0, 4095) + "\n"); }));  // CR LF is two bytes
}

TEST(TextFiles, NoFileDescriptorStaysOpen) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directory(dir / "directory"));
    const auto open_descriptors = [] { return Names("/proc/self/fd").size(); };
    const std::size_t before = open_descriptors();
    EXPECT_TRUE(Write(dir / "file", "x"));
    EXPECT_FALSE(Write(dir / "directory", "x"));
    {
        const Recording recording("rename");
        EXPECT_FALSE(Write(dir / "file", "x"));
    }
    EXPECT_TRUE(ReadTextLines(dir / "file"));
    EXPECT_FALSE(ReadTextLines(dir / "directory"));
    EXPECT_FALSE(EnumerateDirectory(dir.String() + "\\*").empty());
    DeleteDirectory(dir / "directory");
    EXPECT_EQ(open_descriptors(), before);
}

TEST(TextFiles, AWriterThatDiesAtAnyStepLeavesTheOldOrTheNewContentWhole) {
    const TempDir dir;
    const struct {
        std::string step, content;
        Lines names;
    } cases[] = {
        {"write", "old", {"file", "file.new"}},
        {"sync file", "old", {"file", "file.new"}},
        {"rename", "old", {"file", "file.new"}},
        {"sync directory", std::string(10'000, 'x'), {"file"}},
    };
    for (const auto& [step, content, names] : cases) {
        WriteFile(dir / "file", "old");
        EXPECT_FALSE(InChild([&, deadly = step] {
            system_calls = {true, {}, {}, deadly, 0};
            const rlimit limit{4096, 4096};  // its signal is not ignored here, and ends the process amid the content
            const rlimit no_core{0, 0};
            if (setrlimit(RLIMIT_CORE, &no_core) != 0) return true;
            if (deadly == "write" && setrlimit(RLIMIT_FSIZE, &limit) != 0) return true;
            return Write(dir / "file", std::string(10'000, 'x')) || true;
        })) << step;
        EXPECT_EQ(ReadFile(dir / "file"), content) << step;
        EXPECT_EQ(Names(dir.String()), names) << step;
        EXPECT_TRUE(Write(dir / "file", "next")) << step;
        EXPECT_EQ(ReadFile(dir / "file"), "next") << step;
        EXPECT_EQ(Names(dir.String()), Lines{"file"}) << step;
    }
}

TEST(TextFiles, AWriterThatIsKilledLeavesTheOldOrTheNewContentWhole) {
    const TempDir dir;
    std::string short_text;
    std::string long_text;
    for (int i = 0; i < 2'000; ++i) short_text += "short " + std::to_string(i) + "\n";
    for (int i = 0; i < 20'000; ++i) long_text += "long " + std::to_string(i) + "\n";
    ASSERT_TRUE(Write(dir / "expected_short", short_text));
    ASSERT_TRUE(Write(dir / "expected_long", long_text));
    const std::string expected_short = ReadFile(dir / "expected_short");
    const std::string expected_long = ReadFile(dir / "expected_long");
    ASSERT_TRUE(Write(dir / "file", short_text));

    std::mt19937 random(100);  // NOLINT(bugprone-random-generator-seed)
    for (int round = 0; round < 100; ++round) {
        std::array<int, 2> written{};  // a byte for each write that the child has done
        ASSERT_EQ(pipe(written.data()), 0);
        const pid_t child = fork();
        if (child == 0) {
            for (bool is_long = true;; is_long = !is_long) {
                if (!WriteTextFile(dir / "file", is_long ? long_text : short_text, Durability::NotSynced)) _exit(1);
                if (write(written[1], ".", 1) != 1) _exit(2);
            }
        }
        for (int writes = 0; writes <= round % 3; ++writes) {
            char done = 0;
            EXPECT_EQ(read(written[0], &done, 1), 1);
        }
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 2'000);
        while (std::chrono::steady_clock::now() < end) {
        }
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));
        close(written[0]);
        close(written[1]);
        const std::string content = ReadFile(dir / "file");
        ASSERT_TRUE(content == expected_short || content == expected_long) << content.size();
    }
    EXPECT_TRUE(Write(dir / "file", "x"));
    EXPECT_EQ(Names(dir.String()), (Lines{"expected_long", "expected_short", "file"}));
}

// ---- several writers

TEST(TextFiles, WritersOfOneFileExcludeEachOther) {
    const TempDir dir;
    constexpr int writers = 6;
    constexpr int rounds = 60;
    ASSERT_TRUE(Write(dir / "file", "0\n"));
    const auto write_all = [&](int writer) {
        const std::string line = std::to_string(writer) + std::string(200, static_cast<char>('a' + writer)) + "\n";
        std::string text;
        for (int i = 0; i <= writer * 40; ++i) text += line;
        bool ok = true;
        for (int i = 0; i < rounds; ++i) ok = WriteTextFile(dir / "file", text, Durability::NotSynced) && ok;
        return ok;
    };
    const auto is_whole = [](const Lines& lines) {
        if (lines.empty()) return false;
        const auto writer = static_cast<std::size_t>(lines.front().front() - '0');
        return lines == Lines(lines.size(), lines.front()) && lines.size() == writer * 40 + 1;
    };

    std::vector<pid_t> children;  // half of the writers are processes, half are threads
    for (int writer = 0; writer < writers; writer += 2) {
        children.push_back(fork());
        if (children.back() == 0) _exit(write_all(writer) ? 0 : 1);
    }
    std::atomic<int> running = 0;
    std::atomic<bool> all_written = true;
    std::vector<std::jthread> threads;
    for (int writer = 1; writer < writers; writer += 2) {
        ++running;
        threads.emplace_back([&, writer] {
            if (!write_all(writer)) all_written = false;
            --running;
        });
    }
    do {
        const auto lines = ReadTextLines(dir / "file");
        EXPECT_TRUE(lines && is_whole(*lines));
    } while (running > 0);
    threads.clear();
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_TRUE(all_written);
    const auto lines = ReadTextLines(dir / "file");
    EXPECT_TRUE(lines && is_whole(*lines));
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
}

// Returns when somebody waits for a lock of the file, or after a minute.
bool AwaitWaiterFor(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return false;
    const std::string inode = ":" + std::to_string(status.st_ino) + " ";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < deadline) {
        std::ifstream locks("/proc/locks");
        for (std::string line; std::getline(locks, line);) {
            if (line.find("->") != std::string::npos && line.find(inode) != std::string::npos) return true;
        }
        std::this_thread::yield();
    }
    return false;
}

TEST(TextFiles, AWriterThatWaitedDoesNotTouchTheFileThatTheOtherHasRenamed) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    const int other = open((dir / "file.new").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(other, 0);
    ASSERT_EQ(flock(other, LOCK_EX), 0);

    bool written = false;
    std::thread writer([&] { written = Write(dir / "file", "new"); });
    EXPECT_TRUE(AwaitWaiterFor(other));
    EXPECT_EQ(ReadFile(dir / "file"), "old");
    EXPECT_EQ(write(other, "other's", 7), 7);
    fs::create_hard_link(dir / "file.new", dir / "renamed");
    fs::rename(dir / "file.new", dir / "file");
    close(other);
    writer.join();

    EXPECT_TRUE(written);
    EXPECT_EQ(ReadFile(dir / "renamed"), "other's");
    EXPECT_EQ(ReadFile(dir / "file"), "new");
    EXPECT_EQ(Names(dir.String()), (Lines{"file", "renamed"}));
}

TEST(TextFiles, AWriterThatWaitedMakesANewFileWhenTheOtherHasRemovedIts) {
    const TempDir dir;
    const int other = open((dir / "file.new").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(other, 0);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    bool written = false;
    std::thread writer([&] { written = Write(dir / "file", "new"); });
    EXPECT_TRUE(AwaitWaiterFor(other));
    fs::remove(dir / "file.new");
    close(other);
    writer.join();
    EXPECT_TRUE(written);
    EXPECT_EQ(ReadFile(dir / "file"), "new");
}

// ---- the program

TEST(Files, TheApplicationPathIsTheDirectoryOfTheProgram) {
    const fs::path program = fs::read_symlink("/proc/self/exe");
    EXPECT_EQ(GetApplicationPath() + "/" + program.filename().string(), program.string());
}

}  // namespace

}  // namespace tarvex
