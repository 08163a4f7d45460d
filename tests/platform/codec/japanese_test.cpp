// Japanese encodings, compared with the system's converter over everything both can express.

#include "platform/codec/japanese.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "platform/codec/cp932_table.h"
#include "platform/codec/text.h"
#include "tests/platform/codec/reference_converter.h"

namespace tarvex {
namespace {

std::string FromJis(const std::string& text) {
    std::string result;
    JisToSJis(&text, &result);
    return result;
}
std::string FromEuc(const std::string& text) {
    std::string result;
    EucToSJis(&text, &result);
    return result;
}
std::string FromUtf8(const std::string& text) {
    std::string result;
    Utf8ToSJis(&text, &result);
    return result;
}
std::string ToJis(const std::string& text) {
    std::string result;
    SJisToJis(&text, &result);
    return result;
}

std::string Pair(int first, int second) { return {static_cast<char>(first), static_cast<char>(second)}; }

std::vector<std::string> DoubleByteCodes() {
    std::vector<std::string> codes;
    for (int lead = 0x81; lead <= 0xFC; ++lead) {
        for (int trail = 0x40; trail <= 0xFC; ++trail) {
            if (CharacterBytes(Pair(lead, trail)) == 2) codes.push_back(Pair(lead, trail));
        }
    }
    return codes;
}

const std::string kGeta = "\x81\xAC";

// ---- UTF-8

TEST(Utf8ToSJis, TakesEveryCharacterOfTheCodePage) {
    const testing::ReferenceConverter to_utf8("UTF-8", "CP932");
    // Of characters with several codes, the code that the Microsoft mapping takes; the system's converter agrees.
    const testing::ReferenceConverter to_cp932("CP932", "UTF-8");
    int characters = 0;
    for (const std::string& code : DoubleByteCodes()) {
        const auto utf8 = to_utf8(code);
        if (!utf8) continue;
        ++characters;
        const std::string converted = FromUtf8(*utf8);
        EXPECT_EQ(to_utf8(converted), utf8);
        EXPECT_EQ(converted, to_cp932(*utf8).value_or("none"));
    }
    EXPECT_EQ(characters, 9604);
}

TEST(Utf8ToSJis, TakesHalfWidthKatakanaAndAscii) {
    const testing::ReferenceConverter to_utf8("UTF-8", "CP932");
    for (int byte = 0xA1; byte <= 0xDF; ++byte) {
        const std::string code(1, static_cast<char>(byte));
        EXPECT_EQ(FromUtf8(*to_utf8(code)), code);
    }
    for (int byte = 0; byte < 0x80; ++byte) {
        const std::string code(1, static_cast<char>(byte));
        EXPECT_EQ(FromUtf8(code), code);
    }
}

struct Case {
    const char* name;
    std::string source;
    std::string expected;
};
std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.name; }

class Utf8 : public ::testing::TestWithParam<Case> {};

TEST_P(Utf8, BecomesShiftJis) { EXPECT_EQ(FromUtf8(GetParam().source), GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(
    All, Utf8,
    ::testing::Values(Case{"WaveDash", "\xE3\x80\x9C", "\x81\x60"}, Case{"FullWidthTilde", "\xEF\xBD\x9E", "\x81\x60"},
                      Case{"Minus", "\xE2\x88\x92", "\x81\x7C"}, Case{"Parallel", "\xE2\x80\x96", "\x81\x61"},
                      Case{"EmDash", "\xE2\x80\x94", "\x81\x5C"}, Case{"Cent", "\xC2\xA2", "\x81\x91"},
                      Case{"Pound", "\xC2\xA3", "\x81\x92"}, Case{"Not", "\xC2\xAC", "\x81\xCA"},
                      Case{"Yen", "\xC2\xA5", "\x81\x8F"}, Case{"Overline", "\xE2\x80\xBE", "\x81\x50"},
                      Case{"NoBreakBlank",
                           "a\xC2\xA0"
                           "b",
                           "a b"},
                      Case{"ByteOrderMark",
                           "\xEF\xBB\xBF"
                           "a",
                           "a"},
                      Case{"ZeroWidth", "a\xE2\x80\x8B\xE2\x80\x8C\xE2\x80\x8D\xE2\x81\xA0z", "az"},
                      Case{"VariationSelectors", "a\xEF\xB8\x8F\xF3\xA0\x84\x80z", "az"},
                      Case{"AccentedLatin", "\xC3\xA9\xC3\x84\xC5\x82\xC5\x9B\xE1\xBA\xBF", "eA" + kGeta + "se"},
                      Case{"EmojiIsOneGeta", "\xF0\x9F\x98\x80!", kGeta + "!"},
                      Case{"KoreanIsGeta", "\xED\x95\x9C\xEA\xB8\x80", kGeta + kGeta},
                      Case{"UserDefined", "\xEE\x80\x80\xEE\x9D\x97", "\xF0\x40\xF9\xFC"},
                      Case{"LoneContinuation",
                           "a\x80"
                           "b",
                           "a?b"},
                      Case{"Overlong", "\xC0\xAF", "??"}, Case{"OverlongThree", "\xE0\x80\xAF", "???"},
                      Case{"Surrogate", "\xED\xA0\x80", "???"}, Case{"TooHigh", "\xF4\x90\x80\x80", "????"},
                      Case{"CutShort", "a\xE3\x81", "a?"}, Case{"CutShortInside", "\xE3\x81z", "?z"},
                      Case{"CutShortFour", "\xF0\x9F\x98", "?"}, Case{"InvalidBytes", "\xFE\xFF", "??"}),
    [](const auto& test) { return test.param.name; });

TEST(IsUtf8, TellsWellFormedText) {
    EXPECT_TRUE(IsUtf8(""));
    EXPECT_TRUE(IsUtf8("plain"));
    EXPECT_TRUE(
        IsUtf8("\xE3\x81\x82"
               "a long tail of ASCII \xC3\xA9"));
    EXPECT_FALSE(IsUtf8("a long head of ASCII \xE3\x81"));
    EXPECT_FALSE(IsUtf8("\x82\xA0"));
}

// ---- ISO-2022-JP

TEST(JisToSJis, AllNinetyFourRowsFollowTheArithmetic) {
    std::set<std::string> seen;
    for (int row = 0x21; row <= 0x7E; ++row) {
        for (int cell = 0x21; cell <= 0x7E; ++cell) {
            const std::string sjis = FromJis("\x1B$B" + Pair(row, cell) + "\x1B(B");
            EXPECT_EQ(CharacterBytes(sjis), 2U);
            EXPECT_EQ(sjis.size(), 2U);
            EXPECT_TRUE(seen.insert(sjis).second);
            EXPECT_EQ(FromJis("\x1B$@" + Pair(row, cell) + "\x1B(J"), sjis);
            EXPECT_EQ(FromEuc(Pair(row | 0x80, cell | 0x80)), sjis);
            EXPECT_EQ(ToJis(sjis), "\x1B$B" + Pair(row, cell) + "\x1B(B");
        }
    }
}

class Jis : public ::testing::TestWithParam<Case> {};

TEST_P(Jis, BecomesShiftJis) { EXPECT_EQ(FromJis(GetParam().source), GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(All, Jis,
                         ::testing::Values(Case{"Ascii", "abc\r\n", "abc\r\n"},
                                           Case{"Kanji", "a\x1B$B$\"\x1B(Bb",
                                                "a\x82\xA0"
                                                "b"},
                                           Case{"HalfWidthKatakana", "\x1B(I12\x1B(B1",
                                                "\xB1\xB2"
                                                "1"},
                                           Case{"KatakanaBeyondTheSet", "\x1B(I`a\x1B(B", "`a"},
                                           Case{"Supplement", "\x1B$(D0!0\"\x1B(Ba", kGeta + kGeta + "a"},
                                           Case{"LineEndReturnsToAscii", "\x1B$B$\"\r\n$\"", "\x82\xA0\r\n$\""},
                                           Case{"LineFeedAloneToo", "\x1B$B$\"\n$\"", "\x82\xA0\n$\""},
                                           Case{"HighBytesPass", "\x82\xA0\xB1\xFF", "\x82\xA0\xB1\xFF"},
                                           Case{"UnknownEscapesPass", "a\x1B[0mb\x1B", "a\x1B[0mb\x1B"},
                                           Case{"BlankInsideKanjiPasses", "\x1B$B$\" $\"\x1B(B", "\x82\xA0 \x82\xA0"},
                                           Case{"HalfACharacter", "\x1B$B$", "?"},
                                           Case{"HalfACharacterBeforeAnEscape", "\x1B$B$\x1B(Ba", "?a"},
                                           Case{"HalfAnEscape", "a\x1B$", "a\x1B$"},
                                           Case{"HalfASupplementEscape", "a\x1B$(", "a\x1B$("},
                                           Case{"RowThirteen", "\x1B$B-!\x1B(B", "\x87\x40"}),
                         [](const auto& test) { return test.param.name; });

class Euc : public ::testing::TestWithParam<Case> {};

TEST_P(Euc, BecomesShiftJis) { EXPECT_EQ(FromEuc(GetParam().source), GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(All, Euc,
                         ::testing::Values(Case{"Kanji", "a\xA4\xA2z", "a\x82\xA0z"},
                                           Case{"HalfWidthKatakana", "\x8E\xB1", "\xB1"},
                                           Case{"ThreeBytesAreGeta", "\x8F\xB0\xA1z", kGeta + "z"},
                                           Case{"HalfACharacter", "a\xA4", "a?"}, Case{"BrokenPair", "\xA4z", "?z"},
                                           Case{"BrokenSingleShift",
                                                "\x8E"
                                                "a",
                                                "?a"},
                                           Case{"BrokenThreeBytes",
                                                "\x8F\xB0"
                                                "a",
                                                "??a"},
                                           Case{"OtherBytes", "\x80\xFF", "??"}),
                         [](const auto& test) { return test.param.name; });

// ---- writing ISO-2022-JP

class Written : public ::testing::TestWithParam<Case> {};

TEST_P(Written, IsIso2022Jp) {
    std::string result;
    const int converted = SJisToJis(&GetParam().source, &result);
    EXPECT_EQ(result, GetParam().expected);
    EXPECT_EQ(converted != 0, result.find("\x1B$B") != std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    All, Written,
    ::testing::Values(Case{"Ascii", "abc 1\r\n", "abc 1\r\n"},
                      Case{"Kanji",
                           "a\x82\xA0"
                           "b",
                           "a\x1B$B$\"\x1B(Bb"},
                      Case{"EndsInAscii", "\x82\xA0\x82\xA2", "\x1B$B$\"$$\x1B(B"},
                      Case{"LineEndsInAscii", "\x82\xA0\r\n\x82\xA0", "\x1B$B$\"\x1B(B\r\n\x1B$B$\"\x1B(B"},
                      Case{"HalfWidthBecomesFullWidth", "\xB1\xB2", "\x1B$B%\"%$\x1B(B"},
                      Case{"VoiceMarksAreJoined", "\xB6\xDE\xCA\xDF\xCA\xDE\xB3\xDE", "\x1B$B%,%Q%P%t\x1B(B"},
                      Case{"VoiceMarksThatJoinNothing", "\xB1\xDE\xB6\xDF\xDE", "\x1B$B%\"!+%+!,!+\x1B(B"},
                      Case{"IbmExtensionTakesNecsSelection", "\xFA\x5C", "\x1B$By!\x1B(B"},
                      Case{"IbmRomanNumeralTakesRowThirteen", "\xFA\x4A", "\x1B$B-5\x1B(B"},
                      Case{"IbmBecauseSignTakesTheStandardsCode", "\xFA\x5B", "\x1B$B\"h\x1B(B"},
                      Case{"UserDefinedIsGeta", "\xF0\x40", "\x1B$B\".\x1B(B"},
                      Case{"ControlsAreDropped", std::string("a\x1B$B\0b\x0E\x0F", 8) + "c", "a$Bbc"},
                      Case{"BrokenCharacters", "a\x82\x20\x80\xA0\xFD\x82", "a? ????"}),
    [](const auto& test) { return test.param.name; });

TEST(SJisToJis, EveryIbmExtensionHasACodeWithinTheRows) {
    const testing::ReferenceConverter to_utf8("UTF-8", "CP932");
    for (const std::string& code : DoubleByteCodes()) {
        if (static_cast<unsigned char>(code[0]) < 0xFA || !to_utf8(code)) continue;
        const std::string back = FromJis(ToJis(code));
        EXPECT_NE(back, kGeta) << *to_utf8(code);
        EXPECT_EQ(to_utf8(back), to_utf8(code));
    }
}

TEST(SJisToJis, IsSevenBitAndComesBackForEveryCode) {
    for (const std::string& code : DoubleByteCodes()) {
        const std::string jis = ToJis("x" + code + "y");
        for (const char c : jis) EXPECT_LT(static_cast<unsigned char>(c), 0x80);
        EXPECT_TRUE(jis.starts_with("x\x1B$B") && jis.ends_with("\x1B(By")) << jis;
    }
}

TEST(JapaneseCodecs, SourceMayBeTheTarget) {
    std::string text = "\x1B$B$\"\x1B(B";
    JisToSJis(&text, &text);
    EXPECT_EQ(text, "\x82\xA0");
    SJisToJis(&text, &text);
    EXPECT_EQ(text, "\x1B$B$\"\x1B(B");
}

TEST(Cp932Table, FoldingsAscendAndLeadToCharactersOfTheCodePage) {
    char16_t last = 0;
    for (const Folding& folding : kFoldings) {
        EXPECT_GT(folding.from, last);
        last = folding.from;
        if (folding.to < 0x80) continue;
        EXPECT_NE(std::ranges::find(kCp932ToUnicode, folding.to), kCp932ToUnicode.end());
    }
}

}  // namespace
}  // namespace tarvex
