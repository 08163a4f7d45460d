// The small text operations over Shift-JIS bytes.

#include "platform/codec/text.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex {

namespace {

using namespace std::string_literals;

std::string EveryByte() {
    std::string bytes;
    for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
    return bytes;
}

TEST(Text, LeadBytesAreThoseOfTheCodePage) {
    std::string lead_bytes;
    for (const char c : EveryByte()) {
        if (IsLeadByte(static_cast<unsigned char>(c))) lead_bytes += c;
    }
    std::string expected;
    for (int i = 0x81; i <= 0x9F; ++i) expected += static_cast<char>(i);
    for (int i = 0xE0; i <= 0xFC; ++i) expected += static_cast<char>(i);
    EXPECT_EQ(lead_bytes, expected);
}

TEST(Text, TrailBytesAreThoseOfTheCodePage) {
    std::string trail_bytes;
    for (const char c : EveryByte()) {
        if (IsTrailByte(static_cast<unsigned char>(c))) trail_bytes += c;
    }
    std::string expected;
    for (int i = 0x40; i <= 0xFC; ++i) {
        if (i != 0x7F) expected += static_cast<char>(i);
    }
    EXPECT_EQ(trail_bytes, expected);
}

TEST(Text, ALeadByteWithoutATrailByteIsACharacterOfItsOwn) {
    const struct {
        std::string text;
        std::size_t bytes;
    } cases[] = {
        {"a", 1},     {"ab", 1},       {"\x81\x40", 2}, {"\xFC\xFC", 2},     {"\x81\x5B", 2}, {"\x81", 1},
        {"\x81=", 1}, {"\x81\x7F", 1}, {"\x81\xFD", 1}, {"\xB1\xB2", 1},     {"\x80\x40", 1}, {"\xA0\x40", 1},
        {"\xFD@", 1}, {"\x81\0"s, 1},  {"\0\x81"s, 1},  {"\x81\x81\x81", 2}, {"\xE0\x80", 2},
    };
    for (const auto& [text, bytes] : cases) EXPECT_EQ(CharacterBytes(text), bytes) << testing::PrintToString(text);
}

TEST(Text, WhiteSpaceIsNineToThirteenAndThirtyTwo) {
    std::string white_space;
    for (const char c : EveryByte()) {
        if (IsWhiteSpace(c)) white_space += c;
    }
    EXPECT_EQ(white_space, "\t\n\v\f\r ");
}

TEST(Text, TrimmingTakesBlanksOrWhiteSpaceFromItsEndsOnly) {
    const struct {
        std::string text, both, leading, trailing, leading_white_space;
    } cases[] = {
        {"", "", "", "", ""},
        {" ", "", "", "", ""},
        {"  a b  ", "a b", "a b  ", "  a b", "a b  "},
        {"\ta\t", "\ta\t", "\ta\t", "\ta\t", "a\t"},
        {" \t a \t ", "\t a \t", "\t a \t ", " \t a \t", "a \t "},
        {"\v\f\r\n x", "\v\f\r\n x", "\v\f\r\n x", "\v\f\r\n x", "x"},
        {"\0 a \0"s, "\0 a \0"s, "\0 a \0"s, "\0 a \0"s, "\0 a \0"s},
        {"\x81\x40", "\x81\x40", "\x81\x40", "\x81\x40", "\x81\x40"},  // the ideographic space is no blank
        {"\xA0"
         "a",
         "\xA0"
         "a",
         "\xA0"
         "a",
         "\xA0"
         "a",
         "\xA0"
         "a"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(TrimBlanks(each.text), each.both) << testing::PrintToString(each.text);
        EXPECT_EQ(TrimLeadingBlanks(each.text), each.leading) << testing::PrintToString(each.text);
        EXPECT_EQ(TrimTrailingBlanks(each.text), each.trailing) << testing::PrintToString(each.text);
        EXPECT_EQ(TrimLeadingWhiteSpace(each.text), each.leading_white_space) << testing::PrintToString(each.text);
    }
}

TEST(Text, CaseIsThatOfAsciiLettersAlone) {
    std::string lower = EveryByte().substr(0, 128);
    std::string upper = lower;
    for (int i = 'A'; i <= 'Z'; ++i) lower[static_cast<std::size_t>(i)] = static_cast<char>(i + 32);
    for (int i = 'a'; i <= 'z'; ++i) upper[static_cast<std::size_t>(i)] = static_cast<char>(i - 32);
    EXPECT_EQ(ToLower(EveryByte().substr(0, 128)), lower);
    EXPECT_EQ(ToUpper(EveryByte().substr(0, 128)), upper);
}

TEST(Text, CaseOfTrailBytesStays) {
    // The second bytes 0x41 and 0x61 are letters only where no lead byte stands before them.
    EXPECT_EQ(ToLower("A\x83"
                      "A\x81"
                      "=A"),
              "a\x83"
              "A\x81"
              "=a");
    EXPECT_EQ(ToUpper("a\x83"
                      "a\x81"
                      "=a"),
              "A\x83"
              "a\x81"
              "=A");
    EXPECT_EQ(ToLower("\xB1"
                      "A"),
              "\xB1"
              "a");  // half-width katakana is one byte
    EXPECT_EQ(ToLower("A\x81"), "a\x81");
}

TEST(Text, DecimalValueIsLenientAndSaturates) {
    const struct {
        std::string text;
        int value;
    } cases[] = {
        {"", 0},
        {"0", 0},
        {"5", 5},
        {"007", 7},
        {"  \t\r\n\v\f 12", 12},
        {"+12", 12},
        {"-12", -12},
        {"--12", 0},
        {"+-12", 0},
        {"- 12", 0},
        {"12abc", 12},
        {"12 34", 12},
        {"abc", 0},
        {"0x10", 0},
        {"1\0002"s, 1},
        {"\xA0"
         "1",
         0},
        {"2147483647", INT_MAX},
        {"2147483648", INT_MAX},
        {"-2147483648", INT_MIN},
        {"-2147483649", INT_MIN},
        {"99999999999999999999999999999999", INT_MAX},
        {"-99999999999999999999999999999999", INT_MIN},
        {"4294967297", INT_MAX},
        {"-", 0},
    };
    for (const auto& [text, value] : cases) EXPECT_EQ(DecimalValue(text), value) << testing::PrintToString(text);
}

TEST(Text, HeaderViewLowersLettersAndBlotsOutDoubleByteCharacters) {
    const struct {
        std::string line, view;
    } cases[] = {
        {"", ""},
        {"[POPServer] X", "[popserver] x"},
        {"\x81\x5B\x81\x5D", "\xFF\xFF\xFF\xFF"},  // trail bytes that look like brackets
        {"[\x83\x41]", "[\xFF\xFF]"},
        {"\x81[timer]", "\xFF\xFFtimer]"},  // the bracket belongs to the character before
        {"\x81"
         "=[Timer]",
         "\x81=[timer]"},  // a lead byte without a trail byte
        {"[Timer]\x81", "[timer]\x81"},
        {"\xB1[A]", "\xB1[a]"},
        {"\x81\x81[A]", "\xFF\xFF[a]"},  // a trail byte that could lead
        {"\0[A]"s, "\0[a]"s},
    };
    for (const auto& [line, view] : cases) EXPECT_EQ(HeaderView(line), view) << testing::PrintToString(line);
}

TEST(Text, HeaderViewIsAsLongAsTheLineAndNeverGainsABracket) {
    for (const char first : EveryByte()) {
        for (const char second : EveryByte()) {
            const std::string line = {'x', first, second, 'Y'};
            const std::string view = HeaderView(line);
            ASSERT_EQ(view.size(), line.size());
            for (std::size_t i = 0; i < line.size(); ++i) {
                const bool is_bracket = view[i] == '[' || view[i] == ']';
                ASSERT_TRUE(!is_bracket || view[i] == line[i]);
            }
        }
    }
}

TEST(Text, BlankLinesAndCommentsCountForNothing) {
    for (const std::string line : {"", ";", ";x", "; [popserver]", "//", "//x", "///"}) {
        EXPECT_TRUE(IsBlankOrComment(line)) << line;
    }
    for (const std::string line : {"/", "/ /", "x;", "x//", " ;", "\t", "[;]", "\\\\"}) {
        EXPECT_FALSE(IsBlankOrComment(line)) << line;
    }
}

}  // namespace

}  // namespace tarvex
