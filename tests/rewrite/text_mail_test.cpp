// The reduced text mail, from message to message.

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "platform/codec/japanese.h"
#include "platform/codec/mail_header.h"
#include "tarvex/tree.h"
#include "tests/support/text_mail_invariants.h"

namespace tarvex {
namespace {

using namespace std::string_literals;

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
    for (const int htmltotext : {1, 5, -1}) {
        EXPECT_EQ(BodyOf(Reduced(mail, {.htmltotext = htmltotext})), "ab\r\nc.\r\n.\r\n") << htmltotext;
    }
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

TEST(TextMail, ACutTextEndsWithAByteThatIsBothATrailByteAndACharacter) {
    for (int i = 0; i < 256; ++i) {
        const auto byte = static_cast<char>(i);
        if (byte == '\x1B') continue;  // begins an escape sequence
        const bool stays = (i >= 0x40 && i <= 0x7E) || (i >= 0xA1 && i <= 0xDF);
        CString expected = stays ? CString("ab") + byte : CString("ab");
        SJisToJis(&expected, &expected);
        const CString mail = Reduced(CString("A: b\r\n\r\nab") + byte + "yz\r\n.\r\n", {.textonly = 3});
        EXPECT_EQ(BodyOf(mail), expected + "\r\n.\r\n") << i;
    }
}

TEST(TextMail, LimitsAtTheEdgeOfTheirType) {
    const CString mail = "A: b\r\n\r\nab1\r\n.\r\n";
    EXPECT_EQ(BodyOf(Reduced(mail, {.textonly = std::numeric_limits<int>::max()})), "ab1\r\n.\r\n");
    EXPECT_EQ(BodyOf(Reduced(mail, {.textonly = std::numeric_limits<int>::min()})), "ab1\r\n.\r\n");
    EXPECT_EQ(BodyOf(Reduced(mail, {.cutwhite = std::numeric_limits<int>::min()})), "ab1\r\n.\r\n");
    EXPECT_EQ(BodyOf(Reduced(mail, {.textonly = 1})), "a\r\n.\r\n");
}

TEST(TextMail, LimitCountsBytesOfShiftJisBeforeTheConversion) {
    const CString mail = "A: b\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n";
    // Six bytes of Shift-JIS, nine of UTF-8, twelve of ISO-2022-JP.
    const CString body = "\xE3\x82\xBD\xE3\x82\xBD\xE3\x82\xBD";
    EXPECT_EQ(BodyOf(Reduced(mail + body + "\r\n.\r\n", {.textonly = 6})), "\x1B$B%=%=%=\x1B(B\r\n.\r\n");
    EXPECT_EQ(BodyOf(Reduced(mail + body + "\r\n.\r\n", {.textonly = 5})), "\x1B$B%=%=\x1B(B\r\n.\r\n");
}

TEST(TextMail, OnlyOneTerminatorIsTakenOff) {
    EXPECT_EQ(BodyOf(Reduced("A: b\r\n\r\nx\r\n.\r\n.\r\n")), "x\r\n.\r\n.\r\n");
    EXPECT_EQ(BodyOf(Reduced("A: b\r\n\r\nx\r\n.\r\n\r\n.\r\n")), "x\r\n.\r\n\r\n.\r\n");
    EXPECT_EQ(BodyOf(Reduced("A: b\r\n\r\nx")), "x\r\n.\r\n");
    // The dot of an empty mail stands behind no line end of the text, so it stays as text.
    EXPECT_EQ(BodyOf(Reduced("A: b\r\n\r\n.\r\n")), ".\r\n\r\n.\r\n");
}

TEST(TextMail, FilterAppliesToThePlaceWhereTheTerminatorWas) {
    EXPECT_EQ(BodyOf(Reduced("A: b\r\n\r\nx\r\n\r\n\r\n.\r\n", {.cutwhite = 1})), "x\r\n\r\n.\r\n");
    EXPECT_EQ(BodyOf(Reduced("A: b\r\n\r\nx--y\r\n.\r\n", {.cutwhite = 1, .compress_words = "x"})), "x--y\r\n.\r\n");
}

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

// Encoded words that hold line ends and other controls, in many character sets and under odd names.
TEST(TextMail, NoEncodedWordBreaksTheHeader) {
    std::vector<CString> words = {
        "=?us-ascii?Q?a=0D=0ABcc:_e@x=0D=0A=0D=0Ab?=",
        "=?utf-8?Q?a=0ABcc:_e@x=00=1B$B=7F?=",
        "=?utf-7?Q?a+AA0ACg-Bcc:_e@x+AAAAGw-?=",
        "=?utf-16?B?/v8AYQANAAoAQgAAABsAfw==?=",
        "=?utf-16be?B?AGEADQAKAEIAAAAbAH8=?=",
        "=?utf-16le?B?YQANAAoAQgAAABsAfwA=?=",
        "=?utf-32be?B?AAAAYQAAAA0AAAAKAAAAAA==?=",
        "=?ucs-2?B?AGEADQAKAEI=?=",
        "=?iso-8859-1?Q?a=0D=0Ab=85=8Dc=9B?=",
        "=?ebcdic-us?B?gQ0lwg==?=",
        "=?ibm037?B?gQ0lwicA?=",
        "=?shift_jis?Q?=82=0D=0A=81?=",
        "=?shift_jis?Q?a=82?=",
        "=?iso-2022-jp?B?GyRCJA0KIhsoQg==?=",
        "=?iso-2022-jp?B?GyRCJA==?=",
        "=?euc-jp?Q?=8E=0D=0A=8F=A1=0A?=",
        "=?euc-jp?Q?=A4?=",
        "=?iso-2022-kr?B?GyQpQw4NCg8=?=",
        "=?gb18030?Q?=81=0D=0A=81=30=81=0A?=",
        "=?x-odd?Q?a=0D=0Ab?=",
        "=?utf-8//TRANSLIT?Q?a?=",
        "=?utf-8//IGNORE?Q?a=FF?=",
        "=?../../../../tmp/x?Q?a?=",
        "=?utf-8,ccs=utf-16?Q?a?=",
        "=??Q?a?=",
        "=?utf-8?Q?"
        "?=",
        "=?utf-8?B?"
        "?=",
        "=?utf-8?Q?=3D=3Fx=3FQ=3F=0D=0A=3F=3D?=",
        "=?us-ascii?Q?=3D=3Futf-8=3FQ=3F=3D0D=3D0ABcc:=3F=3D?=",
        "=?utf-8?Q?a b\r\n c?=",
        "\xFF\xFE\x80=?utf-8?Q?=80?=",
        "\x1B$B=?utf-8?Q?a?=",
        "\"\\=?utf-8?Q?a?=\\",
        "(=?utf-8?Q?=28?=<>,;:\"",
    };
    words.push_back("=?" + CString(70'000, 'x') + "?Q?a?=");
    words.push_back("=?utf-8?Q?" + CString(70'000, '=') + "?=");
    words.push_back("=?utf-8?B?" + CString(70'000, '4') + "?=");
    words.push_back("=?utf-8\0?Q?a?="s);
    words.push_back("a\0b\nBcc: e@x\rc\v\f"s);
    for (const CString& word : words) {
        CString mail;
        for (const char* name : {"Date", "From", "To", "Cc", "Subject", "Reply-To", "MIME-Version", "Content-Type"}) {
            mail.append(name).append(": ").append(word).append("\r\n");
        }
        const CString reduced = Reduced(mail + "\r\ntext\r\n.\r\n");
        EXPECT_EQ(testing::TextMailFault(reduced), "") << word;
        EXPECT_EQ(reduced.find("\r\nBcc"), CString::npos) << word;
    }
}

// What ends a text oddly, under every transfer encoding: a server takes one message, and all of it.
TEST(TextMail, NoEndOfATextEndsDataEarly) {
    const std::vector<CString> ends = {"",
                                       ".",
                                       "\r",
                                       "\n",
                                       "\r\n",
                                       "\r\n.",
                                       "\r\n.\r",
                                       "\n.\n",
                                       "\r.\r",
                                       "\n.\r\n",
                                       "\r\n.\n",
                                       "\r\n.\r\n",
                                       "\r\n..\r\n",
                                       "\r\n.\r\n.",
                                       "\x82",
                                       "\x1B$B$",
                                       "\r\n.\r\n\r",
                                       ".\r\n.\r\n",
                                       "\r\n\r\n.\r\n\r\n",
                                       "\r\n.\x1B(B\r\n"};
    for (const char* type : {"text/plain", "text/html", "text/plain; charset=utf-8", "text/plain; charset=us-ascii"}) {
        for (const CString& end : ends) {
            CString quoted;
            for (const char c : "x" + end) {
                constexpr std::string_view kDigits = "0123456789ABCDEF";
                quoted.append("=").append(1, kDigits[static_cast<unsigned char>(c) >> 4]).append(1, kDigits[c & 0x0F]);
            }
            for (const bool encode : {false, true}) {
                CString mail = CString("Content-Type: ") + type + "\r\nContent-Transfer-Encoding: ";
                mail.append(encode ? "quoted-printable\r\n\r\n" + quoted : "8bit\r\n\r\nx" + end);
                for (const CString& terminator : {CString("\r\n.\r\n"), CString()}) {
                    for (const Options& options : {Options{}, Options{.cutwhite = 1}, Options{.textonly = 3}}) {
                        EXPECT_EQ(testing::TextMailFault(Reduced(mail + terminator, options)), "")
                            << type << ::testing::PrintToString(end);
                    }
                }
            }
        }
    }
}

TEST(TextMail, IsSoundWhereverTheMessageIsCutOff) {
    const CString kanji = "\x1B$B2q5D\x1B(B";
    const std::vector<CString> messages = {
        "Subject: =?ISO-2022-JP?B?GyRCMnE1RBsoQg==?= =?utf-8?Q?=E4=BC=9A?=\r\n =?Shift_JIS?B?iu8=?=\r\nFrom: \"" +
            kanji + "\" <a@b>\r\nContent-Type: text/plain; charset=iso-2022-jp\r\n\r\n" + kanji + "\r\n.." + kanji +
            "\x1B(I12\x1B$(D0!\x1B(B\r\n.\r\n",
        "Content-Type: text/html; charset=utf-8\r\nContent-Transfer-Encoding: "
        "quoted-printable\r\n\r\n<p>=E4=BC=9A</p>=\r\n"
        "<!-- x --><div a=3D\"b\">&amp;lt;\xE4\xBC\x9A &nbsp;&#x41;</div>\r\n.\r\n",
        "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n--b\r\nContent-Type: multipart/alternative;\r\n "
        "boundary=bb\r\n\r\n"
        "--bb\r\nContent-Type: text/html\r\n\r\n<p>x\r\n--bb\r\nContent-Transfer-Encoding: base64\r\n"
        "Content-Type: text/plain; charset=euc-jp\r\n\r\nsqG1xI6xj7ChDQouDQo=\r\n--bb--\r\n--b--\r\n.\r\n",
        "Content-Transfer-Encoding: x-uuencode\r\n\r\nbegin 644 a\r\n%:&5L;&\\\r\n..86)C86)C86)C86)C86( "
        "\r\n`\r\nend\r\n.\r\n",
    };
    CPopProfile profile;
    for (const CString& message : messages) {
        for (std::size_t length = 0; length <= message.size(); ++length) {
            for (const Options& options : {Options{}, Options{.textonly = 7, .cutwhite = -1}, Options{.cutwhite = 1}}) {
                const CString cut(message, 0, length);
                CString mail = cut;
                const int reduced = profile.CutAsTextmail(&mail, options.textonly, options.cutwhite, options.htmltotext,
                                                          options.compress_words);
                ASSERT_EQ(reduced, cut.find("\r\n\r\n") == CString::npos ? 0 : 1);
                ASSERT_EQ(reduced != 0 ? testing::TextMailFault(mail) : CString(), "") << length;
            }
        }
    }
}

TEST(TextMail, EscapesOfTheSenderDoNotReachTheOutput) {
    const CString mail = Reduced(
        "Subject: =?us-ascii?Q?a=1B$Bb=00c=0Ed?=\r\nContent-Type: text/plain; charset=us-ascii\r\n"
        "\r\nx\x1B$By\x0Ez\r\n.\r\n");
    EXPECT_EQ(mail.find('\x1B'), CString::npos);
    EXPECT_EQ(mail.find('\x0E'), CString::npos);
    EXPECT_EQ(mail.find('\0'), CString::npos);
}

// ---- hostile sizes

CString Repeat(const CString& unit, std::size_t bytes) {
    CString text;
    while (text.size() < bytes) text += unit;
    return text;
}

TEST(TextMail, HostileMessagesTakeLittleTime) {
    constexpr std::size_t kBytes = 1 << 20;
    std::vector<CString> messages;
    for (const char* unit : {"=?utf-8?B?44GC?= ", "=?x-odd?Q?a?= ", "=?koi8-r?B?0A==?= =?koi8-u?B?0A==?= ", "=?", "(",
                             "(a)", "<", "\"", "\\", ",", "a,", "\x82\xA0", "\x82\xA0 a ", "a\x82\xA0",
                             "\xC3\xA4@\xC3\xA4 ", "\xC3\xA4@", " y\r\n", "\x1B$B"}) {
        messages.push_back("Subject: a\r\nFrom: " + Repeat(unit, kBytes) + "\r\n\r\nx\r\n.\r\n");
        messages.push_back("Subject: " + Repeat(unit, kBytes) + "\r\n\r\nx\r\n.\r\n");
    }
    messages.push_back(Repeat("Subject: x\r\n", 12 * 100'000) + "\r\nx\r\n.\r\n");
    for (const char* unit : {"--", "\x1B", "\x1B$B", "\r\n", "\r\n..", "\r\n.\r\n", "\xB1",
                             "\xB1"
                             "a",
                             "\xFA\x5C", "."}) {
        messages.push_back("A: b\r\n\r\n" + Repeat(unit, kBytes) + "\r\n.\r\n");
    }
    for (const char* unit : {"= ", "=", "=\r\n", "=4"}) {
        messages.push_back("Content-Transfer-Encoding: quoted-printable\r\n\r\n" + Repeat(unit, 10 * kBytes) +
                           "\r\n.\r\n");
    }
    const auto begin = std::chrono::steady_clock::now();
    for (CString& message : messages) message = Reduced(std::move(message), {.textonly = 1'000'000, .cutwhite = 1});
    // Far above what linear passes take, also under a sanitizer; far below what a quadratic one would.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

}  // namespace
}  // namespace tarvex
