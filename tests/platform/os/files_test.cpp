// Files and directories: what the settings and the logs rest on.

#include "platform/os/files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "testing/temp_dir.h"
#include "tests/platform/os/file_tools.h"

namespace tarvex {

namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;
using testing::Lines;
using testing::Names;
using testing::ReadFile;
using testing::TempDir;
using testing::Write;
using testing::WriteFile;

TEST(Files, APathWithAZeroByteNamesNothing) {
    const TempDir dir;
    WriteFile(dir / "file", "x");
    const std::string path = dir.String() + "\\file\0"s;
    EXPECT_FALSE(PathExists(path));
    EXPECT_FALSE(ReadTextLines(path));
    EXPECT_FALSE(Write(path, "y"));
    EXPECT_FALSE(CreateOneDirectory(dir.String() + "\\new\0"s));
    EXPECT_TRUE(EnumerateDirectory(dir.String() + "\\*\0"s).empty());
    DeleteDirectory(dir.String() + "\0"s);
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
    EXPECT_EQ(ReadFile(dir / "file"), "x");
}

TEST(Files, AMaskOfManyAsterisksIsMatchedWithoutDelay) {
    const TempDir dir;
    WriteFile(dir / std::string(250, 'a'), "");
    std::string mask = "\\";
    for (int i = 0; i < 60; ++i) mask += "a*";
    EXPECT_EQ(EnumerateDirectory(dir.String() + mask + "b").size(), 0U);
    EXPECT_EQ(EnumerateDirectory(dir.String() + mask).size(), 1U);
}

TEST(Files, ALargeDirectoryIsDeletedWhole) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directory(dir / "user0"));
    for (int i = 0; i < 3000; ++i) WriteFile(dir / ("user0/" + std::to_string(i)), "");
    DeleteDirectory(dir.String() + "\\user0\\");
    EXPECT_FALSE(fs::exists(dir / "user0"));
}

TEST(TextFiles, LinesAreReadWithoutTheirLineEnds) {
    const struct {
        std::string content;
        Lines lines;
    } cases[] = {
        {"", {}},
        {"\n", {""}},
        {"\r\n", {""}},
        {"a", {"a"}},
        {"a\n", {"a"}},
        {"a\r\nb\nc", {"a", "b", "c"}},
        {"a\n\n\r\nb\r\n", {"a", "", "", "b"}},
        {"a\r", {"a\r"}},
        {"a\rb\r\r\n", {"a\rb\r"}},
        {"\r", {"\r"}},
        {"a\0b\r\n\0"s, {"a\0b"s, "\0"s}},
        {" a \t\n", {" a \t"}},
        {"\x81\x40\x1A\xFF\n", {"\x81\x40\x1A\xFF"}},
    };
    const TempDir dir;
    for (const auto& [content, lines] : cases) {
        WriteFile(dir / "file", content);
        EXPECT_EQ(ReadTextLines(dir.String() + "\\file"), lines) << ::testing::PrintToString(content);
    }
}

TEST(TextFiles, EachLineFeedIsWrittenAsCrLf) {
    const struct {
        std::string text, content;
    } cases[] = {
        {"", ""},
        {"a", "a"},
        {"a\nb\n", "a\r\nb\r\n"},
        {"\n\n", "\r\n\r\n"},
        {"a\r\n", "a\r\r\n"},  // text mode knows no line end but LF
        {"\r", "\r"},
        {"\0\n\0"s, "\0\r\n\0"s},
        {"\x81\x40\xFF", "\x81\x40\xFF"},
    };
    const TempDir dir;
    for (const auto& [text, content] : cases) {
        for (const Durability durability : {Durability::Synced, Durability::NotSynced}) {
            EXPECT_TRUE(WriteTextFile(dir.String() + "\\file", text, durability));
            EXPECT_EQ(ReadFile(dir / "file"), content) << ::testing::PrintToString(text);
        }
    }
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
}

TEST(TextFiles, ALeftOverNewFileIsReplaced) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    WriteFile(dir / "file.new", "a torn and longer one than what follows");
    EXPECT_TRUE(Write(dir / "file", "new"));
    EXPECT_EQ(ReadFile(dir / "file"), "new");
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
}

TEST(TextFiles, ALeftOverNewFileGoesAlsoWhereNothingHasChanged) {
    const TempDir dir;
    WriteFile(dir / "file", "same");
    WriteFile(dir / "file.new", "left over");
    EXPECT_TRUE(WriteTextFile(dir / "file", "same", Durability::SyncedWhenChanged));
    EXPECT_EQ(ReadFile(dir / "file"), "same");
    EXPECT_EQ(Names(dir.String()), Lines{"file"});
}

}  // namespace

}  // namespace tarvex
