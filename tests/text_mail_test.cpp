// The reduced text mail, from message to message.

#include <gtest/gtest.h>

#include <string>

#include "tarvex/tree.h"

namespace tarvex {
namespace {

const CString kDefaultWords = "- , \x81\x40";

struct Options {
    int textonly = -100;
    int cutwhite = 0;
    int htmltotext = 1;
    CString compress_words = kDefaultWords;
};

CString Reduced(CString mail, const Options& options = {}) {
    CPopProfile profile;
    EXPECT_EQ(
        profile.CutAsTextmail(&mail, options.textonly, options.cutwhite, options.htmltotext, options.compress_words),
        1);
    return mail;
}

CString BodyOf(const CString& mail) { return mail.substr(mail.find("\r\n\r\n") + 4); }

TEST(TextMail, NullAndATextWithoutBlankLineAreLeftAlone) {
    CPopProfile profile;
    EXPECT_EQ(profile.CutAsTextmail(nullptr, 0, 0, 1, kDefaultWords), 0);
    CString text = "Subject: x\r\nno blank line\r\n.\r\n";
    EXPECT_EQ(profile.CutAsTextmail(&text, 0, 0, 1, kDefaultWords), 0);
    EXPECT_EQ(text, "Subject: x\r\nno blank line\r\n.\r\n");
}

TEST(TextMail, HeaderLinesStandInTheirOrder) {
    EXPECT_EQ(Reduced("Received: x\r\n"
                      "Reply-To: r@x\r\n"
                      "MIME-Version: 1.0\r\n"
                      "Subject: hello\r\n"
                      "Cc: c@x\r\n"
                      "To: t@x\r\n"
                      "X-Other: y\r\n"
                      "From: f@x\r\n"
                      "Date: today\r\n"
                      "\r\n"
                      "text\r\n"
                      ".\r\n"),
              "Date: today\r\n"
              "From: f@x\r\n"
              "To: t@x\r\n"
              "CC: c@x\r\n"
              "Subject: hello\r\n"
              "Reply-To: r@x\r\n"
              "MIME-Version: 1.0\r\n"
              "Content-Type: text/plain; charset=\"US-ASCII\"\r\n"
              "\r\n"
              "text\r\n"
              ".\r\n");
}

TEST(TextMail, DateAndMimeVersionStandAlsoWhenEmpty) {
    EXPECT_EQ(Reduced("X: y\r\n\r\ntext\r\n.\r\n"),
              "Date: \r\nMIME-Version: \r\nContent-Type: text/plain; charset=\"US-ASCII\"\r\n\r\ntext\r\n.\r\n");
}

TEST(TextMail, JapaneseIsWrittenAsIso2022Jp) {
    EXPECT_EQ(Reduced("Subject: =?UTF-8?B?5Lya6K2w?=\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n"
                      "\xE4\xBC\x9A\xE8\xAD\xB0\r\nok\r\n.\r\n"),
              "Date: \r\nSubject: =?ISO-2022-JP?B?GyRCMnE1RBsoQg==?=\r\nMIME-Version: \r\n"
              "Content-Type: text/plain; charset=\"ISO-2022-JP\"\r\n\r\n\x1B$B2q5D\x1B(B\r\nok\r\n.\r\n");
}

TEST(TextMail, AsciiBodyUnderAJapaneseSubjectIsUsAscii) {
    EXPECT_NE(Reduced("Subject: \x1B$B2q5D\x1B(B\r\n\r\nok\r\n.\r\n").find("charset=\"US-ASCII\""), CString::npos);
}

TEST(TextMail, HtmlAloneIsEmptyWithoutHtmlToText) {
    const CString mail = "Content-Type: text/html\r\n\r\n<p>a b</p>c\r\n.\r\n";
    EXPECT_EQ(BodyOf(Reduced(mail, {.htmltotext = 0})), "\r\n.\r\n");
    // HTML loses its line ends, the one before the last line too, so the dot of that line stays as text.
    EXPECT_EQ(BodyOf(Reduced(mail)), "ab\r\nc.\r\n.\r\n");
}

TEST(TextMail, WhiteSpaceIsCutOrCompressed) {
    const CString mail = "A: b\r\n\r\na  b--c\r\n\r\nd\r\n.\r\n";
    EXPECT_EQ(BodyOf(Reduced(mail, {.cutwhite = 0})), "a  b--c\r\n\r\nd\r\n.\r\n");
    EXPECT_EQ(BodyOf(Reduced(mail, {.cutwhite = 1})), "a b-c\r\nd\r\n.\r\n");
    EXPECT_EQ(BodyOf(Reduced(mail, {.cutwhite = 5})), "a b-c\r\nd\r\n.\r\n");
    EXPECT_EQ(BodyOf(Reduced(mail, {.cutwhite = -1})), "abcd\r\n.\r\n");
}

struct LimitCase {
    const char* name;
    int limit;
    CString body;
    CString expected;
};

class Limit : public ::testing::TestWithParam<LimitCase> {};

TEST_P(Limit, CutsAndTrims) {
    const CString body =
        BodyOf(Reduced("A: b\r\n\r\n" + GetParam().body + "\r\n.\r\n", {.textonly = GetParam().limit}));
    EXPECT_EQ(body, GetParam().expected + "\r\n.\r\n");
}

INSTANTIATE_TEST_SUITE_P(
    All, Limit,
    ::testing::Values(
        LimitCase{"Zero", 0, "abc1", "abc1"}, LimitCase{"Negative", -5, "abc1", "abc1"},
        LimitCase{"LongEnough", 4, "abc1", "abc1"}, LimitCase{"Cut", 3, "abcdef", "abc"},
        LimitCase{"DigitsAtTheEndGo", 6, "ab 12.3x", "ab"}, LimitCase{"OnlyAfterACut", 100, "ab 12. ", "ab 12. "},
        LimitCase{"NothingIsLeft", 3, "12345", ""}, LimitCase{"LineEndsGo", 5, "abc\r\nd", "abc"},
        // 0x83 0x5C: cut behind the lead byte, it goes; a trail byte that is a letter by itself ends the loop.
        LimitCase{"LeadByteGoes", 3, "ab\x83\x5C", "ab"},
        LimitCase{"WholeCharacterStays", 4, "ab\x83\x5Cx", "ab\x1B$B%=\x1B(B"},
        // 0x82 0xA0: its trail byte is no letter by itself, so the character is trimmed to its lead byte and then away.
        LimitCase{"TrailByteThatIsNoCharacterGoes", 4, "ab\x82\xA0x", "ab"},
        LimitCase{"HalfWidthKatakanaStay", 3, "ab\xB1\xB2", "ab\x1B$B%\"\x1B(B"}),
    [](const auto& test) { return test.param.name; });

TEST(TextMail, FilterComesBeforeTheLimit) {
    EXPECT_EQ(BodyOf(Reduced("A: b\r\n\r\na - b - c - d\r\n.\r\n", {.textonly = 3, .cutwhite = -1})), "abc\r\n.\r\n");
}

// ---- hostile values

TEST(TextMail, DecodedValuesCannotForgeHeaderLines) {
    // "x\r\nBcc: evil@x\r\n\r\nbody" in Base64.
    const CString mail = Reduced("Subject: =?us-ascii?B?eA0KQmNjOiBldmlsQHgNCg0KYm9keQ==?=\r\n\r\ntext\r\n.\r\n");
    EXPECT_EQ(mail,
              "Date: \r\nSubject: x  Bcc: evil@x    body\r\nMIME-Version: \r\n"
              "Content-Type: text/plain; charset=\"US-ASCII\"\r\n\r\ntext\r\n.\r\n");
}

TEST(TextMail, EscapesOfTheSenderDoNotReachTheOutput) {
    const CString mail = Reduced(
        "Subject: =?us-ascii?Q?a=1B$Bb=00c=0Ed?=\r\nContent-Type: text/plain; charset=us-ascii\r\n"
        "\r\nx\x1B$By\x0Ez\r\n.\r\n");
    EXPECT_EQ(mail.find('\x1B'), CString::npos);
    EXPECT_EQ(mail.find('\x0E'), CString::npos);
    EXPECT_EQ(mail.find('\0'), CString::npos);
}

}  // namespace
}  // namespace tarvex
