// The syntax of the settings files.

#include "store/settings_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <utility>
#include <vector>

#include "testing/temp_dir.h"

namespace tarvex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

constexpr std::array<std::string_view, 3> kHeaders = {"[popserver]", "[timer]", "[nickname]"};
constexpr std::size_t kPopServer = 0;
constexpr std::size_t kTimer = 1;
constexpr std::size_t kNickname = 2;

using Values = std::vector<std::pair<std::size_t, std::string>>;

Values Read(const std::vector<std::string>& lines, LineTrimming trimming = LineTrimming::BlanksAtBothEnds) {
    Values values;
    ReadSettingsLines(lines, trimming, kHeaders,
                      [&](std::size_t key, std::string_view value) { values.emplace_back(key, value); });
    return values;
}

TEST(SettingsFile, ValueFollowsItsHeader) {
    EXPECT_THAT(Read({"[timer]", "5", "", "[popserver]", "pop.example.org", ""}),
                ElementsAre(Pair(kTimer, "5"), Pair(kPopServer, "pop.example.org")));
}

TEST(SettingsFile, CommentsAndEmptyLinesSayNothing) {
    EXPECT_THAT(Read({"[timer]", "", ";5", "//6", "   ", "  ; 7", "  // 8", "5"}), ElementsAre(Pair(kTimer, "5")));
}

TEST(SettingsFile, ASingleSlashIsAValue) {
    EXPECT_THAT(Read({"[nickname]", "/x"}), ElementsAre(Pair(kNickname, "/x")));
}

TEST(SettingsFile, CommentedHeaderIsNoHeader) {
    EXPECT_THAT(Read({"[timer]", ";[nickname]", "//[nickname]", "5"}), ElementsAre(Pair(kTimer, "5")));
}

TEST(SettingsFile, HeaderIsRecognisedInEitherLetterCaseAndAnywhereInTheLine) {
    for (const char* header : {"[popserver]", "[POPSERVER]", "[PopServer]", "   [popserver]   more text",
                               "x[popserver]y", "[popserver]=1", "[obsolete][popserver]", "[[popserver]]"}) {
        EXPECT_THAT(Read({header, "Pop.Example"}), ElementsAre(Pair(kPopServer, "Pop.Example"))) << header;
    }
}

TEST(SettingsFile, OfTwoHeadersInALineTheFirstInTheOrderOfTheFileCounts) {
    EXPECT_THAT(Read({"[nickname][timer]", "5"}), ElementsAre(Pair(kTimer, "5")));
}

TEST(SettingsFile, HeaderLineIsNeverAValue) { EXPECT_THAT(Read({"[nickname]", "[timer]"}), IsEmpty()); }

TEST(SettingsFile, KeyWithoutItsBracketsIsAValue) {
    EXPECT_THAT(Read({"[nickname]", "timer", "[timer", "timer]", "[ timer"}),
                ElementsAre(Pair(kNickname, "timer"), Pair(kNickname, "[timer"), Pair(kNickname, "timer]"),
                            Pair(kNickname, "[ timer")));
}

TEST(SettingsFile, ValuesBelowAnUnknownHeaderAreIgnored) {
    for (const char* header : {"[obsolete]", "a [ b ] c", "]reversed[", "[]", "[ timer ]"}) {
        EXPECT_THAT(Read({"[nickname]", header, "lost", "[timer]", "5"}), ElementsAre(Pair(kTimer, "5"))) << header;
    }
}

TEST(SettingsFile, ValuesBeforeTheFirstHeaderAreIgnored) {
    EXPECT_THAT(Read({"5", "[timer]", "6"}), ElementsAre(Pair(kTimer, "6")));
}

TEST(SettingsFile, EveryValueLineBelowAHeaderIsHandedOnInOrder) {
    EXPECT_THAT(Read({"[timer]", "5", "", "7"}), ElementsAre(Pair(kTimer, "5"), Pair(kTimer, "7")));
}

// Both bytes of a bracket occur as the second byte of a double-byte character: 0x81 0x5B is the long vowel mark of
// every other Japanese word, 0x81 0x5D a hyphen.
TEST(SettingsFile, TrailByteOfADoubleByteCharacterIsNoBracket) {
    const std::string server_in_japanese = "\x83\x54\x81\x5B\x83\x6F\x81\x5B";
    const std::string between_trail_bytes = "\x81\x5Btimer\x81\x5D";
    const std::string only_closing_is_real = "\x81\x5Bobsolete]";
    EXPECT_THAT(Read({"[nickname]", server_in_japanese, server_in_japanese + "\x81\x5D", between_trail_bytes,
                      only_closing_is_real}),
                ElementsAre(Pair(kNickname, server_in_japanese), Pair(kNickname, server_in_japanese + "\x81\x5D"),
                            Pair(kNickname, between_trail_bytes), Pair(kNickname, only_closing_is_real)));
}

TEST(SettingsFile, HeaderBesideDoubleByteCharactersIsRecognised) {
    EXPECT_THAT(Read({"\x83\x54\x81\x5B[timer]\x83\x6F\x81\x5B", "5"}), ElementsAre(Pair(kTimer, "5")));
}

TEST(SettingsFile, TrimmingOfBlanksTakesOnlyBlanksAndTakesThemAtBothEnds) {
    EXPECT_THAT(Read({"[nickname]", "   a b   ", "\tx\t", " \t y\t "}, LineTrimming::BlanksAtBothEnds),
                ElementsAre(Pair(kNickname, "a b"), Pair(kNickname, "\tx\t"), Pair(kNickname, "\t y\t")));
}

TEST(SettingsFile, TrimmingOfBlanksLeavesATabBeforeASemicolon) {
    EXPECT_THAT(Read({"[nickname]", "\t;x"}, LineTrimming::BlanksAtBothEnds), ElementsAre(Pair(kNickname, "\t;x")));
}

TEST(SettingsFile, TrimmingOfWhiteSpaceTakesAnyButOnlyInFront) {
    EXPECT_THAT(Read({"[nickname]", " \t\n\v\f\r a b \t ", "\t;comment", "\t\r "}, LineTrimming::LeadingWhiteSpace),
                ElementsAre(Pair(kNickname, "a b \t ")));
}

TEST(SettingsFile, ControlAndHighBytesAreNoWhiteSpace) {
    for (const char byte : {'\x01', '\x08', '\x0E', '\x1C', '\x1F', '\x7F', '\xA0'}) {
        const std::string value(1, byte);
        EXPECT_THAT(Read({"[nickname]", value}, LineTrimming::LeadingWhiteSpace), ElementsAre(Pair(kNickname, value)));
    }
}

struct FileCase {
    const char* name;
    std::string content;
    Values expected;
};

TEST(SettingsFile, LineEndsMayBeCrLfOrLfAndTheLastOneMayBeMissing) {
    const TempDir dir;
    const std::vector<FileCase> cases = {
        {"CR LF", "[timer]\r\n5\r\n\r\n", {{kTimer, "5"}}},
        {"LF", "[timer]\n5\n\n", {{kTimer, "5"}}},
        {"mixed", "[timer]\r\n5\n[nickname]\nx\r\n", {{kTimer, "5"}, {kNickname, "x"}}},
        {"no last line end", "[timer]\r\n5", {{kTimer, "5"}}},
        {"empty file", "", {}},
    };
    for (const FileCase& c : cases) {
        WriteFile(dir / "test.def", c.content);
        Values values;
        CLoaded loaded;
        EXPECT_TRUE(ReadSettingsFile(
            dir.String() + "\\test.def", LineTrimming::LeadingWhiteSpace, kHeaders,
            [&](std::size_t key, std::string_view value) { values.emplace_back(key, value); }, loaded))
            << c.name;
        EXPECT_EQ(values, c.expected) << c.name;
        EXPECT_EQ(loaded.whole, !c.content.empty()) << c.name << ": somebody has cut it";
    }
}

TEST(SettingsFile, FileThatCannotBeReadYieldsNothing) {
    const TempDir dir;
    std::filesystem::create_directory(dir.Path() / "directory.def");
    for (const std::string name : {"\\missing.def", "\\directory.def", "\\missing\\test.def"}) {
        CLoaded loaded;
        EXPECT_FALSE(ReadSettingsFile(
            dir.String() + name, LineTrimming::LeadingWhiteSpace, kHeaders,
            [](std::size_t, std::string_view) { ADD_FAILURE() << "no value was expected"; }, loaded))
            << name;
        EXPECT_EQ(loaded.path, name == "\\directory.def" ? dir.String() + name : "")
            << "what is missing counts as read";
    }
}

TEST(SettingsText, EachKeyHasThreeLinesThatEndInCrLf) {
    const TempDir dir;
    SettingsText text;
    text.Add("[version]", "0");
    text.Add("[nickname]", "");
    text.Add("[timer]", " 5 ");
    EXPECT_TRUE(text.WriteTo(dir.String(), "\\test.def"));
    EXPECT_EQ(ReadFile(dir / "test.def"), "[version]\r\n0\r\n\r\n[nickname]\r\n\r\n\r\n[timer]\r\n 5 \r\n\r\n");
}

TEST(SettingsText, NothingOfTheOldContentIsKept) {
    const TempDir dir;
    WriteFile(dir / "test.def", "; a comment\r\n[obsolete]\r\n1\r\n" + std::string(1000, 'x'));
    SettingsText text;
    text.Add("[timer]", "5");
    EXPECT_TRUE(text.WriteTo(dir.String(), "\\test.def"));
    EXPECT_EQ(ReadFile(dir / "test.def"), "[timer]\r\n5\r\n\r\n");
}

TEST(SettingsText, LineBreakInAValueBecomesABlankSoThatItCannotForgeAHeader) {
    const TempDir dir;
    SettingsText text;
    text.Add("[nickname]", "a\r\n[timer]\n5\rb");
    EXPECT_TRUE(text.WriteTo(dir.String(), "\\test.def"));
    EXPECT_EQ(ReadFile(dir / "test.def"), "[nickname]\r\na  [timer] 5 b\r\n\r\n");
}

TEST(SettingsText, DirectoryMayEndWithABackslash) {
    const TempDir dir;
    SettingsText text;
    text.Add("[timer]", "5");
    EXPECT_TRUE(text.WriteTo(dir.String() + "\\", "\\test.def"));
    EXPECT_EQ(ReadFile(dir / "test.def"), "[timer]\r\n5\r\n\r\n");
}

TEST(SettingsText, EmptyDirectoryTextIsRefused) {
    EXPECT_FALSE(SettingsText().WriteTo("", "\\tarvex-test-of-an-empty-directory.def"));
    EXPECT_FALSE(std::filesystem::exists("/tarvex-test-of-an-empty-directory.def"));
    EXPECT_FALSE(std::filesystem::exists("tarvex-test-of-an-empty-directory.def"));
}

TEST(SettingsText, FileThatCannotBeWrittenIsAFailure) {
    const TempDir dir;
    WriteFile(dir / "file", "x");
    std::filesystem::create_directory(dir.Path() / "test.def");
    EXPECT_FALSE(SettingsText().WriteTo(dir / "missing", "\\test.def"));
    EXPECT_FALSE(SettingsText().WriteTo(dir / "file", "\\test.def"));
    EXPECT_FALSE(SettingsText().WriteTo(dir.String(), "\\test.def"));
}

}  // namespace
}  // namespace tarvex
