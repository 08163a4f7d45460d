// Writes the demo's mails, and the text mails that should be made of them.

#include "host/commands/demo/mails.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "tarvex/conversion.h"

namespace tarvex::host {
namespace {

constexpr const char* kAscii = "US-ASCII";
constexpr const char* kJis = "ISO-2022-JP";
constexpr const char* kUtf8 = "UTF-8";

std::string Base64(std::string_view bytes) {
    constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t count = bytes.size() - i < 3 ? bytes.size() - i : 3;
        std::uint32_t bits = 0;
        for (std::size_t k = 0; k < 3; ++k)
            bits = bits << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0U);
        for (std::size_t k = 0; k < 4; ++k) text += k <= count ? kAlphabet[bits >> (18 - 6 * k) & 0x3F] : '=';
    }
    return text;
}

std::string InLines(const std::string& text) {
    constexpr std::size_t kLineBytes = 76;
    std::string lines;
    for (std::size_t i = 0; i < text.size(); i += kLineBytes) lines.append(text, i, kLineBytes).append("\r\n");
    return lines;
}

bool IsAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// UTF-8 text in one of the character sets above; ASCII text is UTF-8 already.
std::string InCharset(const std::string& utf8, std::string_view charset) {
    return charset == kJis ? JisFromText(TextFromUtf8(utf8).value()) : utf8;
}

std::string EncodedWord(const std::string& utf8, const char* charset) {
    if (IsAscii(utf8)) return utf8;
    return "=?" + std::string(charset) + "?B?" + Base64(InCharset(utf8, charset)) + "?=";
}

struct Heading {
    std::string name;  // of the sender; UTF-8, like the subject
    std::string address;
    std::string subject;
};

std::string Fields(const Heading& heading, const char* charset) {
    return "Date: Sat, 21 Nov 2026 09:00:00 +0900\r\n"
           "From: " +
           EncodedWord(heading.name, charset) + " <" + heading.address +
           ">\r\n"
           "To: demo@tarvex.example\r\n"
           "Subject: " +
           EncodedWord(heading.subject, charset) +
           "\r\n"
           "MIME-Version: 1.0\r\n";
}

// The content is the rest of the mail, from its content fields on; the short text is UTF-8.
DemoMail Mail(std::string uidl, std::string title, const Heading& heading, const char* charset,
              const std::string& content, const std::string& short_text) {
    const char* const short_charset = IsAscii(short_text) ? kAscii : kJis;
    return {std::move(uidl), std::move(title),
            "Return-Path: <sender@example.org>\r\n" + Fields(heading, charset) + content,
            Fields(heading, kJis) + "Content-Type: text/plain; charset=\"" + short_charset + "\"\r\n\r\n" +
                InCharset(short_text, short_charset) + "\r\n"};
}

DemoMail Plain() {
    return Mail("demo-0001", "Lunch on Friday?", {"Alice", "alice@example.org", "Lunch on Friday?"}, kAscii,
                "Content-Type: text/plain; charset=us-ascii\r\n\r\n"
                "Hello,\r\n\r\nshall we meet at noon, at the usual place?\r\n\r\nAlice\r\n",
                "Hello,\r\nshall we meet at noon, at the usual place?\r\nAlice");
}

DemoMail Japanese() {
    return Mail("demo-0002", "会議の資料", {"山田 太郎", "yamada@example.jp", "会議の資料"}, kJis,
                "Content-Type: text/plain; charset=ISO-2022-JP\r\nContent-Transfer-Encoding: 7bit\r\n\r\n" +
                    InCharset("お世話になっております。\r\n会議の資料をお送りします。\r\n"
                              "次回は来週の火曜日、午後三時からです。\r\n",
                              kJis),
                "お世話になっております。\r\n会議の資料をお送りします。\r\n次回は来週の火曜日、午後三時からです。");
}

DemoMail TextAndHtml() {
    const std::string plain = "ご注文ありがとうございます。\r\n合計は 1,024 円です。\r\n";
    const std::string html =
        "<html><body><p>ご注文<b>ありがとう</b>ございます。</p><p>合計は 1,024 円です。</p></body></html>\r\n";
    return Mail("demo-0003", "ご注文の確認 (text and HTML)", {"Shop", "shop@example.com", "ご注文の確認"}, kUtf8,
                "Content-Type: multipart/alternative; boundary=\"=_demo\"\r\n\r\n"
                "--=_demo\r\nContent-Type: text/plain; charset=UTF-8\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
                    InLines(Base64(plain)) +
                    "--=_demo\r\nContent-Type: text/html; charset=UTF-8\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
                    InLines(Base64(html)) + "--=_demo--\r\n",
                plain);
}

DemoMail HtmlAlone() {
    const std::string html =
        "<html><head><style><!-- p { color: navy } --></style></head>\r\n"
        "<body><p>冬の<b>セール</b>のご案内</p>\r\n"
        "<div>全品 20%&nbsp;OFF、送料は無料です。</div></body></html>\r\n";
    return Mail(
        "demo-0004", "冬のセール (HTML alone)", {"Shop", "shop@example.com", "冬のセール"}, kUtf8,
        "Content-Type: text/html; charset=UTF-8\r\nContent-Transfer-Encoding: base64\r\n\r\n" + InLines(Base64(html)),
        "冬のセールのご案内\r\n全品20% OFF、送料は無料です。\r\n");
}

DemoMail Long() {
    return Mail(
        "demo-0005", "町内会だより (too long for the pager)", {"町内会", "chonaikai@example.jp", "町内会だより"}, kJis,
        "Content-Type: text/plain; charset=ISO-2022-JP\r\nContent-Transfer-Encoding: 7bit\r\n\r\n" +
            InCharset("----------------------------------------\r\n"
                      "　　　町内会だより　　十一月号\r\n"
                      "----------------------------------------\r\n\r\n"
                      "もちつき大会は12月6日、公園で行います。\r\n"
                      "雨の日は集会所です。\r\n"
                      "エプロンと手ぬぐいをお持ちください。\r\n\r\n"
                      "ごみの収集は年末まで変わりません。\r\n",
                      kJis),
        // Cut in the middle of a character, and back from there to one whose second byte is a letter by itself.
        "-\r\n　町内会だより　十一月号\r\n-\r\nもちつき大会は12月6日、公園で行います。\r\n雨の日は集会所です。\r\n"
        "エプロンと手ぬぐいをお");
}

DemoMail Attachment() {
    constexpr std::size_t kAttachmentBytes = std::size_t{75} * 1024;  // 100 KB in Base64
    std::string bytes;
    for (std::uint32_t state = 1; bytes.size() < kAttachmentBytes;) {
        state = state * 1664525 + 1013904223;
        bytes += static_cast<char>(state >> 24);
    }
    return Mail("demo-0006", "Quarterly report, with a PDF of 75 KB", {"Bob", "bob@example.org", "Quarterly report"},
                kAscii,
                "Content-Type: multipart/mixed; boundary=\"=_demo\"\r\n\r\n"
                "--=_demo\r\nContent-Type: text/plain\r\n\r\nThe report is attached.\r\n"
                "--=_demo\r\nContent-Type: application/pdf; name=\"report.pdf\"\r\n"
                "Content-Transfer-Encoding: base64\r\n"
                "Content-Disposition: attachment; filename=\"report.pdf\"\r\n\r\n" +
                    InLines(Base64(bytes)) + "--=_demo--\r\n",
                "The report is attached.");
}

DemoMail Dots() {
    return Mail("demo-0007", "Lines that begin with dots", {"Robot", "robot@example.org", "Lines that begin with dots"},
                kAscii,
                "Content-Type: text/plain\r\n\r\n"
                ".\r\n..\r\n.hidden\r\n\r\n.\r\nThis line must arrive as well.\r\n",
                ".\r\n..\r\n.hidden\r\n.\r\nThis line must arrive as well.");
}

DemoMail SameSubject() {
    return Mail("demo-0008", "Lunch on Friday? (the same subject)", {"Carol", "carol@example.org", "Lunch on Friday?"},
                kAscii, "Content-Type: text/plain\r\n\r\nI would come along!\r\n\r\nCarol\r\n",
                "I would come along!\r\nCarol");
}

}  // namespace

std::vector<DemoMail> FirstDemoMails() {
    return {Plain(), Japanese(), TextAndHtml(), HtmlAlone(), Long(), Attachment(), Dots(), SameSubject()};
}

DemoMail LaterDemoMail() {
    return Mail("demo-0009", "Re: Lunch on Friday?", {"Alice", "alice@example.org", "Re: Lunch on Friday?"}, kAscii,
                "Content-Type: text/plain\r\n\r\nA table for three is booked.\r\n\r\nAlice\r\n",
                "A table for three is booked.\r\nAlice");
}

std::vector<DemoMail> LastDemoMails() {
    const std::string unwanted = std::string("Your prize is waiting: ") + kUnwantedPart;
    return {Mail("demo-0010", "You have won a prize", {"Prizes", "prizes@example.net", "You have won a prize"}, kAscii,
                 "Content-Type: text/plain\r\n\r\n" + unwanted + "\r\n", unwanted),
            Mail("demo-0011", "See you on Friday", {"Bob", "bob@example.org", "See you on Friday"}, kAscii,
                 "Content-Type: text/plain\r\n\r\nUntil then!\r\n\r\nBob\r\n", "Until then!\r\nBob")};
}

}  // namespace tarvex::host
