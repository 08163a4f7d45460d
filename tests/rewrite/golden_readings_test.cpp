// Thirty mails of the corpus whose text mails were read by a person, beside the mails themselves, and found right. What
// is kept here is only a digest of each: a text mail that changes must be read again.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "platform/codec/charset.h"
#include "platform/codec/digest.h"
#include "platform/codec/japanese.h"
#include "tarvex/tree.h"
#include "tests/support/corpus.h"

namespace tarvex {
namespace {

struct Reading {
    const char* path;  // in the corpus
    int textonly, cutwhite, htmltotext;
    std::size_t bytes;    // of the text mail
    const char* charset;  // of its body
    const char* md5;
    const char* read;  // what a person saw
};

const Reading kReadings[] = {
    {"mikel-mail/emails/multi_charset/japanese.eml", 0, 0, 1, 319, "ISO-2022-JP", "ef7b46eb124f04d838ab34de725ebed0",
     "UTF-8 in Base64, a Japanese name and subject in encoded words"},
    {"mikel-mail/emails/multi_charset/japanese_attachment.eml", 0, 0, 1, 283, "US-ASCII",
     "0a4076bc0228e29b77c4289ecabf7874", "the first text of a multipart, the Japanese one is an attachment behind it"},
    {"mikel-mail/emails/multi_charset/japanese_iso_2022.eml", 0, 0, 1, 260, "ISO-2022-JP",
     "6fc444e172cd163b5ddac7a7be4827a9", "plain ISO-2022-JP under headers in UTF-8"},
    {"mikel-mail/emails/multi_charset/japanese_shift_jis.eml", 0, 0, 1, 294, "ISO-2022-JP",
     "9aa11856a041e0d285a371c6c49b999d", "plain Shift_JIS in eight bits, full-width punctuation"},
    {"mikel-mail/emails/rfc2822/example14.eml", 0, 0, 1, 281, "US-ASCII", "abf29d8a2b7e2a8ca2e3979f7182de55",
     "a subject folded over a line of one blank, half of it encoded"},
    {"sisimai/mailbox/mbox-1", 0, 0, 1, 750, "US-ASCII", "e5f3e6d29d5a37a88e296dd8b84779a9",
     "a mailbox file, its first mail a bounce from Japan in ASCII"},
    {"sisimai/maildir/bsd/lhost-biglobe-01.eml", 0, 1, 1, 404, "US-ASCII", "200070a947fda830ef461cace8fbdb36",
     "ISO-2022-JP in name only; runs of hyphens and blank lines are compressed"},
    {"sisimai/maildir/bsd/lhost-domino-02.eml", 0, 0, 1, 604, "ISO-2022-JP", "6f12cf98a78011776ac9dd774d3e2875",
     "a bounce in ISO-2022-JP; the subject mixes encoded words, one of them empty, and ASCII"},
    {"sisimai/maildir/bsd/lhost-exchange2007-04.eml", 200, 1, 1, 499, "US-ASCII", "4b22b6474f24e51fea8620cd0a947c07",
     "a nested alternative in quoted-printable, an encoded subject, cut in the middle"},
    {"sisimai/maildir/bsd/lhost-ezweb-02.eml", 0, 0, 1, 564, "ISO-2022-JP", "f411c64e99f69ac515e79e10dc96325d",
     "EUC-JP labelled ISO-2022-JP"},
    {"sisimai/maildir/bsd/lhost-ezweb-08.eml", 200, 1, 1, 496, "ISO-2022-JP", "6051c60377b6637bb3b4dc3f27eadd20",
     "ISO-2022-JP compressed and cut inside a sentence, after a whole character"},
    {"sisimai/maildir/bsd/lhost-fml-03.eml", 0, 0, 1, 2701, "ISO-2022-JP", "4cb4e50d8df15bf3a84b8822e7e891e4",
     "a quoted mail with its header, the Japanese in its last line"},
    {"sisimai/maildir/bsd/lhost-googlegroups-01.eml", 200, 0, 1, 480, "ISO-2022-JP", "8f0a29f10a274f28097d8f00e448c66a",
     "UTF-8 in eight bits, cut inside the first item of a list"},
    {"sisimai/maildir/bsd/lhost-kddi-01.eml", 0, 0, 1, 686, "ISO-2022-JP", "2ff12ede6f429e795875bdf13b763767",
     "raw UTF-8 in the subject, UTF-8 in a body that is labelled ISO-2022-JP"},
    {"sisimai/maildir/dos/lhost-interscanmss-01.eml", 0, 0, 1, 464, "US-ASCII", "2a5df5d260fd7ba7074d62aa851012a8",
     "raw UTF-8 in the subject"},
    {"sisimai/maildir/bsd/lhost-messagingserver-08.eml", 100, -1, 1, 326, "US-ASCII",
     "45af96161b84cbcdb01a697184b2abe4", "a report without its blanks and line ends, cut"},
    {"sisimai/maildir/bsd/lhost-mfilter-04.eml", 300, 1, 0, 514, "ISO-2022-JP", "b3ee5061eca56258dcabd84bfff44ade",
     "UTF-8 in Base64 with bare line feeds, which are line ends"},
    {"sisimai/maildir/bsd/lhost-notes-01.eml", 300, 0, 1, 512, "ISO-2022-JP", "fff09a08887135838fe88a6869f24f62",
     "ISO-2022-JP between lines of hyphens, cut in a header that it quotes"},
    {"sisimai/maildir/bsd/lhost-office365-13.eml", 0, 0, 0, 5725, "ISO-2022-JP", "6d6b6f2234dee5f5373526de9c461542",
     "a long report in quoted-printable with Japanese in one line; a stuffed dot behind a soft break stays"},
    {"sisimai/maildir/bsd/lhost-outlook-06.eml", 200, 1, 1, 428, "US-ASCII", "3e746a7973e0cf952681e6609d667b0b",
     "a charset that nobody converts, but plain ASCII"},
    {"sisimai/maildir/bsd/lhost-postfix-04.eml", 0, 0, 1, 1108, "ISO-2022-JP", "7cde0437dbed88836ec1d1792ba9efa0",
     "English and Japanese in turn"},
    {"sisimai/maildir/bsd/lhost-postfix-49.eml", 500, 1, 1, 761, "ISO-2022-JP", "03bb9326892294f85de2d04b92c1e815",
     "English, then Japanese, cut in a web address"},
    {"sisimai/maildir/bsd/lhost-sendmail-38.eml", 0, 0, 1, 693, "US-ASCII", "d0f0c353297b3094b9f06fd7ce80b297",
     "a report within a report within a report: the text of the outermost"},
    {"sisimai/maildir/bsd/rfc3464-08.eml", 0, 0, 1, 448, "US-ASCII", "996caef414c897830bc6b6557c289756",
     "Base64 of bytes that are no UTF-8: a question mark for each"},
    {"sisimai/maildir/bsd/rfc3464-57.eml", 0, 0, 0, 489, "US-ASCII", "9bb564e7fe7eb643bbe2350db3d06d3d",
     "an alternative in a related part in a report, and no MIME version"},
    {"sisimai/maildir/not/is-not-bounce-01.eml", 0, 0, 1, 300, "ISO-2022-JP", "7cb8c53fa24ca058fc70f730fd7d7fc9",
     "UTF-8 in eight bits, long vowel marks, an encoded subject"},
    {"sisimai/to-be-debugged-because/something-is-wrong/issue-106-01.eml", 0, 0, 1, 1683, "ISO-2022-JP",
     "caac00ac51768d39ec38fe8264a1ca9e", "an address with an emoji, which becomes a geta mark"},
    {"sisimai/maildir/bsd/lhost-amazonworkmail-01.eml", 80, 0, 1, 336, "US-ASCII", "a3da7cbaf20a41c60df1fbc368874bd5",
     "Latin-9 in quoted-printable, encoded words that hold ASCII, cut behind a word"},
    {"sisimai/maildir/bsd/lhost-mfilter-02.eml", 50, -1, 1, 271, "ISO-2022-JP", "54814df20637732f8fd6b2e56222b601",
     "ISO-2022-JP without line ends and hyphens, cut after a whole character"},
    {"sisimai/maildir/bsd/lhost-trendmicro-01.eml", 0, 0, 1, 464, "US-ASCII", "2a5df5d260fd7ba7074d62aa851012a8",
     "a subject in ISO-2022-JP over an ASCII report"},
};

// A text mail for the eye: a line with codes that Unicode does not have stays in Shift-JIS.
std::string ToUtf8(const std::string& mail) {
    std::string text;
    JisToSJis(&mail, &text);
    const auto converter = SystemCharset::Open("cp932");
    std::string utf8;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size() - 1) + 1;
        const std::string line = text.substr(begin, end - begin);
        utf8 += converter->ToUtf8(line).value_or(line);
        begin = end;
    }
    return utf8;
}

TEST(GoldenReadings, TextMailsAreAsTheyWereRead) {
    const char* const folder = testing::CorpusFolder();
    if (!folder) GTEST_SKIP() << testing::kNoCorpus;

    const CForwardAddressSetting defaults;
    CPopProfile profile;
    for (const Reading& reading : kReadings) {
        std::string mail = testing::FetchedMail(std::filesystem::path(folder) / reading.path);
        ASSERT_EQ(profile.CutAsTextmail(&mail, reading.textonly, reading.cutwhite, reading.htmltotext,
                                        defaults.compress_words),
                  1)
            << reading.path;
        const std::string charset = "Content-Type: text/plain; charset=\"" + std::string(reading.charset) + "\"\r\n";
        EXPECT_TRUE(mail.find(charset) != std::string::npos && mail.size() == reading.bytes &&
                    Md5Hex(mail) == reading.md5)
            << reading.path << ": read as: " << reading.read << "\nnow " << mail.size() << " bytes, MD5 "
            << Md5Hex(mail) << ":\n"
            << ToUtf8(mail);
    }
}

}  // namespace
}  // namespace tarvex
