// The text mail, from a real mailbox through a real mail server, as a mail reader shows it.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/real/mail_reader.h"
#include "tests/real/servers/servers_fixture.h"

namespace tarvex::testing {
namespace {

constexpr int kLimit_bytes = 100;
constexpr const char* kDate = "Sat, 21 Nov 2026 09:00:00 +0900";
constexpr const char* kAscii = "US-ASCII";
constexpr const char* kJis = "ISO-2022-JP";

// A mail, told from the others by its sender, NAME@example.jp, and what a reader has to show of its text mail.
struct TextMailCase {
    std::string name;
    std::string from_name;   // as it stands in the header, and
    std::string shown_from;  // as it is read
    std::string subject;
    std::string shown_subject;
    std::string content;  // from the content fields on
    std::string charset;  // of the text mail
    std::string shown_text;
};

std::string Source(const TextMailCase& one) {
    return std::string("Received: from nowhere\r\nDate: ") + kDate + "\r\nFrom: " + one.from_name + " <" + one.name +
           "@example.jp>\r\nTo: alice@example.test\r\nSubject: " + one.subject + "\r\nMIME-Version: 1.0\r\n" +
           one.content;
}

std::string Times(int count, const std::string& text) {
    std::string many;
    for (int i = 0; i < count; ++i) many += text;
    return many;
}

TextMailCase Html() {
    return {"html",
            "Shop",
            "Shop",
            "html",
            "html",
            "Content-Type: text/html; charset=utf-8\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
                InBase64("<html><head><!-- <p>hidden</p> --></head>\r\n<body><p>冬の<b>セール</b></p>\r\n"
                         "<div>全品 20%&nbsp;OFF &amp; 送料&lt;無料&gt;</div></body></html>\r\n"),
            kJis,
            "冬のセール\n全品20% OFF&送料<無料>\n\n"};
}

// Every text but those of the limit is shorter than the limit in Shift-JIS.
std::vector<TextMailCase> Cases() {
    const std::string utf8 = "UTF-8";
    const std::string plain = "Content-Type: text/plain; charset=";
    const std::string halves = "ｶﾅ ﾊﾟﾋﾟﾌﾟ､ｶﾞｷﾞ｡\r\n";
    const std::string wholes = "カナ パピプ、ガギ。\n";
    const std::string long_subject =
        "来週の会議の資料と、先週の議事録と、来月の予定表と、年末の大掃除の分担表をまとめてお送りします";
    return {
        {"dots", "Robot", "Robot", "dots", "dots",
         plain + "us-ascii\r\n\r\n.begins with a dot\r\n.\r\n..\r\n\r\n.\r\nThis line is read as well.\r\n", kAscii,
         ".begins with a dot\n.\n..\n\n.\nThis line is read as well.\n"},

        {"japanese-dots", "Robot", "Robot", "dots", "dots",
         plain + "ISO-2022-JP\r\n\r\n" + FromUtf8(".先頭に点\r\n.\r\n最後の行\r\n", kJis), kJis,
         ".先頭に点\n.\n最後の行\n"},

        {"half-width-sjis", "Kana", "Kana", EncodedWord("ｶﾅ", "Shift_JIS"), "カナ",
         plain + "Shift_JIS\r\n\r\n" + FromUtf8(halves, "CP932"), kJis, wholes},

        {"half-width-utf8", EncodedWord("ﾊﾟｳﾛ", utf8), "パウロ", "kana", "kana",
         plain + "utf-8\r\nContent-Transfer-Encoding: base64\r\n\r\n" + InBase64(halves), kJis, wholes + "\n"},

        {"limit", "Editor", "Editor", "long", "long",
         plain + "ISO-2022-JP\r\n\r\n" + FromUtf8("x" + Times(60, "ア") + "\r\n", kJis), kJis,
         "x" + Times(49, "ア") + "\n"},  // the 100th byte is the first half of a character

        {"limit-between", "Editor", "Editor", "long", "long",
         plain + "ISO-2022-JP\r\n\r\n" + FromUtf8(Times(60, "ア") + "\r\n", kJis), kJis, Times(50, "ア") + "\n"},

        Html(),

        {"multipart", EncodedWord("鈴木 花子", "EUC-JP"), "鈴木 花子", EncodedWord("写真です", utf8), "写真です",
         "Content-Type: multipart/mixed; boundary=\"outer\"\r\n\r\nignored\r\n--outer\r\n"
         "Content-Type: multipart/alternative; boundary=inner\r\n\r\n"
         "--inner\r\nContent-Type: text/html; charset=utf-8\r\n\r\n<p>HTML</p>\r\n"
         "--inner\r\nContent-Type: text/plain; charset=EUC-JP\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
             InBase64(FromUtf8("写真を添付します。\r\n鈴木", "EUC-JP")) +
             "--inner--\r\n--outer\r\nContent-Type: image/png\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
             InBase64(Times(200, "pixels")) + "--outer--\r\n",
         kJis, "写真を添付します。\n鈴木\n"},

        {"header", EncodedWord("山田 太郎／営業部", kJis), "山田 太郎／営業部",
         EncodedWord(long_subject.substr(0, 60), utf8) + "\r\n " + EncodedWord(long_subject.substr(60), utf8),
         long_subject, plain + "us-ascii\r\n\r\nSee the subject.\r\n", kAscii, "See the subject.\n"},
    };
}

bool IsSevenBit(const std::string& text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

class RealTextMail : public RealServersTest {
protected:
    // The mail of that sender to that address; a failure and an empty one when there is not just one.
    static ArrivedMail Arrived(const std::vector<ArrivedMail>& mails, const std::string& name,
                               const std::string& recipient) {
        std::vector<ArrivedMail> found;
        for (const ArrivedMail& mail : mails) {
            if (mail.recipient == recipient && mail.text.find("<" + name + "@example.jp>") != std::string::npos) {
                found.push_back(mail);
            }
        }
        EXPECT_EQ(found.size(), 1U) << name << " at " << recipient;
        return found.size() == 1 ? found[0] : ArrivedMail();
    }

    static void ExpectReads(const ArrivedMail& mail, const TextMailCase& one) {
        const SeenMail seen = ReadMail(mail.added + mail.text);
        EXPECT_EQ(seen.from_name, one.shown_from);
        EXPECT_EQ(seen.from_address, one.name + "@example.jp");
        EXPECT_EQ(seen.subject, one.shown_subject);
        EXPECT_EQ(seen.date, kDate);
        EXPECT_EQ(seen.content_type, "text/plain");
        EXPECT_EQ(seen.charset, one.charset);
        EXPECT_EQ(seen.text, one.shown_text);
        EXPECT_TRUE(IsSevenBit(mail.text));
    }
};

TEST_F(RealTextMail, IsReadAsItIsMeantBesideTheWholeMail) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    forwarding.Profile().forward_addresses[0]->setting.textonly = kLimit_bytes;
    forwarding.AddAddress(kTablet);
    const std::vector<TextMailCase> cases = Cases();
    std::vector<GeneratedMail> mails;
    mails.reserve(cases.size());
    for (const TextMailCase& one : cases) mails.push_back({static_cast<int>(mails.size()) + 1, one.name, Source(one)});
    pop.Deliver(kAlice, mails);

    forwarding.Run();

    const std::vector<ArrivedMail> arrived = smtp.WaitForMails(2 * cases.size());
    EXPECT_EQ(arrived.size(), 2 * cases.size());
    for (const TextMailCase& one : cases) {
        SCOPED_TRACE(one.name);
        EXPECT_EQ(Arrived(arrived, one.name, kTablet).text, Source(one));
        ExpectReads(Arrived(arrived, one.name, kPhone), one);
    }
}

// A relay breaks a line of more than 998 bytes where it stands, and what follows would be read in the wrong half of
// each character.
TEST_F(RealTextMail, ALineOfAnyLengthPassesARelayWhole) {
    const std::string line = Times(900, "長い行が、") + "x";
    PopServer pop;
    const SmtpServer smtp;
    SmtpServer::Options onwards;
    onwards.settings =
        "virtual_mailbox_domains =\ndefault_transport = smtp:[127.0.0.1]:" + std::to_string(smtp.PlainPort());
    const SmtpServer relay(onwards);
    Forwarding forwarding(pop, relay.PlainPort());
    forwarding.Profile().forward_addresses[0]->setting.textonly = 20'000;
    TextMailCase one{"long", "Long", "Long", "long", "long", "Content-Type: text/plain; charset=utf-8\r\n", kJis, line};
    one.content += "Content-Transfer-Encoding: base64\r\n\r\n" + InBase64(line) + "\r\n";
    pop.Deliver(kAlice, GeneratedMail{1, one.name, Source(one)});
    forwarding.Run();
    const ArrivedMail mail = Arrived(smtp.WaitForMails(1), one.name, kPhone);
    std::string text = ReadMail(mail.added + mail.text).text;
    std::erase(text, '\n');
    EXPECT_EQ(text, line);
}

// Without a limit an address gets the whole mail when the same mail can go to everybody, else the text mail.

TEST_F(RealTextMail, WithoutALimitTheWholeMailGoesToAnAddressAlone) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    forwarding.Profile().forward_addresses[0]->setting.textonly = 0;
    const TextMailCase html = Html();
    pop.Deliver(kAlice, GeneratedMail{1, html.name, Source(html)});
    forwarding.Run();
    EXPECT_EQ(Arrived(smtp.WaitForMails(1), html.name, kPhone).text, Source(html));
}

TEST_F(RealTextMail, WithoutALimitTheTextMailGoesOutWhereTheToFieldIsReplaced) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    forwarding.Profile().forward_addresses[0]->setting.textonly = 0;
    forwarding.Profile().setting.replaceto = 1;
    const TextMailCase html = Html();
    pop.Deliver(kAlice, GeneratedMail{1, html.name, Source(html)});
    forwarding.Run();
    const ArrivedMail mail = Arrived(smtp.WaitForMails(1), html.name, kPhone);
    ExpectReads(mail, html);
    EXPECT_EQ(ReadMail(mail.added + mail.text).to_address, kPhone);
}

TEST_F(RealTextMail, WithoutALimitTheTextMailGoesOutBesideAWholeMail) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    forwarding.Profile().forward_addresses[0]->setting.textonly = 0;
    forwarding.AddAddress(kTablet);
    const TextMailCase html = Html();
    pop.Deliver(kAlice, GeneratedMail{1, html.name, Source(html)});
    forwarding.Run();
    const std::vector<ArrivedMail> arrived = smtp.WaitForMails(2);
    ExpectReads(Arrived(arrived, html.name, kPhone), html);
    EXPECT_EQ(Arrived(arrived, html.name, kTablet).text, Source(html));
}

}  // namespace
}  // namespace tarvex::testing
