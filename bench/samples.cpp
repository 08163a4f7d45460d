// Makes the texts and mails that the benchmarks of the text mail work on.

#include "bench/samples.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string_view>

#include "platform/codec/base64.h"
#include "platform/codec/japanese.h"

namespace tarvex::bench {
namespace {

constexpr std::string_view kHeader =
    "Return-Path: <sender@example.jp>\r\n"
    "Received: from mx.example.jp (mx.example.jp [192.0.2.10])\r\n"
    "\tby mail.example.com (Postfix) with ESMTPS id 4F1C2A0D3E\r\n"
    "\tfor <receiver@example.com>; Mon,  6 Apr 2026 09:12:44 +0900 (JST)\r\n"
    "Received: from desk.example.jp (desk.example.jp [192.0.2.77])\r\n"
    "\tby mx.example.jp (Postfix) with ESMTPSA id 9B7D01C4\r\n"
    "\tfor <receiver@example.com>; Mon,  6 Apr 2026 09:12:43 +0900 (JST)\r\n"
    "Date: Mon, 6 Apr 2026 09:12:42 +0900\r\n"
    "From: =?ISO-2022-JP?B?GyRCOzNFREI6TzobKEI=?= <sender@example.jp>\r\n"
    "To: =?ISO-2022-JP?B?GyRCTmtMWjJWO1IbKEI=?= <receiver@example.com>\r\n"
    "Cc: team@example.com\r\n"
    "Message-ID: <20260406091242.4711@desk.example.jp>\r\n"
    "Subject: =?ISO-2022-JP?B?GyRCTWg9NSROMnE1RCROJCo0aiQkGyhC?=\r\n"
    "X-Mailer: Desk Mail 4.2\r\n"
    "MIME-Version: 1.0\r\n";

constexpr std::string_view kEnglishLine =
    "Please have a look at the minutes of our meeting, and tell me by Friday.\r\n";
constexpr std::string_view kJapaneseLine =
    "お疲れさまです。来週の会議の資料を送ります。第3回は4月13日(月) 14:00から、会議室Bです。\r\n";

std::string Repeated(std::string_view line, std::size_t bytes) {
    std::string text;
    while (text.size() < bytes) text += line;
    return text;
}

// What is left for the text of a mail of that many bytes.
std::size_t BodyBytes(std::size_t mail_bytes) {
    constexpr std::size_t kAllHeaders_bytes = kHeader.size() + 250;
    return mail_bytes - std::min(mail_bytes, kAllHeaders_bytes);
}

std::string Mail(const std::string& body) { return std::string(kHeader) + body + ".\r\n"; }

// CPU time of one copy, the best of several tries; the memory is in use, as that of the benchmarks is.
double MemcpySeconds(std::size_t bytes) {
    constexpr int kTries = 9;
    const std::size_t copies = std::max<std::size_t>(1, 10'000'000 / bytes);
    std::string source(bytes, 'x');
    std::string target(bytes, 'y');
    double best = std::numeric_limits<double>::max();
    for (int i = 0; i < kTries; ++i) {
        const CpuTime time;
        for (std::size_t copy = 0; copy < copies; ++copy) {
            std::memcpy(target.data(), source.data(), bytes);
            benchmark::DoNotOptimize(target.data());
            benchmark::ClobberMemory();
        }
        best = std::min(best, time.Seconds() / static_cast<double>(copies));
    }
    return best;
}

}  // namespace

std::string English(std::size_t bytes) { return Repeated(kEnglishLine, bytes); }
std::string Japanese(std::size_t bytes) { return Repeated(kJapaneseLine, bytes); }

std::string InHtml(const std::string& paragraphs) {
    std::string html = "<html>\r\n<head><title>mail</title></head>\r\n<body bgcolor=\"#ffffff\">\r\n";
    std::string_view rest = paragraphs;
    while (!rest.empty()) {
        const std::size_t end = rest.find("\r\n");
        html.append("<p class=\"text\"><font size=\"2\">").append(rest.substr(0, end)).append("</font>&nbsp;</p>\r\n");
        rest.remove_prefix(end + 2);
    }
    return html + "</body>\r\n</html>\r\n";
}

std::string InLines(const std::string& text) {
    std::string lines;
    for (std::size_t i = 0; i < text.size(); i += 76) lines.append(text, i, 76).append("\r\n");
    return lines;
}

std::string InQuotedPrintable(const std::string& text) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string encoded;
    std::size_t column = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = (byte < 0x7F && byte != '=') || c == '\r' || c == '\n';
        if (column > 72 && c != '\r' && c != '\n') {
            encoded += "=\r\n";
            column = 0;
        }
        if (plain) {
            encoded += c;
        } else {
            encoded.append(1, '=').append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 0xF]);
        }
        column = c == '\n' ? 0 : column + (plain ? 1 : 3);
    }
    return encoded;
}

std::string InUuencode(const std::string& bytes) {
    constexpr std::size_t kLine_bytes = 45;
    const auto character = [](unsigned value) { return static_cast<char>(value == 0 ? '`' : value + ' '); };
    std::string encoded = "begin 644 file\r\n";
    for (std::size_t line = 0; line + kLine_bytes <= bytes.size(); line += kLine_bytes) {
        encoded += character(kLine_bytes);
        for (std::size_t i = line; i < line + kLine_bytes; i += 3) {
            unsigned bits = 0;
            for (std::size_t k = 0; k < 3; ++k) bits = bits << 8 | static_cast<unsigned char>(bytes[i + k]);
            for (const unsigned shift : {18U, 12U, 6U, 0U}) encoded += character(bits >> shift & 0x3F);
        }
        encoded += "\r\n";
    }
    return encoded + "`\r\nend\r\n";
}

std::string InEuc(const std::string& jis) {
    std::string euc;
    bool kanji = false;
    for (std::size_t i = 0; i < jis.size(); ++i) {
        if (jis[i] == '\x1B') {
            kanji = jis[i + 1] == '$';
            i += 2;
        } else {
            euc += static_cast<char>(kanji ? jis[i] | 0x80 : jis[i]);
        }
    }
    return euc;
}

std::string ToSJis(const std::string& utf8) {
    std::string sjis;
    Utf8ToSJis(&utf8, &sjis);
    return sjis;
}

std::string ToJis(const std::string& utf8) {
    std::string jis = ToSJis(utf8);
    SJisToJis(&jis, &jis);
    return jis;
}

std::string ToBase64(const std::string& bytes) {
    std::string encoded;
    Base64Encode(&bytes, &encoded);
    return encoded;
}

std::string PlainJisMail(std::size_t bytes) {
    const std::size_t body_bytes = BodyBytes(bytes);
    std::string body = ToJis(Japanese(body_bytes * 3 / 2));
    body.resize(body.rfind("\r\n", body_bytes) + 2);
    return Mail("Content-Type: text/plain; charset=ISO-2022-JP\r\nContent-Transfer-Encoding: 7bit\r\n\r\n" + body);
}

std::string MultipartUtf8Mail(std::size_t bytes) {
    const auto part = [](std::string_view type, const std::string& text) {
        return "--=_next\r\nContent-Type: text/" + std::string(type) +
               "; charset=UTF-8\r\nContent-Transfer-Encoding: base64\r\n\r\n" + InLines(ToBase64(text));
    };
    // The HTML part is the longer one.
    const std::string plain = Japanese(BodyBytes(bytes) * 3 / 10);
    return Mail("Content-Type: multipart/alternative; boundary=\"=_next\"\r\n\r\n" + part("plain", plain) +
                part("html", InHtml(plain)) + "--=_next--\r\n");
}

std::string HtmlUtf8Mail(std::size_t bytes) {
    return Mail("Content-Type: text/html; charset=UTF-8\r\nContent-Transfer-Encoding: 8bit\r\n\r\n" +
                InHtml(Japanese(BodyBytes(bytes) * 2 / 3)));
}

std::string MailWithAttachment(std::size_t bytes) {
    return Mail(
        "Content-Type: multipart/mixed; boundary=\"=_next\"\r\n\r\n"
        "--=_next\r\nContent-Type: image/jpeg\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
        InLines(ToBase64(English(BodyBytes(bytes) / 2))) +
        "--=_next\r\nContent-Type: text/plain; charset=ISO-2022-JP\r\n\r\n" + ToJis(Japanese(BodyBytes(bytes) / 4)) +
        "--=_next--\r\n");
}

std::vector<std::string> CorpusMails() {
    std::vector<std::string> mails;
    const char* const folder = std::getenv("TARVEX_CORPUS");
    if (!folder) return mails;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        std::ifstream file(entry.path(), std::ios::binary);
        std::string mail;
        for (const char c : std::string(std::istreambuf_iterator<char>(file), {})) {
            if (c == '\n' && !mail.ends_with('\r')) mail += '\r';
            mail += c;
        }
        mails.push_back(mail + "\r\n.\r\n");
    }
    return mails;
}

void ReportSpeed(benchmark::State& state, std::size_t bytes, double seconds) {
    const auto iterations = static_cast<double>(state.iterations());
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * static_cast<std::int64_t>(state.iterations()));
    state.counters["memcpys"] = seconds / iterations / MemcpySeconds(bytes);
}

}  // namespace tarvex::bench
