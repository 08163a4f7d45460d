#include "host/demo_mails.h"

#include <cstdint>
#include <stdexcept>
#include <string_view>

#include "host/converter.h"

namespace tarvex::host {
namespace {

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

std::string EncodedWord(const std::string& utf8, const char* charset) {
    return "=?" + std::string(charset) + "?B?" + Base64(FromUtf8(utf8, charset)) + "?=";
}

std::string Header(const std::string& from, const std::string& subject, const std::string& content) {
    return "Return-Path: <sender@example.org>\r\n"
           "Date: Sat, 21 Nov 2026 09:00:00 +0900\r\n"
           "From: " +
           from +
           "\r\n"
           "To: demo@tarvex.example\r\n"
           "Subject: " +
           subject +
           "\r\n"
           "MIME-Version: 1.0\r\n" +
           content + "\r\n";
}

DemoMail Plain() {
    return {"demo-0001", "Lunch on Friday?",
            Header("Alice <alice@example.org>", "Lunch on Friday?", "Content-Type: text/plain; charset=us-ascii\r\n") +
                "Hello,\r\n\r\nshall we meet at noon, at the usual place?\r\n\r\nAlice\r\n"};
}

DemoMail Japanese() {
    const char* const charset = "ISO-2022-JP";
    return {
        "demo-0002", "会議の資料",
        Header(EncodedWord("山田 太郎", charset) + " <yamada@example.jp>", EncodedWord("会議の資料", charset),
               "Content-Type: text/plain; charset=ISO-2022-JP\r\nContent-Transfer-Encoding: 7bit\r\n") +
            FromUtf8(
                "お世話になっております。\r\n会議の資料をお送りします。\r\n次回は来週の火曜日、午後三時からです。\r\n",
                charset)};
}

DemoMail Html() {
    const char* const charset = "UTF-8";
    const std::string plain = "ご注文ありがとうございます。\r\n合計は 1,024 円です。\r\n";
    const std::string html =
        "<html><body><p>ご注文<b>ありがとう</b>ございます。</p><p>合計は 1,024 円です。</p></body></html>\r\n";
    return {"demo-0003", "ご注文の確認 (HTML)",
            Header("shop@example.com", EncodedWord("ご注文の確認", charset),
                   "Content-Type: multipart/alternative; boundary=\"=_demo\"\r\n") +
                "--=_demo\r\nContent-Type: text/plain; charset=UTF-8\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
                InLines(Base64(plain)) +
                "--=_demo\r\nContent-Type: text/html; charset=UTF-8\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
                InLines(Base64(html)) + "--=_demo--\r\n"};
}

DemoMail Attachment() {
    constexpr std::size_t kAttachmentBytes = std::size_t{75} * 1024;  // 100 KB in Base64
    std::string bytes;
    for (std::uint32_t state = 1; bytes.size() < kAttachmentBytes;) {
        state = state * 1664525 + 1013904223;
        bytes += static_cast<char>(state >> 24);
    }
    return {
        "demo-0004", "Quarterly report, with a PDF of 75 KB",
        Header("Bob <bob@example.org>", "Quarterly report", "Content-Type: multipart/mixed; boundary=\"=_demo\"\r\n") +
            "--=_demo\r\nContent-Type: text/plain\r\n\r\nThe report is attached.\r\n"
            "--=_demo\r\nContent-Type: application/pdf; name=\"report.pdf\"\r\nContent-Transfer-Encoding: base64\r\n"
            "Content-Disposition: attachment; filename=\"report.pdf\"\r\n\r\n" +
            InLines(Base64(bytes)) + "--=_demo--\r\n"};
}

DemoMail Dots() {
    return {"demo-0005", "Lines that begin with dots",
            Header("robot@example.org", "Lines that begin with dots", "Content-Type: text/plain\r\n") +
                ".\r\n..\r\n.hidden\r\n\r\n.\r\nThis line must arrive as well.\r\n"};
}

DemoMail SameSubject() {
    return {"demo-0006", "Lunch on Friday? (the same subject again)",
            Header("Carol <carol@example.org>", "Lunch on Friday?", "Content-Type: text/plain\r\n") +
                "I would come along!\r\n\r\nCarol\r\n"};
}

}  // namespace

std::vector<DemoMail> FirstDemoMails() { return {Plain(), Japanese(), Html(), Attachment(), Dots(), SameSubject()}; }

DemoMail LaterDemoMail() {
    return {"demo-0007", "Re: Lunch on Friday?",
            Header("Alice <alice@example.org>", "Re: Lunch on Friday?", "Content-Type: text/plain\r\n") +
                "A table for three is booked.\r\n\r\nAlice\r\n"};
}

std::string FromUtf8(std::string_view text, const char* charset) {
    Converter converter(charset, "UTF-8");
    std::string result;
    converter.Convert(text, result);
    if (!text.empty()) throw std::runtime_error(std::string("cannot convert to ") + charset);
    converter.Finish(result);
    return result;
}

}  // namespace tarvex::host
