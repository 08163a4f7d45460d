// Quoted-printable and uuencode.

#include "platform/codec/transfer_encoding.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvex {
namespace {

struct Case {
    const char* name;
    std::string source;
    std::string expected;
};
std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.name; }

class QuotedPrintable : public ::testing::TestWithParam<Case> {};

TEST_P(QuotedPrintable, IsDecoded) {
    std::string text = GetParam().source;
    QuotedPrintableDecode(&text, &text);
    EXPECT_EQ(text, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    All, QuotedPrintable,
    ::testing::Values(Case{"Plain", "abc\r\n", "abc\r\n"}, Case{"Bytes", "=41=e3=E3", "A\xE3\xE3"},
                      Case{"SoftBreak", "ab=\r\ncd", "abcd"}, Case{"SoftBreakOfALineFeed", "ab=\ncd", "abcd"},
                      Case{"BlanksBeforeTheLineEnd", "ab= \t \r\ncd", "abcd"},
                      Case{"HardBreakStays", "ab\r\ncd", "ab\r\ncd"},
                      Case{"MalformedStays", "a=b=4=G1=zz", "a=b=4=G1=zz"}, Case{"EqualsAtTheEndStays", "ab=", "ab="},
                      Case{"HalfAByteAtTheEndStays", "ab=4", "ab=4"}, Case{"BlanksAtTheEndStay", "ab= ", "ab= "},
                      Case{"LoneCarriageReturnIsNoBreak", "ab=\rcd", "ab=\rcd"}, Case{"EqualsEquals", "==41", "=A"},
                      Case{"ZeroByte", "a=00b", std::string("a\0b", 3)}, Case{"Empty", "", ""}),
    [](const auto& test) { return test.param.name; });

class UuEncoded : public ::testing::TestWithParam<Case> {};

TEST_P(UuEncoded, IsDecoded) {
    std::string text = GetParam().source;
    UUDecode(&text, &text);
    EXPECT_EQ(text, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    All, UuEncoded,
    ::testing::Values(
        Case{"Text", "begin 644 a\r\n%:&5L;&\\\r\n`\r\nend\r\n", "hello"},
        Case{"LineFeedsAlone", "begin 644 a\n%:&5L;&\\\n`\nend\n", "hello"},
        Case{"TextBeforeIsSkipped", "hello\r\n\r\nbegin 644 a\r\n#86)C\r\nend\r\n", "abc"},
        Case{"TextBehindIsSkipped", "begin 644 a\r\n#86)C\r\n`\r\nend\r\n#86)C\r\n", "abc"},
        Case{"WithoutBegin", "#86)C\r\nend\r\n", ""}, Case{"WithoutEnd", "begin 644 a\r\n#86)C\r\n", "abc"},
        Case{"MissingTrailingBlanks", "begin 644 a\r\n#\r\n$86)C\r\nend\r\n", std::string("\0\0\0abc\0", 7)},
        Case{"BlanksAndBackquotesAreZero", "begin 644 a\r\n#  ``\r\nend\r\n", std::string("\0\0\0", 3)},
        Case{"LineOfFourteenBytes", "begin 644 a\r\n.86)C86)C86)C86)C86( \r\nend\r\n", "abcabcabcabcab"},
        Case{"StuffedDotIsTakenOff", "begin 644 a\r\n..86)C86)C86)C86)C86( \r\nend\r\n", "abcabcabcabcab"},
        Case{"LineThatIsNoUuencodeEndsIt", "begin 644 a\r\n#86)C\r\n\r\n#86)C\r\nend\r\n", "abc"},
        Case{"CutShort", "begin 644 a\r\n#86", std::string("a`\0", 3)}, Case{"Empty", "", ""}),
    [](const auto& test) { return test.param.name; });

TEST(UuEncoded, LinesThatLieAboutTheirLengthMakeNoMoreThanTheirSource) {
    for (const char* line : {"_\n", "M\r\n", "..\n", ".\n"}) {
        std::string text = "begin 644 a\n";
        while (text.size() < 1 << 20) text += line;
        std::string decoded;
        UUDecode(&text, &decoded);
        EXPECT_EQ(decoded, std::string(text.size(), '\0')) << line;
    }
}

}  // namespace
}  // namespace tarvex
