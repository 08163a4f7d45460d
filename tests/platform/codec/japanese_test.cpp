// Japanese encodings, compared with the system's converter over everything both can express.

#include "platform/codec/japanese.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "platform/codec/cp932_table.h"
#include "platform/codec/text.h"
#include "tarvex/conversion.h"
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

// As a reader sees it: both sides UTF-8.
TEST(Utf8ToSJis, ReadsWhatItCannotWriteAsWhatItLooksLike) {
    const Case cases[] = {
        {"PaddingOfAPreview", "\u00AD\u034F\u2007\u200C\u200E\u202A\u061C\uFEFF\u180E", " "},
        {"BlanksOfAllWidths", "a\u2002b\u2003c\u2009d\u202Fe\u3000f", "a b c d e\u3000f"},
        {"Dashes", "1\u20132\u20113\u20124", "1-2-3-4"},
        {"Bullets", "\u2022\u00B7\u22C5\u2219", "\u30FB\u30FB\u30FB\u30FB"},
        {"Guillemets", "\u00ABa\u00BB\u2039b\u203A", "\u226Aa\u226B\u3008b\u3009"},
        {"Signs", "\u2122\u00A9\u00AE\u20AC5", "(TM)(C)(R)EUR5"},
        {"FractionsAndPowers", "1\u00BD m\u00B2 x\u2075 10\u00B2\u2074", "1 1/2 m^2 x^5 10^24"},
        {"LatinLetters", "Stra\u00DFe \u00F8re \u00E6 \u0142 \u0111 \u0153 \u1EBF", "Strasse ore ae l d oe e"},
        {"GreekAndUkrainian", "\u03AC\u03C2 \u0457\u0456\u0454\u0491", "\u03B1\u03C3 ii\u0435\u0433"},
        {"Decomposed", "\u304B\u3099\u30CF\u309A\u30A6\u3099\u0438\u0306e\u0301", "\u304C\u30D1\u30F4\u0439e"},
        {"MarkThatJoinsNothing", "\u3042\u3099", "\u3042\u309B"},
        {"OlderKanji", "\u9DD7\u5653\u525D\u9830\u5861\u4FF1\u7E6B\U00020BB7",
         "\u9D0E\u5618\u5265\u982C\u586B\u5036\u7E4B\u5409"},
        {"KanjiThatItHas", "\u9AD9\uFA11\u2460", "\u9AD9\uFA11\u2460"},
        {"Family", "\U0001F468\u200D\U0001F469\u200D\U0001F467!", "\u3013!"},
        {"SkinAndSex", "\U0001F3C3\U0001F3FD\u200D\u2642\uFE0F!", "\u3013!"},
        {"FlagsAndKeycaps", "\U0001F1EF\U0001F1F5 1\uFE0F\u20E3 \U0001F3F3\uFE0F\u200D\U0001F308", "JP 1 \u3013"},
        {"TwoSigns", "\U0001F600\U0001F600", "\u3013\u3013"},
        {"Frames", "\u2554\u2550\u2557\u256D\u2588", "\u250F\u2501\u2513\u250C\u25A0"},
        {"BoxesAndCircles", "\u2776\U0001F170\U0001F197\U0001F51F", "(1)AOK10"},
        {"ArrowsAndMarks", "\u27A1\u2714\u2716\u25AA", "\u2192\u25CB\u00D7\u25A0"},
    };
    for (const Case& c : cases) EXPECT_EQ(Utf8FromText(FromUtf8(c.source)), c.expected) << c.name;
}

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
                      Case{"AccentedLatin", "\xC3\xA9\xC3\x84\xC5\x82\xC5\x9B\xE1\xBA\xBF", "eAlse"},
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
    const testing::ReferenceConverter to_utf8("UTF-8", "CP932");
    std::set<std::string> seen;
    for (int row = 0x21; row <= 0x7E; ++row) {
        for (int cell = 0x21; cell <= 0x7E; ++cell) {
            const std::string sjis = FromJis("\x1B$B" + Pair(row, cell) + "\x1B(B");
            EXPECT_EQ(CharacterBytes(sjis), 2U);
            EXPECT_EQ(sjis.size(), 2U);
            EXPECT_TRUE(seen.insert(sjis).second);
            EXPECT_EQ(FromJis("\x1B$@" + Pair(row, cell) + "\x1B(J"), sjis);
            EXPECT_EQ(FromEuc(Pair(row | 0x80, cell | 0x80)), sjis);
            EXPECT_EQ(ToJis(sjis), "\x1B$B" + (to_utf8(sjis) ? Pair(row, cell) : "\".") + "\x1B(B");
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
                      Case{"ControlsAreDropped", std::string("a\x1BQ\0b\x0E\x0F", 7) + "c", "aQbc"},
                      Case{"ReadsItsOwnForm", "a\x1B$B$\"\x1B(B", "a\x1B$B$\"\x1B(B"},
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

// Every character of Unicode, as it is sent: strict readers take it, but for the rows that only Microsoft's converter
// knows and everybody reads (NEC's special characters in row 13, its selection of IBM's in rows 89 to 92).
TEST(SJisToJis, WhatIsWrittenIsInTheStandardOrInTheRowsThatEverybodyReads) {
    const testing::ReferenceConverter to_utf8("UTF-8", "CP932");
    std::set<std::string> written;
    for (char32_t code = 0x20; code < 0x110000; ++code) {
        if (code < 0xD800 || code >= 0xE000) written.insert(FromUtf8(testing::Utf8Of(code)));
    }
    for (const std::string& code : DoubleByteCodes()) written.insert(code);
    for (const std::string& text : written) {
        const std::string jis = ToJis(text);
        const std::string back = FromJis(jis);
        for (std::string_view rest = back; !rest.empty(); rest.remove_prefix(CharacterBytes(rest)))
            EXPECT_TRUE(to_utf8(std::string(rest.substr(0, CharacterBytes(rest))))) << text << ' ' << jis;
        for (std::size_t at = 0; (at = jis.find("\x1B$B", at)) != std::string::npos;) {
            for (at += 3; jis[at] != '\x1B'; at += 2) {
                const int row = jis[at] - 0x20;
                EXPECT_TRUE(row <= 8 || row == 13 || (row >= 16 && row <= 84) || (row >= 89 && row <= 92)) << jis;
            }
        }
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

TEST(Cp932Table, LookAlikesAscendAndLeadToWhatCanBeWritten) {
    char32_t last = 0;
    for (const LookAlike& one : kLookAlikes) {
        EXPECT_GT(one.character, last);
        last = one.character;
        if (one.written >= kFirstCode) {
            EXPECT_NE(FromUtf8(Utf8FromText(Pair(one.written >> 8, one.written & 0xFF))), kGeta);
        } else if (one.written >= kFirstText) {
            EXPECT_GT(kLookAlikeTexts[one.written - kFirstText].size(), 1U);
        }
    }
}

// Nothing that a stranger writes for what it looks like ends a name, begins an address or makes an encoded word.
TEST(Cp932Table, LookAlikesAreNoStructureOfAHeader) {
    const std::string_view structure = "<>@,;:\"\\[]=?";
    const auto holds_structure = [&](std::string_view text) {
        for (; !text.empty(); text.remove_prefix(CharacterBytes(text))) {
            if (structure.find(text[0]) != std::string_view::npos) return true;
        }
        return false;
    };
    for (const LookAlike& one : kLookAlikes) {
        EXPECT_TRUE(one.written >= kFirstText || structure.find(static_cast<char>(one.written)) == std::string::npos ||
                    one.character == 0xFFFD)
            << static_cast<unsigned>(one.character);
    }
    EXPECT_TRUE(std::ranges::none_of(kLookAlikeTexts, holds_structure));
}

}  // namespace
}  // namespace tarvex
