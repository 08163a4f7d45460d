// Mail headers: reading and writing.

#include "platform/codec/mail_header.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "platform/codec/japanese.h"
#include "tests/support/text_mail_invariants.h"

namespace tarvex {
namespace {

struct Case {
    const char* name;
    std::string source;
    std::string expected;
};
std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.name; }

std::string SubjectOf(const std::string& header) {
    CMailInfo info;
    MakeMailInfo(header, &info);
    return info.subject;
}

// ---- reading

class Subject : public ::testing::TestWithParam<Case> {};

TEST_P(Subject, IsRead) {
    EXPECT_EQ(SubjectOf("A: b\r\nSubject: " + GetParam().source + "\r\n\r\nbody"), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    All, Subject,
    ::testing::Values(
        Case{"Plain", "hello", "hello"}, Case{"BlanksAround", " \t hello  ", "hello"}, Case{"Empty", "", ""},
        Case{"FoldedLinesAreJoinedWithOneBlank", "a\r\n \t b\r\n\tc", "a b c"},
        Case{"BlanksInsideStay", "a  b", "a  b"}, Case{"EncodedB", "=?UTF-8?B?44GC?=", "\x82\xA0"},
        Case{"EncodedQ", "=?utf-8?q?=E3=81=82_x?=", "\x82\xA0 x"},
        Case{"EncodedJis", "=?ISO-2022-JP?B?GyRCJCIbKEI=?=", "\x82\xA0"},
        Case{"EncodedShiftJis", "=?Shift_JIS?B?gqA=?=", "\x82\xA0"},
        Case{"EncodedEuc", "=?EUC-JP?B?pKI=?=", "\x82\xA0"}, Case{"EncodedLatin", "=?iso-8859-1?Q?caf=E9?=", "cafe"},
        Case{"EncodedCyrillic", "=?koi8-r?B?0A==?=", "\x84\x81"},
        Case{"LanguageBehindTheCharset", "=?UTF-8*ja?B?44GC?=", "\x82\xA0"},
        Case{"TextAround", "a =?UTF-8?B?44GC?= b", "a \x82\xA0 b"},
        Case{"BlanksBetweenWordsGo", "=?UTF-8?B?44GC?= \t =?UTF-8?B?44GE?=", "\x82\xA0\x82\xA2"},
        Case{"FoldedWords", "=?UTF-8?B?44GC?=\r\n =?UTF-8?B?44GE?=", "\x82\xA0\x82\xA2"},
        Case{"CharacterSplitOverWords", "=?UTF-8?B?44E=?= =?UTF-8?B?gg==?=", "\x82\xA0"},
        Case{"JisSplitOverWords", "=?ISO-2022-JP?B?GyRCJA==?= =?iso-2022-jp?B?IhsoQg==?=", "\x82\xA0"},
        Case{"WordsOfTwoCharsets", "=?UTF-8?B?44GC?= =?EUC-JP?B?pKI=?=", "\x82\xA0\x82\xA0"},
        Case{"WordsWithoutBlanks", "x=?UTF-8?B?44GC?=y=?UTF-8?B?44GE?=", "x\x82\xA0y\x82\xA2"},
        Case{"InQuotes", "\"=?UTF-8?B?44GC?=\"", "\"\x82\xA0\""},
        Case{"UnknownCharsetStays", "a =?x-odd?B?44GC?= b", "a =?x-odd?B?44GC?= b"},
        Case{"UnknownCharsetsKeepTheirBlank", "=?x-odd?B?YQ==?= =?UTF-8?B?44GC?=", "=?x-odd?B?YQ==?= \x82\xA0"},
        Case{"InvalidForItsCharsetStays", "=?utf-16be?B?2AA=?=", "=?utf-16be?B?2AA=?="},
        Case{"OddCharsetNameStays", "=?../../x?B?YQ==?=", "=?../../x?B?YQ==?="},
        Case{"UnknownEncodingStays", "=?UTF-8?X?44GC?=", "=?UTF-8?X?44GC?="},
        Case{"UnfinishedStays", "=?UTF-8?B?44GC", "=?UTF-8?B?44GC"}, Case{"BeginningStays", "a =?", "a =?"},
        Case{"NotEvenACharset", "=?=?UTF-8?B?44GC?=", "=?\x82\xA0"}, Case{"RawUtf8", "\xE3\x81\x82", "\x82\xA0"},
        Case{"RawShiftJis", "\x82\xA0\xB1", "\x82\xA0\xB1"}, Case{"RawJis", "\x1B$B$\"\x1B(B", "\x82\xA0"},
        Case{"RawJisThatLooksLikeAWord", "\x1B$B=?=?\x1B(B", "\x8F\x5E\x8F\x5E"},
        Case{"ControlsBecomeBlanks", "=?us-ascii?Q?a=0D=0Ab=00c=1Bd=7F?=", "a  b c d"}, Case{"TabsToo", "a\tb", "a b"}),
    [](const auto& test) { return test.param.name; });

// From and Subject hold the same source: only in a list of addresses is there structure to guard.
struct AddressCase {
    const char* name;
    std::string source;
    std::string from;
    std::string written;  // the From line of the text mail
};
std::ostream& operator<<(std::ostream& out, const AddressCase& c) { return out << c.name; }

class AddressWord : public ::testing::TestWithParam<AddressCase> {};

std::string Encoded(const std::string& shift_jis);

TEST_P(AddressWord, IsNeverStructure) {
    CMailInfo info;
    MakeMailInfo("From: " + GetParam().source + "\r\n\r\n", &info);
    EXPECT_EQ(info.from, GetParam().from);
    EXPECT_EQ(Encoded("From: " + info.from), "From: " + GetParam().written);
}

INSTANTIATE_TEST_SUITE_P(
    All, AddressWord,
    ::testing::Values(AddressCase{"PlainNameStays", "=?utf-8?q?A_B?= <a@b>", "A B <a@b>", "A B <a@b>"},
                      AddressCase{"CommaIsQuoted", "=?utf-8?q?B=2C_A?= <a@b>", "\"B, A\" <a@b>", "\"B, A\" <a@b>"},
                      AddressCase{"JapaneseCommaIsEncodedAgain", "=?utf-8?b?44GCLA==?= <a@b>", "\"\x82\xA0,\" <a@b>",
                                  "=?ISO-2022-JP?B?GyRCJCIbKEIs?= <a@b>"},
                      AddressCase{"AddressOfAnotherIsQuoted", "=?utf-8?q?x_=3Cx=40y=3E=2C?= <a@b>",
                                  "\"x <x@y>,\" <a@b>", "\"x <x@y>,\" <a@b>"},
                      AddressCase{"QuoteAndBackslashAreEscaped", "=?utf-8?q?=22=5C?= <a@b>", "\"\\\"\\\\\" <a@b>",
                                  "\"\\\"\\\\\" <a@b>"},
                      AddressCase{"InQuotesTheyAreEscapedAlone", "\"=?utf-8?q?x=22=2C?=\" <a@b>", "\"x\\\",\" <a@b>",
                                  "\"x\\\",\" <a@b>"},
                      AddressCase{"InACommentItsBracketsAreEscaped", "a@b (=?utf-8?q?x)=2C?=)", "a@b (x\\),)",
                                  "a@b (x\\),)"},
                      AddressCase{"BehindAQuotedNameItIsQuotedAgain", "\"a\" =?utf-8?q?,?= <a@b>", "\"a\" \",\" <a@b>",
                                  "\"a\" \",\" <a@b>"},
                      AddressCase{"BehindAnEscapedQuoteItIsStillInside", "\"\\\" =?utf-8?q?,?=\" <a@b>",
                                  "\"\\\" ,\" <a@b>", "\"\\\" ,\" <a@b>"},
                      AddressCase{"TrailByteThatIsABackslashIsNone", "=?shift_jis?b?lFw=?= <a@b>", "\x94\\ <a@b>",
                                  "=?ISO-2022-JP?B?GyRCRz0bKEI=?= <a@b>"}),
    [](const auto& test) { return test.param.name; });

TEST(MailInfo, NamesAreReadInEitherCaseAndWithBlanksBeforeTheColon) {
    CMailInfo info;
    MakeMailInfo("SUBJECT : a\r\nfrom\t: b\r\nRePly-To:c\r\n\r\n", &info);
    EXPECT_EQ(info.subject, "a");
    EXPECT_EQ(info.from, "b");
    EXPECT_EQ(info.reply_to, "c");
}

TEST(MailInfo, FirstOfARepeatedFieldCounts) {
    EXPECT_EQ(SubjectOf("Subject: one\r\nSubject: two\r\n\r\n"), "one");
    EXPECT_EQ(SubjectOf("Subject:\r\nSubject: two\r\n\r\n"), "");
}

TEST(MailInfo, LinesThatAreNoFieldsAreSkipped) {
    EXPECT_EQ(SubjectOf("From x Mon Jan  1\r\nodd line\r\n: no name\r\n  lost\r\nSubject: a\r\n\r\n"), "a");
}

TEST(MailInfo, ReadsNothingBehindTheBlankLine) {
    EXPECT_EQ(SubjectOf("A: b\r\n\r\nSubject: body"), "");
    EXPECT_EQ(SubjectOf("\r\n\r\nSubject: body"), "");
    EXPECT_EQ(SubjectOf("\r\nSubject: a\r\n\r\n"), "a");
}

TEST(MailInfo, WithoutABlankLineAllIsHeaderUpToADelimiter) {
    EXPECT_EQ(SubjectOf("A: b\r\nSubject: a"), "a");
    EXPECT_EQ(SubjectOf("A: b\r\n--x\r\nSubject: a"), "");
    EXPECT_EQ(SubjectOf("--x\r\nSubject: a"), "");
}

TEST(MailInfo, EveryFieldHasItsPlace) {
    CMailInfo info;
    MakeMailInfo(
        "Date: 1\r\nFrom: 2\r\nReply-To: 3\r\nMIME-Version: 4\r\nTo: 5\r\nSubject: 6\r\nCc: 7\r\nContent-Type: 8\r\n"
        "Content-Transfer-Encoding: 9\r\nContent-Disposition: 10\r\nContent-ID: 11\r\nContent-Description: 12\r\n"
        "Sender: 13\r\nBcc: 14\r\nMessage-ID: 15\r\nIn-Reply-To: 16\r\nReferences: 17\r\nReturn-Path: 18\r\n"
        "Received: 19\r\nX-Mailer: 20\r\nX-Priority: 21\r\nX-Other: 22\r\n\r\nbody",
        &info);
    const std::vector<std::string> values = {info.date,
                                             info.from,
                                             info.reply_to,
                                             info.mime_version,
                                             info.to,
                                             info.subject,
                                             info.cc,
                                             info.content_type,
                                             info.content_transfer_encoding,
                                             info.content_disposition,
                                             info.content_id,
                                             info.content_description,
                                             info.sender,
                                             info.bcc,
                                             info.message_id,
                                             info.in_reply_to,
                                             info.references,
                                             info.return_path,
                                             info.received,
                                             info.mailer,
                                             info.priority};
    for (std::size_t i = 0; i < values.size(); ++i) EXPECT_EQ(values[i], std::to_string(i + 1));
    EXPECT_EQ(info.field_count, 22);
    EXPECT_EQ(info.has_blank_line, 1);
    EXPECT_EQ(info.message_bytes, info.body_offset + 6);

    CMailInfo copy(info);
    EXPECT_EQ(copy.priority, "21");
    MakeMailInfo("X: y", &info);
    EXPECT_EQ(info.priority, "");
    EXPECT_EQ(info.has_blank_line, 0);
}

TEST(MailInfo, ContentFieldsStandAsTheyAre) {
    const ContentFields fields = ReadContentFields(
        "content-TYPE: Multipart/Mixed;\r\n\tboundary=\"=?x?B?YQ==?=\"\r\nContent-Transfer-Encoding : BASE64");
    EXPECT_EQ(fields.content_type, "Multipart/Mixed; boundary=\"=?x?B?YQ==?=\"");
    EXPECT_EQ(fields.content_transfer_encoding, "BASE64");
}

std::string Repeat(const std::string& unit, std::size_t bytes) {
    std::string text;
    while (text.size() < bytes) text += unit;
    return text;
}

TEST(MailInfo, HostileHeadersAreLinear) {
    const auto begin = std::chrono::steady_clock::now();
    std::string charsets;
    for (int i = 0; i < 30'000; ++i) charsets += "=?cp" + std::to_string(i) + "?B?YQ==?= x ";
    for (const std::string& value : {Repeat("=?", 1 << 20), Repeat("=?x?B?", 1 << 20),
                                     Repeat("=?x?b?y", 1 << 20) + "?=", Repeat("=?UTF-8?B?44GC?= ", 1 << 20),
                                     Repeat("=?UTF-8?B?44GC?= =?EUC-JP?B?pKI=?= ", 1 << 20), Repeat(" \r\n", 1 << 20),
                                     Repeat("\x1B$B", 1 << 20), charsets}) {
        SubjectOf("Subject: " + value + "\r\n\r\n");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

// ---- writing

std::string Encoded(const std::string& shift_jis) {
    std::string text;
    SJisToJis(&shift_jis, &text);
    EncodeMailHeader(&text, &text);
    return text;
}

class Encoding : public ::testing::TestWithParam<Case> {};

TEST_P(Encoding, IsWritten) { EXPECT_EQ(Encoded(GetParam().source), GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(
    All, Encoding,
    ::testing::Values(
        Case{"Plain", "Subject: hello world", "Subject: hello world"}, Case{"Empty", "Date: ", "Date: "},
        Case{"SeveralFields", "Date: 1\r\nTo: a@b\r\nMIME-Version: ", "Date: 1\r\nTo: a@b\r\nMIME-Version: "},
        Case{"Japanese", "Subject: \x82\xA0", "Subject: =?ISO-2022-JP?B?GyRCJCIbKEI=?="},
        Case{"AsciiWordsStay", "Subject: Re: \x82\xA0 ok", "Subject: Re: =?ISO-2022-JP?B?GyRCJCIbKEI=?= ok"},
        Case{"MixedWordIsEncodedAsAWhole", "Subject: Re:\x82\xA0", "Subject: =?ISO-2022-JP?B?UmU6GyRCJCIbKEI=?="},
        Case{"BlankBetweenEncodedWordsIsEncoded", "Subject: \x82\xA0 \x82\xA2",
             "Subject: =?ISO-2022-JP?B?GyRCJCIbKEIgGyRCJCQbKEI=?="},
        Case{"Address", "From: \x82\xA0 <a@b>", "From: =?ISO-2022-JP?B?GyRCJCIbKEI=?= <a@b>"},
        Case{"AddressWithoutBlank", "To: \x82\xA0<a@b>", "To: =?ISO-2022-JP?B?GyRCJCIbKEI=?= <a@b>"},
        Case{"QuotedName", "From: \"\x82\xA0\" <a@b>", "From: =?ISO-2022-JP?B?GyRCJCIbKEI=?= <a@b>"},
        Case{"QuotedAsciiNameStays", "From: \"a, b\" <a@b>", "From: \"a, b\" <a@b>"},
        Case{"QuotesWithBackslashes", "From: \"\x82\xA0\\\"\" <a@b>", "From: =?ISO-2022-JP?B?GyRCJCIbKEIi?= <a@b>"},
        Case{"Comment", "CC: a@b (\x82\xA0)", "CC: a@b ( =?ISO-2022-JP?B?GyRCJCIbKEI=?= )"},
        Case{"SeveralAddresses", "To: \x82\xA0 <a@b>,\x82\xA2<c@d>",
             "To: =?ISO-2022-JP?B?GyRCJCIbKEI=?= <a@b>, =?ISO-2022-JP?B?GyRCJCQbKEI=?=\r\n <c@d>"},
        Case{"AddressesWithoutJapanese", "To: \"a\"<a@b>,c@d;e", "To: \"a\"<a@b>,c@d;e"},
        Case{"SubjectIsNotAListOfAddresses", "Subject: <\x82\xA0>", "Subject: =?ISO-2022-JP?B?PBskQiQiGyhCPg==?="},
        Case{"LineWithoutAName", "odd", " odd"},
        Case{"TextThatLooksLikeAnEncodedWord", "Subject: =?x?B?a?= b", "Subject: =?ISO-2022-JP?B?PT94P0I/YT89?= b"},
        Case{"AddressThatLooksLikeAnEncodedWord", "To: \"=?x?B?a?=\" <a@b>",
             "To: =?ISO-2022-JP?B?PT94P0I/YT89?= <a@b>"},
        Case{"BareLineEndsAndControlsBecomeBlanks",
             "Subject: a\nBcc:\rb\x01\x7F"
             "c\r\nTo: d",
             "Subject: a Bcc: b  c\r\nTo: d"}),
    [](const auto& test) { return test.param.name; });

TEST(EncodeMailHeader, LongValuesAreFoldedAndComeBack) {
    unsigned state = 7;
    const auto next = [&state](unsigned limit) {
        state = state * 1664525 + 1013904223;
        return (state >> 16) % limit;
    };
    for (int round = 0; round < 300; ++round) {
        std::string value;
        for (unsigned word = next(60) + 1; word > 0; --word) {
            const bool japanese = next(2) == 0;
            for (unsigned i = next(30) + 1; i > 0; --i) value += japanese ? "\x82\xA0" : "x";
            if (word > 1) value += ' ';
        }
        const std::string encoded = Encoded("Subject: " + value);
        EXPECT_EQ(testing::HeaderFault(encoded), "");
        EXPECT_EQ(SubjectOf(encoded + "\r\n\r\n"), value);
    }
}

// Some readers join the Base64 of adjacent words, and stop where padding stands inside.
TEST(EncodeMailHeader, WordsThatOthersFollowHaveNoPadding) {
    std::string value;
    for (int i = 0; i < 20; ++i) value += "\x82\xA0";
    EXPECT_EQ(Encoded("Subject: Re: " + value),
              "Subject: Re: =?ISO-2022-JP?B?GyRCJCIkIiQiJCIkIiQiJCIkIiQiJCIkIiQiGyhC?=\r\n"
              " =?ISO-2022-JP?B?GyRCJCIkIiQiJCIkIiQiJCIkIhsoQg==?=");
}

TEST(EncodeMailHeader, TextWithoutAPlaceForThatIsWrittenAllTheSame) {
    // Two bytes for each "\x82\xA0" and one for each "x": no prefix has a length that three divides.
    std::string value = "x";
    for (int i = 0; i < 100; ++i) value += "x\x82\xA0";
    const std::string encoded = Encoded("Subject: " + value);
    EXPECT_EQ(encoded.substr(0, 12), "Subject: =?I") << "no line with the name alone";
    EXPECT_EQ(testing::HeaderFault(encoded), "");
    EXPECT_EQ(SubjectOf(encoded + "\r\n\r\n"), value);
}

TEST(EncodeMailHeader, RunsOfBlanksComeBack) {
    for (const std::size_t blanks : {1U, 20U, 21U, 22U, 500U}) {
        for (const std::string word : {"x", "\x82\xA0"}) {
            const std::string value = "a" + std::string(blanks, ' ') + word;
            EXPECT_EQ(SubjectOf(Encoded("Subject: " + value) + "\r\n\r\n"), value);
        }
    }
}

TEST(EncodeMailHeader, BytesThatAreNoIso2022JpBecomeBlanks) {
    std::string header = "Subject: a\x82\xA0\x1B[b\xFF";
    EncodeMailHeader(&header, &header);
    EXPECT_EQ(header, "Subject: a   [b");
}

TEST(EncodeMailHeader, PiecesAreJoinedOneByOne) {
    EXPECT_EQ(Encoded("From: a<b>,\"c\"(d);e:f"), "From: a<b>,\"c\"(d);e:f");
    EXPECT_EQ(Encoded("From: \x82\xA0(\x82\xA0)"),
              "From: =?ISO-2022-JP?B?GyRCJCIbKEI=?= ( =?ISO-2022-JP?B?GyRCJCIbKEI=?= )");
    EXPECT_EQ(Encoded("From: \x82\xA0\"\x82\xA0\"  \x82\xA0"),
              Encoded("Subject: \x82\xA0\x82\xA0  \x82\xA0").replace(0, 7, "From"));
}

TEST(EncodeMailHeader, WhatCannotBeFoldedIsEncoded) {
    for (const std::size_t length : {900U, 901U, 5000U, 100'000U}) {
        const std::string value(length, 'x');
        const std::string encoded = Encoded("Subject: " + value);
        EXPECT_EQ(testing::HeaderFault(encoded), "");
        EXPECT_EQ(SubjectOf(encoded + "\r\n\r\n"), value);
    }
    EXPECT_EQ(testing::HeaderFault(Encoded("Subject: a" + std::string(5000, ' ') + "b")), "");
    EXPECT_EQ(testing::HeaderFault(Encoded("From: " + std::string(5000, '<') + std::string(5000, ','))), "");
    EXPECT_EQ(testing::HeaderFault(Encoded("From: \"" + std::string(5000, 'x'))), "");
}

}  // namespace
}  // namespace tarvex
