// The readable text of a message.

#include "rewrite/mime_walk.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "tarvex/tree.h"
#include "tests/support/literal_walk.h"

namespace tarvex {
namespace {

struct Case {
    const char* name;
    CString message;
    CString text;        // with HTML accepted
    CString plain_only;  // without
};

std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.name; }

class ReadableText : public ::testing::TestWithParam<Case> {};

TEST_P(ReadableText, IsFound) {
    EXPECT_EQ(PickReadableText(GetParam().message, true), GetParam().text);
    EXPECT_EQ(PickReadableText(GetParam().message, false), GetParam().plain_only);
    CPopProfile profile;
    EXPECT_EQ(profile.PickText(GetParam().message, 0, -1), GetParam().text);
    EXPECT_EQ(profile.PickText(GetParam().message, 12345, 0), GetParam().plain_only);
}

Case Both(const char* name, const CString& message, const CString& text) { return {name, message, text, text}; }

const CString kMixed = "Content-Type: multipart/mixed; boundary=b\r\n\r\n";

CString Part(const CString& header, const CString& body) { return "--b\r\n" + header + "\r\n\r\n" + body + "\r\n"; }

INSTANTIATE_TEST_SUITE_P(
    SinglePart, ReadableText,
    ::testing::Values(
        Both("WithoutContentType", "Subject: x\r\n\r\nhello\r\n.\r\n", "hello\r\n.\r\n"),
        Both("Plain", "Content-Type: text/plain\r\n\r\nhello\r\n", "hello\r\n"),
        Both("NameInOtherCase", "CONTENT-TYPE: TEXT/PLAIN\r\n\r\nhello", "hello"),
        Case{"Html", "Content-Type: text/html\r\n\r\n<p>a b</p>c", "ab\r\nc", ""},
        Both("Image", "Content-Type: image/png\r\n\r\nhello", ""),
        Both("OtherText", "Content-Type: text/calendar\r\n\r\nhello", ""),
        Both("PlainAnywhereInTheType", "Content-Type: x-text/plain\r\n\r\nhello", "hello"),
        Case{"HtmlAnywhereInTheType", "Content-Type: x-text/html\r\n\r\n<b>a", "a", ""},
        Case{"StuffedDotOfHtmlGoesBeforeTheLineEnds", "Content-Type: text/html\r\n\r\na\r\n..b", "a.b", ""},
        Both("OnlyWhiteSpace", "Content-Type: text/plain\r\n\r\n \t\r\n \r\n", ""),
        Both("FormFeedIsText", "A: b\r\n\r\n \f", " \f"), Both("VerticalTabIsText", "A: b\r\n\r\n\v ", "\v "),
        Both("WithoutBlankLineAllIsBody", "just a line", "just a line"),
        Both("WithoutBlankLineTheFieldsStillCount", "Content-Type: image/png\r\nhello", ""),
        Both("LineEndsOfOtherBlankLinesStay", "A: b\r\n\r\n\r\n\r\nx", "\r\n\r\nx"),
        Both("DotStuffing", "A: b\r\n\r\n..\r\n...a\r\nb..\r\n..\r\n.\r\n", ".\r\n..a\r\nb..\r\n.\r\n.\r\n"),
        Both("FirstOfTwoContentTypes", "Content-Type: text/plain\r\nContent-Type: image/png\r\n\r\nx", "x"),
        Both("FoldedContentType", "Content-Type:\r\n text/plain;\r\n\tcharset=us-ascii\r\n\r\nx", "x")));

INSTANTIATE_TEST_SUITE_P(
    TransferEncoding, ReadableText,
    ::testing::Values(
        Both("Base64", "Content-Transfer-Encoding: base64\r\n\r\naGVs\r\nbG8=\r\n.\r\n", "hello"),
        Both("Base64InCapitals", "Content-Transfer-Encoding: BASE64\r\n\r\naGVsbG8\r\n.\r\n", "hello"),
        Both("QuotedPrintable", "Content-Transfer-Encoding: quoted-printable\r\n\r\na=3Db=\r\nc", "a=bc"),
        Both("UuEncode", "Content-Transfer-Encoding: x-uuencode\r\n\r\nbegin 644 a.txt\r\n%:&5L;&\\\r\n \r\nend\r\n",
             "hello"),
        Both("StuffedDotBehindASoftBreakStays", "Content-Transfer-Encoding: quoted-printable\r\n\r\na=\r\n..b\r\n..c",
             "a..b\r\n.c"),
        Both("DotOfBase64TextGoes", "Content-Transfer-Encoding: base64\r\n\r\nYQ0KLi5i", "a\r\n.b"),
        Both("Base64EndsAtAFooterInClear",
             "Content-Transfer-Encoding: base64\r\n\r\naGVs\r\nbG8h\r\n___\r\nList of x@y\r\n", "hello!"),
        Both("Base64AfterSomethingElseIsReadOnAllLines",
             "Content-Transfer-Encoding: base64\r\n\r\n-\r\naGVs\r\nbG8h\r\n", "hello!"),
        Both("BareLineFeedsOfBase64TextAreLineEnds", "Content-Transfer-Encoding: base64\r\n\r\nYQpiDQpjCgpkCg==\r\n",
             "a\r\nb\r\nc\r\n\r\nd\r\n"),
        Both("SevenBit", "Content-Transfer-Encoding: 7bit\r\n\r\naGVsbG8=", "aGVsbG8="),
        Both("UuEncodeWithoutItsX", "Content-Transfer-Encoding: uuencode\r\n\r\nbegin 644 a\r\n", "begin 644 a\r\n"),
        Both("UuEncodeWinsOverQuotedPrintable",
             "Content-Transfer-Encoding: quoted-printable x-uuencode\r\n\r\nbegin 644 a\r\n#86)C\r\nend\r\n", "abc"),
        Both("Base64WinsOverUuEncode", "Content-Transfer-Encoding: x-uuencode base64\r\n\r\naGVsbG8=", "hello"),
        Both("Base64WinsOverQuotedPrintable",
             "Content-Transfer-Encoding: quoted-printable base64\r\n\r\naGVsbG8=", "hello")));

INSTANTIATE_TEST_SUITE_P(
    Charset, ReadableText,
    ::testing::Values(
        Both("Iso2022Jp", "Content-Type: text/plain; charset=ISO-2022-JP\r\n\r\n\x1B$B$\"\x1B(B", "\x82\xA0"),
        Both("NoneIsIso2022Jp", "Content-Type: text/plain\r\n\r\n\x1B$B$\"\x1B(B", "\x82\xA0"),
        Both("UnknownIsIso2022Jp", "Content-Type: text/plain; charset=x-odd\r\n\r\n\x1B$B$\"\x1B(B", "\x82\xA0"),
        Both("ShiftJisPasses", "Content-Type: text/plain; charset=Shift_JIS\r\n\r\n\x82\xA0\x83\x5C",
             "\x82\xA0\x83\x5C"),
        Both("Utf8", "Content-Type: text/plain; charset=\"UTF-8\"\r\n\r\n\xE3\x81\x82", "\x82\xA0"),
        Both("EucJp", "Content-Type: text/plain; charset=EUC-JP\r\n\r\n\xA4\xA2", "\x82\xA0"),
        Both("WithoutLabelItMayBeUtf8", "Content-Type: text/plain\r\n\r\n\xE3\x81\x82 \xE2\x80\xA2",
             "\x82\xA0 \x81\x45"),
        Both("WithAWrongLabelToo", "Content-Type: text/plain; charset=iso-2022-jp\r\n\r\n\xE3\x81\x82", "\x82\xA0"),
        Both("OrEucJp", "Content-Type: text/plain\r\n\r\n\xA4\xA2\xA4\xA4\xB0\xA1", "\x82\xA0\x82\xA2\x88\x9F"),
        Both("OrEucJpWithFewKana",
             "Content-Type: "
             "text/plain\r\n\r\n\xC6\xFC\xCB\xDC\xB8\xEC\xA4\xCE\xB5\xAD\xBB\xF6\xA1\xA2\xA5\xCD\xBF\xB7\xA1\xA3",
             "\x93\xFA\x96{\x8C\xEA\x82\xCC\x8BL\x8E\x96\x81\x41\x83l\x90V\x81\x42"),
        Both("HalfWidthKatakanaStay", "Content-Type: text/plain\r\n\r\n\xB1\xD8\xB6\xDE\xC4\xB3",
             "\xB1\xD8\xB6\xDE\xC4\xB3"),
        Both("UsAsciiIsLeftAlone", "Content-Type: text/plain; charset=us-ascii\r\n\r\n\x1B$B$\"\x1B(B",
             "\x1B$B$\"\x1B(B")));

INSTANTIATE_TEST_SUITE_P(
    Multipart, ReadableText,
    ::testing::Values(
        Both("FirstText",
             kMixed + Part("Content-Type: text/plain", "one") + Part("Content-Type: text/plain", "two") + "--b--",
             "one"),
        Both("SkipsOtherParts",
             kMixed + Part("Content-Type: image/png", "one") + Part("Content-Type: text/plain", "two") + "--b--",
             "two"),
        Both("SkipsWhiteParts", kMixed + Part("A: b", " \r\n\t") + Part("A: b", "two") + "--b--", "two"),
        Both("NestedHtmlIsNeverTaken", kMixed + Part("Content-Type: text/html", "<b>one</b>") + "--b--", ""),
        Both("PreambleIsNoPart", kMixed + "preamble\r\n" + Part("A: b", "one") + "--b--", "one"),
        Both("LastPartNeedsItsDelimiter", kMixed + "--b\r\n\r\none\r\n", ""),
        Both("LastDelimiterNeedNotClose", kMixed + "--b\r\n\r\none\r\n--b\r\n", "one"),
        Both("WalkStopsAtTheLastCompletePart", kMixed + Part("Content-Type: image/png", "one") + "--b\r\n\r\ntwo", ""),
        Both("NothingBehindTheClosingDelimiter",
             kMixed + Part("Content-Type: image/png", "one") + "--b--\r\n" + Part("A: b", "two") + "--b--", ""),
        Both("EvenTheFirstDelimiterMayClose", kMixed + "--b--\r\n\r\none\r\n--b--", "one"),
        Both("LongerLinesMatch", kMixed + "--bcd\r\n\r\none\r\n--bxy", "one"),
        Both("OtherDelimitersDoNot", kMixed + "--b\r\n\r\none\r\n--a\r\ntwo\r\n--b--", "one\r\n--a\r\ntwo"),
        Both("BoundaryInItsOwnCase", "Content-Type: Multipart/Mixed; Boundary=aB\r\n\r\n--aB\r\n\r\none\r\n--aB--",
             "one"),
        Both("BoundaryInOtherCaseDoesNotMatch",
             "Content-Type: multipart/mixed; boundary=aB\r\n\r\n--AB\r\n\r\none\r\n--AB--", ""),
        Both("QuotedBoundary",
             "Content-Type: multipart/mixed; boundary=\"b\"; charset=x\r\n\r\n--b\r\n\r\none\r\n--b--", "one"),
        Both("BoundaryEndsAtABlank", "Content-Type: multipart/mixed; boundary=b charset\r\n\r\n--b\r\n\r\none\r\n--b--",
             "one"),
        Both("QuotedBoundaryIsCutAtItsBlank",
             "Content-Type: multipart/mixed; boundary=\"b c\"\r\n\r\n--b\r\n\r\none\r\n--b--", "one"),
        Both("BoundaryEndsAtASemicolonEvenBehindABlank",
             "Content-Type: multipart/mixed; boundary=b c; d\r\n\r\n--b\r\n\r\nno\r\n--b c\r\n\r\none\r\n--b c--",
             "one"),
        Both("SemicolonAtItsBeginningIsOfTheBoundary",
             "Content-Type: multipart/mixed; boundary=;b\r\n\r\n--\r\n\r\nno\r\n--;b\r\n\r\none\r\n--;b--", "one"),
        Both("BlankAtItsBeginningIsOfTheBoundary",
             "Content-Type: multipart/mixed; boundary= b\r\n\r\n--\r\n\r\nno\r\n-- b\r\n\r\none\r\n-- b--", "one"),
        Both("MultipartAnywhereInTheType", "Content-Type: x-multipart/mixed; boundary=b\r\n\r\n--b\r\n\r\none\r\n--b--",
             "one"),
        Both("WithoutBoundaryNoText", "Content-Type: multipart/mixed\r\n\r\n--b\r\n\r\none\r\n--b--", ""),
        Both("EmptyBoundaryMatchesEveryDelimiter",
             "Content-Type: multipart/mixed; boundary=\"\"\r\n\r\n--\r\n\r\none\r\n--\r\n", "one"),
        Both("NestedDepthFirst",
             kMixed +
                 Part("Content-Type: multipart/alternative; boundary=i",
                      "--i\r\nContent-Type: text/html\r\n\r\nx\r\n--i\r\n\r\ninner\r\n--i--") +
                 Part("A: b", "outer") + "--b--",
             "inner"),
        Both("NestedWithoutText",
             kMixed +
                 Part("Content-Type: multipart/alternative; boundary=i",
                      "--i\r\nContent-Type: text/html\r\n\r\nx\r\n--i--") +
                 Part("A: b", "outer") + "--b--",
             "outer"),
        Both("OuterDelimiterEndsTheInnerParts",
             kMixed + Part("Content-Type: multipart/alternative; boundary=i", "--i\r\n\r\ninner") +
                 Part("A: b", "outer") + "--b--",
             "outer"),
        Both("InnerBoundaryThatBeginsWithTheOuter",
             kMixed + Part("Content-Type: multipart/alternative; boundary=bb", "--bb\r\n\r\ninner\r\n--bb--") +
                 Part("A: b", "outer") + "--b--",
             // The inner delimiter line begins with the outer boundary, so a part of the outer one begins there, with a
             // header line "b".
             "inner"),
        Both("PartWithoutBlankLine", kMixed + "--b\r\nContent-Type: image/png\r\n--b\r\n\r\ntwo\r\n--b--", "two")));

// ---- hostile messages

CString Repeat(const CString& unit, std::size_t bytes) {
    CString text;
    while (text.size() < bytes) text += unit;
    return text;
}

CString Nested(int levels, bool closed) {
    CString message;
    CString end;
    for (int i = 0; i < levels; ++i) {
        const CString boundary = "b" + std::to_string(i) + "x";
        message += "Content-Type: multipart/mixed; boundary=" + boundary + "\r\n\r\n--" + boundary + "\r\n";
        if (closed) end = "\r\n--" + boundary + "--" + end;
    }
    return message + "Content-Type: image/png\r\n\r\nx" + end;
}

CString NestedWithoutBlankLines(int levels) {
    CString message = "A: b\r\nContent-Type: multipart/mixed; boundary=o\r\n\r\n--o";
    CString end;
    for (int i = 0; i < levels; ++i) {
        const CString boundary = "b" + std::to_string(i) + "x";
        message += "\r\nContent-Type: multipart/mixed; boundary=" + boundary + "\r\n--" + boundary;
        end = "\r\n--" + boundary + end;
    }
    return message + "\r\nContent-Type: image/png" + end + "\r\n--o--";
}

// Made by the test that needs it: some take long to make.
class HostileMessage : public ::testing::TestWithParam<std::pair<const char*, CString (*)()>> {};

TEST_P(HostileMessage, TakesLittleTime) {
    const CString message = GetParam().second();
    const auto begin = std::chrono::steady_clock::now();
    PickReadableText(message, true);
    // Far above what a linear walk takes, also under a sanitizer; far below what a quadratic one would.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

constexpr auto kMade = [](const char* name, CString (*make)()) { return std::pair(name, make); };

INSTANTIATE_TEST_SUITE_P(
    All, HostileMessage,
    ::testing::Values(
        kMade("NestedTwentyThousandDeep", [] { return Nested(20'000, true); }),
        kMade("NestedAndNeverClosed", [] { return Nested(20'000, false); }),
        kMade("NestedWithoutBlankLines", [] { return NestedWithoutBlankLines(20'000); }),
        kMade("AHundredThousandEmptyParts",
              [] { return kMixed + Repeat("\r\n--b\r\nContent-Type: image/png\r\n\r\n", 4'000'000) + "\r\n--b--"; }),
        kMade("EmptyPartsWithAnEmptyBoundary",
              [] { return "Content-Type: multipart/mixed; boundary=\"\"\r\n\r\n" + Repeat("\r\n--", 1 << 20); }),
        kMade("BoundaryOfSeventyThousandBytes",
              [] {
                  return "Content-Type: multipart/mixed; boundary=" + CString(70'000, 'b') + "\r\n\r\n" +
                         Repeat("\r\n--" + CString(69'999, 'b'), 1 << 20);
              }),
        kMade("EndlessHeader", [] { return Repeat("X-Field: value\r\n", 1 << 20); }),
        kMade("EndlessFolding", [] { return "Content-Type: x\r\n" + Repeat(" y\r\n", 1 << 20); }),
        kMade("ManyLongEqualLines", [] { return kMixed + Repeat("\r\n--" + CString(1000, 'c'), 1 << 20); })),
    [](const auto& test) { return test.param.first; });

TEST(ReadableText, NothingBehindTheMessageIsRead) {
    const CString message = kMixed + Part("Content-Type: image/png", "one") + Part("A: b", "two") + "--b--";
    for (std::size_t length = 0; length <= message.size(); ++length) {
        const CString other = message.substr(0, length) + CString(40, '-') + "\r\n--b\r\n\r\n";
        const std::string_view cut = std::string_view(message).substr(0, length);
        EXPECT_EQ(PickReadableText(cut, true), PickReadableText(std::string_view(other).substr(0, length), true));
    }
}

// ---- the same as a literal walk

TEST(ReadableText, IsThatOfALiteralWalkOverRandomNestings) {
    const std::vector<CString> pieces = {"\r\n",
                                         "\r\n--a",
                                         "\r\n--aa",
                                         "\r\n--ab",
                                         "\r\n--",
                                         "--",
                                         "\r\nContent-Type: multipart/mixed; boundary=a",
                                         "\r\nContent-Type: multipart/mixed; boundary=aa",
                                         "\r\nContent-Type: multipart/mixed; boundary=ab",
                                         "\r\nContent-Type: image/png",
                                         "\r\nContent-Type: text/plain",
                                         "\r\n\r\n",
                                         "x"};
    unsigned state = 1;
    for (int round = 0; round < 20'000; ++round) {
        CString message = "Content-Type: multipart/mixed; boundary=a\r\n\r\n";
        for (int i = 0; i < 14; ++i) {
            state = state * 1664525 + 1013904223;
            message += pieces[(state >> 16) % pieces.size()];
        }
        ASSERT_EQ(PickReadableText(message, true), testing::LiteralWalk(message, true)) << message;
    }
}

}  // namespace
}  // namespace tarvex
