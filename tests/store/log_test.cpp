// The log of a profile.

#include "tarvex/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "testing/temp_dir.h"

namespace tarvex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

class ProfileLog : public ::testing::Test {
protected:
    ProfileLog() { log_.SetLogMode(1); }

    std::filesystem::path File() const { return dir_.Path() / "profile.log"; }

    TempDir dir_;
    CProfileLog log_;
};

TEST_F(ProfileLog, NewOneIsOffKeepsAllAndIsEmpty) {
    const CProfileLog log;
    EXPECT_EQ(log.log_mode, 0);
    EXPECT_EQ(log.log_size, 0);
    EXPECT_THAT(log.entries, IsEmpty());
    EXPECT_EQ(log.spare, "");
}

TEST_F(ProfileLog, AddLineCutsTrailingCrLfPairsOnly) {
    const std::vector<std::pair<const char*, const char*>> cases = {
        {"abc", "abc"},
        {"abc\r\n", "abc"},
        {"abc\r\n\r\n\r\n", "abc"},
        {"abc\n", "abc\n"},
        {"abc\r", "abc\r"},
        {"abc\r\n\n", "abc\r\n\n"},
        {"abc\n\r", "abc\n\r"},
        {"abc\r\r\n", "abc\r"},
        {"\r\nabc", "\r\nabc"},
        {"a\r\nb\r\n", "a\r\nb"},
        {"", ""},
        {"\r\n", ""},
        {"\r\n\r\n", ""},
        {" abc ", " abc "},
        {"\n", "\n"},
    };
    for (const auto& [text, entry] : cases) {
        CProfileLog log;
        log.SetLogMode(1);
        EXPECT_EQ(log.AddLine(text), 1);
        EXPECT_THAT(log.entries, ElementsAre(entry));
    }
}

TEST_F(ProfileLog, AnyModeButZeroIsOn) {
    for (const int mode : {1, 2, -1, std::numeric_limits<int>::min()}) {
        CProfileLog log;
        log.SetLogMode(mode);
        EXPECT_EQ(log.AddLine("abc"), 1) << mode;
        EXPECT_EQ(log.Save(dir_.String()), 1) << mode;
        EXPECT_EQ(log.Load(dir_.String()), 1) << mode;
        EXPECT_THAT(log.entries, ElementsAre("abc", "abc")) << mode;
        std::filesystem::remove(File());
    }
}

TEST_F(ProfileLog, SwitchedOffNothingIsReadAddedOrWritten) {
    WriteFile(File(), "old\r\n");
    log_.SetLogMode(0);
    EXPECT_EQ(log_.Load(dir_.String()), 1);
    EXPECT_EQ(log_.AddLine("new"), 0);
    EXPECT_THAT(log_.entries, IsEmpty());
    EXPECT_EQ(log_.Save(dir_.String()), 1);
    EXPECT_EQ(ReadFile(File()), "old\r\n");
}

TEST_F(ProfileLog, SwitchedOffNoFileIsCreatedAndAMissingOneIsNoFailure) {
    log_.SetLogMode(0);
    EXPECT_EQ(log_.Load(dir_.String()), 1);
    EXPECT_EQ(log_.Save(dir_.String()), 1);
    EXPECT_EQ(log_.Save(dir_ / "missing"), 1);
    EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(ProfileLog, LoadAppendsTheLinesOfTheFile) {
    WriteFile(File(), "a\r\n\r\n  b  \r\n;c\nd");
    log_.AddLine("first");
    EXPECT_EQ(log_.Load(dir_.String()), 1);
    EXPECT_THAT(log_.entries, ElementsAre("first", "a", "", "  b  ", ";c", "d"));
}

TEST_F(ProfileLog, MissingFileIsAFailureThatChangesNothing) {
    log_.AddLine("first");
    EXPECT_EQ(log_.Load(dir_.String()), 0);
    EXPECT_THAT(log_.entries, ElementsAre("first"));
}

TEST_F(ProfileLog, SaveWritesEachEntryAndKeepsIt) {
    log_.AddLine("a");
    log_.AddLine("");
    log_.AddLine("b");
    EXPECT_EQ(log_.Save(dir_.String()), 1);
    EXPECT_EQ(ReadFile(File()), "a\r\n\r\nb\r\n");
    EXPECT_THAT(log_.entries, ElementsAre("a", "", "b"));
}

TEST_F(ProfileLog, InnerLineBreakBecomesTwoLinesInTheFileAndLfInTheEntry) {
    log_.AddLine("\r\nabc");
    log_.AddLine("a\r\nb\nc\rd\r\r\ne");
    EXPECT_EQ(log_.Save(dir_.String()), 1);
    EXPECT_EQ(ReadFile(File()), "\r\nabc\r\na\r\nb\r\nc\rd\r\r\ne\r\n");
    EXPECT_THAT(log_.entries, ElementsAre("\nabc", "a\nb\nc\rd\r\ne"));

    CProfileLog next;
    next.SetLogMode(1);
    EXPECT_EQ(next.Load(dir_.String()), 1);
    EXPECT_THAT(next.entries, ElementsAre("", "abc", "a", "b", "c\rd\r", "e"));
}

TEST_F(ProfileLog, OnlyTheEntriesThatAreWrittenAreChanged) {
    log_.entries = {"a\r\nb", "c\r\nd"};
    log_.SetLogSize(1);
    EXPECT_EQ(log_.Save(dir_.String()), 1);
    EXPECT_THAT(log_.entries, ElementsAre("a\r\nb", "c\nd"));
}

struct SizeCase {
    int size;
    const char* file;
};

TEST_F(ProfileLog, SaveKeepsTheNewestEntries) {
    log_.entries = {"a", "b", "c", "d"};
    const std::vector<SizeCase> cases = {
        {0, "a\r\nb\r\nc\r\nd\r\n"},
        {1, "d\r\n"},
        {3, "b\r\nc\r\nd\r\n"},
        {4, "a\r\nb\r\nc\r\nd\r\n"},
        {5, "a\r\nb\r\nc\r\nd\r\n"},
        {std::numeric_limits<int>::max(), "a\r\nb\r\nc\r\nd\r\n"},
        {-1, ""},
        {-2, ""},
        {std::numeric_limits<int>::min(), ""},
    };
    for (const SizeCase& c : cases) {
        log_.SetLogSize(c.size);
        EXPECT_EQ(log_.Save(dir_.String()), 1) << c.size;
        EXPECT_TRUE(std::filesystem::exists(File()));
        EXPECT_EQ(ReadFile(File()), c.file) << c.size;
        EXPECT_THAT(log_.entries, ElementsAre("a", "b", "c", "d")) << "only the file is trimmed";
    }
}

TEST_F(ProfileLog, FiveOfThreeOldAndFourNewEntriesStay) {
    WriteFile(File(), "1\r\n2\r\n3\r\n");
    log_.SetLogSize(5);
    EXPECT_EQ(log_.Load(dir_.String()), 1);
    for (const char* entry : {"4", "5", "6", "7"}) EXPECT_EQ(log_.AddLine(entry), 1);
    EXPECT_EQ(log_.Save(dir_.String()), 1);
    EXPECT_EQ(ReadFile(File()), "3\r\n4\r\n5\r\n6\r\n7\r\n");
}

TEST_F(ProfileLog, WithoutALimitTheFileOnlyGrows) {
    std::string expected;
    for (int run = 0; run < 5; ++run) {
        CProfileLog log;
        log.SetLogMode(1);
        log.SetLogSize(0);
        EXPECT_EQ(log.Load(dir_.String()), run == 0 ? 0 : 1);
        EXPECT_EQ(log.AddLine("run " + std::to_string(run)), 1);
        EXPECT_EQ(log.Save(dir_.String()), 1);
        expected += "run " + std::to_string(run) + "\r\n";
        EXPECT_EQ(ReadFile(File()), expected);
    }
}

TEST_F(ProfileLog, AnEntryWithALineBreakMayExceedTheLimitByALine) {
    log_.SetLogSize(2);
    log_.entries = {"a", "\r\nb", "c"};
    EXPECT_EQ(log_.Save(dir_.String()), 1);
    EXPECT_EQ(ReadFile(File()), "\r\nb\r\nc\r\n");
}

TEST_F(ProfileLog, BytesAreWrittenAsTheyAre) {
    const CString bytes("\x83\x54\x81\x5B\0\xFF\x1B$B", 9);
    log_.AddLine(bytes);
    EXPECT_EQ(log_.Save(dir_.String()), 1);
    EXPECT_EQ(ReadFile(File()), bytes + "\r\n");
}

TEST_F(ProfileLog, FileThatCannotBeWrittenIsAFailureThatChangesNothing) {
    log_.AddLine("a\r\nb");
    EXPECT_EQ(log_.Save(dir_ / "missing"), 0);
    std::filesystem::create_directory(File());
    EXPECT_EQ(log_.Save(dir_.String()), 0);
    EXPECT_THAT(log_.entries, ElementsAre("a\r\nb"));
}

TEST_F(ProfileLog, ClearFreesTheEntries) {
    log_.AddLine("a");
    log_.Clear();
    EXPECT_THAT(log_.entries, IsEmpty());
    EXPECT_EQ(log_.entries.capacity(), 0u);
    EXPECT_EQ(log_.log_mode, 1);
}

}  // namespace
}  // namespace tarvex
