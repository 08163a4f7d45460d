// The kinds of generated mail, and the Maildir that holds them.

#include "tests/real/servers/mailbox_generator.h"

#include <iconv.h>
#include <openssl/evp.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <span>
#include <stdexcept>

namespace tarvex::testing {
namespace {

// ---- Raw material

constexpr std::string_view kEnglish =
    "Please find attached the minutes of the meeting. The next one is on Tuesday at three. From here on, all changes "
    "go through review. The quick brown fox jumps over the lazy dog. Totals for the quarter: 1,024 units; 98.6 percent "
    "on time; see http://www.example.test/report?id=42 for more. ";

// Characters whose second Shift-JIS byte is a backslash, a bracket or a bar are among them: 表 能 構 予 ポ ソ.
constexpr std::array<std::string_view, 8> kJapanese = {
    "お世話になっております。会議の資料をお送りしますので、ご確認ください。",
    "次回の打ち合わせは来週の火曜日、午後三時からを予定しています。",
    "ご不明な点がございましたら、お気軽にお問い合わせください。",
    "東京都千代田区丸の内一丁目、電話番号は03-1234-5678です。",
    "ソフトウェアの新しい版を公開しました。変更点は次のとおりです。",
    "表示、能力、予算、構成、ポリシー、転送、受信、送信、設定、保存。",
    "十二月の締め切りは申込書の到着をもって判断いたします。",
    "この電子メールは自動的に送信されています。",
};

constexpr std::array<std::string_view, 5> kEnglishSubjects = {
    "Minutes of the meeting", "Re: quotation", "[list 42] release notes", "Order confirmation", "Next week"};
constexpr std::array<std::string_view, 5> kJapaneseSubjects = {
    "会議の資料", "Re: 見積書の件", "【重要】システム停止のお知らせ", "ご注文の確認", "来週の予定について（更新）"};
constexpr std::array<std::string_view, 4> kEnglishNames = {"Alice Example", R"(Bob \"Bobby\" Sample)", "Carol",
                                                           "Dave O'Test"};
constexpr std::array<std::string_view, 4> kJapaneseNames = {"山田 太郎", "佐藤 花子", "鈴木 一郎", "高橋 能子"};

// SplitMix64: unlike the standard library's distributions, the same everywhere.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    std::uint64_t Next() {
        state_ += 0x9e3779b97f4a7c15U;
        std::uint64_t mixed = state_;
        mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9U;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebU;
        return mixed ^ (mixed >> 31U);
    }

    std::size_t Below(std::size_t bound) { return static_cast<std::size_t>(Next() % bound); }
    bool Chance(std::size_t percent) { return Below(100) < percent; }

    template <std::size_t N>
    std::string_view Pick(const std::array<std::string_view, N>& choices) {
        return choices[Below(N)];
    }

private:
    std::uint64_t state_;
};

std::string Convert(std::string_view utf8, const char* charset) {
    iconv_t converter = iconv_open(charset, "UTF-8");
    const bool none = converter == reinterpret_cast<iconv_t>(-1);  // NOLINT(performance-no-int-to-ptr): so POSIX has it
    if (none) throw std::runtime_error(std::string("no iconv for ") + charset);
    std::string result(utf8.size() * 3 + 64, '\0');
    std::string source(utf8);
    char* in = source.data();
    std::size_t in_left = source.size();
    char* out = result.data();
    std::size_t out_left = result.size();
    const bool converted = iconv(converter, &in, &in_left, &out, &out_left) != static_cast<std::size_t>(-1) &&
                           iconv(converter, nullptr, nullptr, &out, &out_left) != static_cast<std::size_t>(-1);
    iconv_close(converter);
    if (!converted) throw std::runtime_error(std::string("iconv failed for ") + charset);
    result.resize(result.size() - out_left);
    return result;
}

std::string Base64(std::string_view bytes) {
    std::string encoded((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(encoded.data()),
                        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    encoded.resize(static_cast<std::size_t>(length));
    return encoded;
}

std::string Base64Lines(std::string_view bytes) {
    constexpr std::size_t kBytesPerLine = 57;
    std::string lines;
    for (std::size_t at = 0; at < bytes.size(); at += kBytesPerLine) {
        lines += Base64(bytes.substr(at, kBytesPerLine)) + "\r\n";
    }
    return lines;
}

std::string QuotedPrintableLines(std::string_view bytes) {
    std::string lines;
    std::size_t column = 0;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const auto byte = static_cast<unsigned char>(bytes[at]);
        if (bytes.substr(at, 2) == "\r\n") {
            lines += "\r\n";
            column = 0;
            ++at;
            continue;
        }
        std::array<char, 4> unit{};
        const bool plain = byte > 0x20 && byte < 0x7f && byte != '=';
        const int width = std::snprintf(unit.data(), unit.size(), plain ? "%c" : "=%02X", byte);
        if (column + static_cast<std::size_t>(width) > 75) {
            lines += "=\r\n";
            column = 0;
        }
        lines += unit.data();
        column += static_cast<std::size_t>(width);
    }
    return lines;
}

// The characters of a UTF-8 text.
std::vector<std::string_view> Characters(std::string_view utf8) {
    std::vector<std::string_view> characters;
    for (std::size_t at = 0; at < utf8.size();) {
        std::size_t next = at + 1;
        while (next < utf8.size() && (static_cast<unsigned char>(utf8[next]) & 0xc0U) == 0x80) ++next;
        characters.push_back(utf8.substr(at, next - at));
        at = next;
    }
    return characters;
}

// RFC 2047 encoded words of at most 75 characters, folded.
std::string EncodedWords(std::string_view utf8, const char* charset) {
    const auto word = [&](const std::string& text) {
        return std::string("=?") + charset + "?B?" + Base64(Convert(text, charset)) + "?=";
    };
    std::string words;
    std::string current;
    for (std::string_view character : Characters(utf8)) {
        if (word(current + std::string(character)).size() > 75) {
            words += word(current) + "\r\n ";
            current.clear();
        }
        current += character;
    }
    return words + word(current);
}

std::string Replace(std::string text, std::string_view from, std::string_view to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// ---- One message in the making

class Draft {
public:
    Draft(std::string_view kind, int number, std::size_t size_bytes)
        : random(Seed(kind, number)),
          kind_(kind),
          number_(number),
          room_(size_bytes > 740 ? size_bytes - 700 : 40),
          date_(1600000000 + number * 61LL) {}

    Random random;

    int Number() const { return number_; }
    std::size_t Room() const { return room_; }  // bytes left for the body

    std::string MessageId() const {
        return "<" + std::to_string(date_) + "." + std::to_string(number_) + "." + kind_ + "@mail.example.test>";
    }

    std::string Boundary() const { return "----=_NextPart_" + std::to_string(number_) + "_0001"; }

    // The header block of an English message with its empty line; `more` are further lines.
    std::string Header(const std::string& more, bool message_id = true) {
        return HeaderWith("\"" + std::string(random.Pick(kEnglishNames)) + "\"",
                          std::string(random.Pick(kEnglishSubjects)) + " no. " + std::to_string(number_), more,
                          message_id);
    }

    std::string JapaneseHeader(const char* charset, const std::string& more) {
        const std::string name = EncodedWords(random.Pick(kJapaneseNames), charset);
        const std::string subject =
            EncodedWords(std::string(random.Pick(kJapaneseSubjects)) + " No." + std::to_string(number_), charset);
        return HeaderWith(name, subject, more, true);
    }

    // Lines of prose of about that many bytes; now and then an empty line, a quotation or a line that begins with a
    // dot.
    std::string English(std::size_t want_bytes) {
        std::string text;
        while (text.size() < want_bytes || text.empty()) {
            const std::size_t from = random.Below(kEnglish.size());
            const std::size_t width = 38 + random.Below(38);
            std::string line(kEnglish.substr(from, width));
            line += kEnglish.substr(0, width - line.size());
            text += Decorated(line) + "\r\n";
        }
        return text;
    }

    // The same in Japanese, UTF-8.
    std::string Japanese(std::size_t want_bytes) {
        std::string text;
        while (text.size() < want_bytes || text.empty()) {
            text += Decorated(std::string(random.Pick(kJapanese))) + "\r\n";
        }
        return text;
    }

    std::string Bytes(std::size_t count) {
        std::string bytes;
        while (bytes.size() < count) bytes += static_cast<char>(random.Next() & 0xffU);
        return bytes;
    }

private:
    static std::uint64_t Seed(std::string_view kind, int number) {
        std::uint64_t seed = 0xcbf29ce484222325U;
        for (char character : kind) seed = (seed ^ static_cast<unsigned char>(character)) * 0x100000001b3U;
        return seed + static_cast<std::uint64_t>(number);
    }

    std::string Decorated(const std::string& line) {
        const std::size_t dice = random.Below(100);
        if (dice < 12) return "";
        if (dice < 17) return "> " + line;
        if (dice < 19) return "." + line;
        return line;
    }

    std::string HeaderWith(const std::string& name, const std::string& subject, const std::string& more,
                           bool message_id) {
        const std::string sender = "user" + std::to_string(random.Below(1000)) + "@sender.example.test";
        std::string header;
        header += "Return-Path: <" + sender + ">\r\n";
        header += "Received: from relay.example.test (relay.example.test [192.0.2." +
                  std::to_string(1 + random.Below(254)) + "])\r\n\tby mx.example.test with ESMTP id " +
                  std::to_string(random.Next()) + "\r\n\tfor <alice@example.test>; " + Date() + "\r\n";
        header += "Date: " + Date() + "\r\n";
        header += "From: " + name + " <" + sender + ">\r\n";
        header += "To: alice@example.test\r\n";
        if (number_ % 7 == 0) header += "Cc: \"List\" <list@example.test>,\r\n\tcc@example.test\r\n";
        header += "Subject: " + subject + "\r\n";
        if (message_id) header += "Message-ID: " + MessageId() + "\r\n";
        header += "MIME-Version: 1.0\r\n";
        header += more;
        if (number_ % 3 == 0) header += "X-Mailer: Test Mailer 6.00\r\n";
        return header + "\r\n";
    }

    std::string Date() const {
        constexpr std::array<const char*, 7> kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
        constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
        const std::time_t tokyo = date_ + 9L * 3600;
        std::tm parts{};
        gmtime_r(&tokyo, &parts);
        std::array<char, 64> text{};
        std::snprintf(text.data(), text.size(), "%s, %02d %s %d %02d:%02d:%02d +0900",
                      kDays[static_cast<std::size_t>(parts.tm_wday)], parts.tm_mday,
                      kMonths[static_cast<std::size_t>(parts.tm_mon)], 1900 + parts.tm_year, parts.tm_hour,
                      parts.tm_min, parts.tm_sec);
        return text.data();
    }

    std::string kind_;
    int number_;
    std::size_t room_;
    std::time_t date_;
};

const std::string kAsciiText = "Content-Type: text/plain; charset=us-ascii\r\n";

std::string Part(const Draft& draft, const std::string& header, const std::string& body) {
    return "--" + draft.Boundary() + "\r\n" + header + "\r\n" + body + "\r\n";
}

std::string LastBoundary(const Draft& draft) { return "--" + draft.Boundary() + "--\r\n"; }

std::string Multipart(const Draft& draft, const std::string& subtype) {
    return "Content-Type: multipart/" + subtype + ";\r\n\tboundary=\"" + draft.Boundary() + "\"\r\n";
}

// ---- The ordinary kinds

std::string Ascii(Draft& draft) {
    return draft.Header(kAsciiText + "Content-Transfer-Encoding: 7bit\r\n") + draft.English(draft.Room());
}

std::string Jis(Draft& draft) {
    return draft.JapaneseHeader(
               "ISO-2022-JP", "Content-Type: text/plain; charset=ISO-2022-JP\r\nContent-Transfer-Encoding: 7bit\r\n") +
           Convert(draft.Japanese(draft.Room() * 14 / 10), "ISO-2022-JP");
}

std::string Utf8Base64(Draft& draft) {
    return draft.JapaneseHeader("UTF-8",
                                "Content-Type: text/plain; charset=\"UTF-8\"\r\n"
                                "Content-Transfer-Encoding: base64\r\n") +
           Base64Lines(draft.Japanese(draft.Room() * 73 / 100));
}

std::string Utf8EightBit(Draft& draft) {
    return draft.JapaneseHeader("UTF-8",
                                "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n") +
           draft.Japanese(draft.Room());
}

std::string AlternativeJis(Draft& draft) {
    const std::string type = "charset=\"iso-2022-jp\"\r\nContent-Transfer-Encoding: 7bit\r\n";
    const std::string plain = draft.Japanese(draft.Room() * 6 / 10);
    const std::string html = "<html><body>\r\n" + Replace(plain, "\r\n", "<br>\r\n") + "</body></html>\r\n";
    return draft.JapaneseHeader("ISO-2022-JP", Multipart(draft, "alternative")) +
           "This is a multi-part message in MIME format.\r\n\r\n" +
           Part(draft, "Content-Type: text/plain;\r\n\t" + type, Convert(plain, "ISO-2022-JP")) +
           Part(draft, "Content-Type: text/html;\r\n\t" + type, Convert(html, "ISO-2022-JP")) + LastBoundary(draft);
}

std::string HtmlQuotedPrintable(Draft& draft) {
    const std::string html =
        "<html><head><title>" + std::string(draft.random.Pick(kJapaneseSubjects)) + "</title></head><body>\r\n" +
        Replace(draft.Japanese(draft.Room() * 35 / 100), "\r\n", "<br>\r\n") + "</body></html>\r\n";
    return draft.JapaneseHeader("UTF-8",
                                "Content-Type: text/html; charset=UTF-8\r\n"
                                "Content-Transfer-Encoding: quoted-printable\r\n") +
           QuotedPrintableLines(html);
}

std::string AttachmentBody(Draft& draft, std::size_t text_bytes) {
    const std::size_t rest = draft.Room() > text_bytes + 500 ? draft.Room() - text_bytes - 500 : 16;
    return Base64Lines(draft.Bytes(rest * 73 / 100));
}

std::string Attachment(Draft& draft) {
    const std::size_t text_bytes = std::min<std::size_t>(draft.Room() / 4, 2000);
    return draft.Header(Multipart(draft, "mixed")) + "multi-part\r\n\r\n" +
           Part(draft, kAsciiText, draft.English(text_bytes)) +
           Part(draft,
                "Content-Type: application/pdf; name=\"report.pdf\"\r\n"
                "Content-Disposition: attachment; filename=\"report.pdf\"\r\nContent-Transfer-Encoding: base64\r\n",
                AttachmentBody(draft, text_bytes)) +
           LastBoundary(draft);
}

std::string JapaneseAttachment(Draft& draft) {
    const std::size_t text_bytes = std::min<std::size_t>(draft.Room() / 4, 2000);
    const std::string name = EncodedWords("資料.xls", "UTF-8");
    const std::string type = "; charset=UTF-8\r\nContent-Transfer-Encoding: base64\r\n";
    const std::string inner = draft.Boundary() + "a";
    const std::string text = draft.Japanese(text_bytes / 3);
    const std::string alternative = "--" + inner + "\r\nContent-Type: text/plain" + type + "\r\n" + Base64Lines(text) +
                                    "\r\n--" + inner + "\r\nContent-Type: text/html" + type + "\r\n" +
                                    Base64Lines("<p>" + text + "</p>") + "\r\n--" + inner + "--\r\n";
    return draft.JapaneseHeader("UTF-8", Multipart(draft, "mixed")) + "multi-part\r\n\r\n" +
           Part(draft, "Content-Type: multipart/alternative; boundary=\"" + inner + "\"\r\n", alternative) +
           Part(draft,
                "Content-Type: application/vnd.ms-excel;\r\n name=\"" + name +
                    "\"\r\nContent-Disposition: attachment;\r\n filename=\"" + name +
                    "\"\r\nContent-Transfer-Encoding: base64\r\n",
                AttachmentBody(draft, text_bytes)) +
           LastBoundary(draft);
}

// ---- The awkward kinds

std::string DotLines(Draft& draft) {
    return draft.Header(kAsciiText) + ".\r\n..\r\n...\r\n.a\r\n\r\n.\r\n\r\n.\r\nend\r\n..\r\n";
}

std::string LoneDot(Draft& draft) { return draft.Header(kAsciiText) + ".\r\n"; }

std::string OnlyDots(Draft& draft) {
    std::string text = draft.Header(kAsciiText);
    for (int line = 0; line < 3000; ++line) text += ".\r\n";
    return text;
}

std::string LongLines(Draft& draft) {
    return draft.Header(kAsciiText) + std::string(998, 'y') + "\r\n" + std::string(3000, 'x') + "\r\n" +
           std::string(70000, 'z') + "\r\n." + std::string(70000, '.') + "\r\n";
}

std::string EmptyBody(Draft& draft) { return draft.Header(kAsciiText); }

std::string NoHeaders(Draft& draft) {
    return "\r\nonly a body, no headers at all " + std::to_string(draft.Number()) + "\r\n";
}

std::string NoMessageId(Draft& draft) { return draft.Header(kAsciiText, false) + "no Message-ID\r\n"; }

std::string DuplicateMessageId(Draft& draft) {
    return draft.Header(kAsciiText + "Message-Id: <same@dup.example.test>\r\n", false) + "copy " +
           std::to_string(draft.Number()) + "\r\n";
}

std::string RawShiftJis(Draft& draft) {
    return draft.Header("Content-Type: text/plain; charset=Shift_JIS\r\nContent-Transfer-Encoding: 8bit\r\n") +
           Convert(draft.Japanese(2000), "SHIFT_JIS");
}

std::string RawEucJp(Draft& draft) {
    return draft.Header("Content-Type: text/plain; charset=EUC-JP\r\nContent-Transfer-Encoding: 8bit\r\n") +
           Convert(draft.Japanese(2000), "EUC-JP");
}

std::string RawSubject(Draft& draft) {
    return Replace(draft.Header(kAsciiText),
                   "Subject: ", "Subject: " + Convert("【重要】表示のお知らせ", "SHIFT_JIS") + " ") +
           "raw Shift-JIS in the Subject\r\n";
}

std::string HalfWidthKana(Draft& draft) {
    return draft.JapaneseHeader("ISO-2022-JP", "Content-Type: text/plain; charset=ISO-2022-JP\r\n") +
           "\x1b(I*]6= \x1b(B\r\n\x1b$B-!-\"\x1b(B\r\n\x1b$B$\"\r\nno way back to ASCII\r\n";
}

std::string FoldedHeaders(Draft& draft) {
    std::string more = kAsciiText + "X-Long: a\r\n\tb\r\n c\r\n  \t d\r\nX-Empty:\r\nX-Blank: \r\nReferences:";
    for (int reference = 0; reference < 60; ++reference) {
        more += (reference == 0 ? " <" : "\r\n <") + std::to_string(reference) + "@ref.example.test>";
    }
    return draft.Header(more + "\r\n") + "folded\r\n";
}

std::string NoLastLineEnd(Draft& draft) { return draft.Header(kAsciiText) + "no line end at the end"; }

std::string NoLastLineEndAfterDot(Draft& draft) { return draft.Header(kAsciiText) + "the last line is a dot\r\n."; }

// Every byte but NUL, CR and LF.
std::string ControlBytes(Draft& draft) {
    std::string body;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '\r' && byte != '\n') body += static_cast<char>(byte);
    }
    return draft.Header("Content-Type: application/octet-stream\r\n") + body + "\r\n\x80\r\n\xff\r\n\x1a\r\nafter\r\n";
}

std::string HeaderOnly(Draft& draft) {
    std::string header = draft.Header(kAsciiText);
    header.resize(header.size() - 2);
    return header;
}

std::string ManyReceived(Draft& draft) {
    std::string received;
    for (int hop = 0; hop < 60; ++hop) {
        received += "Received: from h" + std::to_string(hop) + " by h" + std::to_string(hop + 1) +
                    "; Mon, 1 Jan 2001 00:00:00 +0000\r\n";
    }
    return received + draft.Header(kAsciiText) + "loop?\r\n";
}

std::string BrokenMime(Draft& draft) {
    return draft.Header("Content-Type: multipart/mixed; boundary=\"never\"\r\n") +
           "--other\r\nContent-Type: text/html\r\n\r\nbroken <b>\r\n";
}

std::string NestedMime(Draft& draft) {
    std::string inner = "Content-Type: text/plain\r\n\r\nthe innermost\r\n";
    for (int level = 0; level < 40; ++level) {
        const std::string boundary = "level" + std::to_string(level);
        inner = "Content-Type: multipart/mixed; boundary=" + boundary + "\r\n\r\n--" + boundary + "\r\n" + inner +
                "--" + boundary + "--\r\n";
    }
    const std::size_t type_end = inner.find("\r\n\r\n");
    return draft.Header(inner.substr(0, type_end + 2)) + inner.substr(type_end + 4);
}

std::string MessageInMessage(Draft& draft) {
    return draft.Header("Content-Type: message/rfc822\r\n") + draft.Header(kAsciiText) + "forwarded as attachment\r\n";
}

std::string FromLine(Draft& draft) {
    return draft.Header(kAsciiText) + "From the start of a line\r\n>From quoted\r\n\r\nFrom after an empty line\r\n";
}

std::string MailboxLine(Draft& draft) {
    return "From someone@example.test Mon Jan  1 00:00:00 2001\r\n" + draft.Header(kAsciiText) +
           "taken out of an mbox file\r\n";
}

std::string Rfc2231(Draft& draft) {
    return draft.Header(
               "Content-Type: application/pdf; name*=UTF-8''%E8%B3%87%E6%96%99.pdf\r\n"
               "Content-Disposition: attachment; filename*0*=iso-2022-jp'ja'%1B%24B;\r\n filename*1*=%3BqNA%1B%28B;"
               " filename*2=\".pdf\"\r\nContent-Transfer-Encoding: base64\r\n") +
           Base64Lines(draft.Bytes(300));
}

std::string BigHeader(Draft& draft) {
    std::string more = kAsciiText;
    for (int field = 0; field < 80; ++field) {
        more += "X-Pad-" + std::to_string(field) + ": " + std::string(900, 'p') + "\r\n";
    }
    return draft.Header(more) + "72 KB of headers\r\n";
}

std::string OddHeaders(Draft& draft) {
    return draft.Header(kAsciiText +
                        "SUBJECT: shouted\r\nsubject: whispered\r\nX-Odd : a blank before the colon\r\n"
                        "Bcc: hidden@example.test\r\nContent-Length: 7\r\nDelivered-To: elsewhere@example.test\r\n"
                        "Resent-From: again@example.test\r\nResent-Bcc: hidden2@example.test\r\n"
                        "To: second@example.test\r\nStatus: RO\r\nLines: 1\r\n") +
           "odd headers\r\n";
}

std::string BlankLines(Draft& draft) {
    return draft.Header(kAsciiText) + "\r\n\r\n   \r\n\t\r\ntrailing white space \t \r\n\r\n\r\n\r\n";
}

std::string Uuencoded(Draft& draft) {
    return draft.Header(kAsciiText) + "begin 644 test.txt\r\n+2&5L;&\\L('=O<FQD\r\n`\r\nend\r\n";
}

// ---- The tables

struct Kind {
    std::string_view name;
    std::string (*make)(Draft&);
};

constexpr Kind kOrdinary[] = {
    {"ascii", Ascii},
    {"jis", Jis},
    {"utf8_base64", Utf8Base64},
    {"utf8_8bit", Utf8EightBit},
    {"alternative_jis", AlternativeJis},
    {"html_quoted_printable", HtmlQuotedPrintable},
    {"attachment", Attachment},
    {"japanese_attachment", JapaneseAttachment},
};

constexpr Kind kAwkward[] = {
    {"dot_lines", DotLines},
    {"lone_dot", LoneDot},
    {"only_dots", OnlyDots},
    {"long_lines", LongLines},
    {"empty_body", EmptyBody},
    {"no_headers", NoHeaders},
    {"no_message_id", NoMessageId},
    {"duplicate_message_id", DuplicateMessageId},
    {"duplicate_message_id_again", DuplicateMessageId},
    {"raw_shift_jis", RawShiftJis},
    {"raw_euc_jp", RawEucJp},
    {"raw_subject", RawSubject},
    {"half_width_kana", HalfWidthKana},
    {"folded_headers", FoldedHeaders},
    {"no_last_line_end", NoLastLineEnd},
    {"no_last_line_end_after_dot", NoLastLineEndAfterDot},
    {"control_bytes", ControlBytes},
    {"header_only", HeaderOnly},
    {"many_received", ManyReceived},
    {"broken_mime", BrokenMime},
    {"nested_mime", NestedMime},
    {"message_in_message", MessageInMessage},
    {"from_line", FromLine},
    {"mailbox_line", MailboxLine},
    {"rfc2231", Rfc2231},
    {"big_header", BigHeader},
    {"odd_headers", OddHeaders},
    {"blank_lines", BlankLines},
    {"uuencoded", Uuencoded},
};

std::vector<std::string_view> Names(std::span<const Kind> kinds) {
    std::vector<std::string_view> names;
    for (const Kind& kind : kinds) names.push_back(kind.name);
    return names;
}

const Kind& Find(std::string_view name) {
    for (const Kind& kind : kOrdinary) {
        if (kind.name == name) return kind;
    }
    for (const Kind& kind : kAwkward) {
        if (kind.name == name) return kind;
    }
    throw std::invalid_argument("no such kind of mail: " + std::string(name));
}

std::string MaildirName(const GeneratedMail& mail, std::size_t stored_bytes) {
    return std::to_string(1600000000 + mail.number) + ".M" + std::to_string(mail.number) +
           "P1.test,S=" + std::to_string(stored_bytes) + ",W=" + std::to_string(mail.text.size()) + ":2,";
}

}  // namespace

std::vector<std::string_view> OrdinaryKinds() { return Names(kOrdinary); }
std::vector<std::string_view> AwkwardKinds() { return Names(kAwkward); }

GeneratedMail MakeMail(std::string_view kind, int number, std::size_t size_bytes) {
    Draft draft(kind, number, size_bytes);
    return {number, std::string(kind), Find(kind).make(draft)};
}

std::vector<GeneratedMail> MakeOrdinaryMails(int count, std::size_t size_bytes, int first_number) {
    std::vector<GeneratedMail> mails;
    for (int number = first_number; number < first_number + count; ++number) {
        const auto& kind = kOrdinary[static_cast<std::size_t>(number) % std::size(kOrdinary)];
        mails.push_back(MakeMail(kind.name, number, size_bytes));
    }
    return mails;
}

std::vector<GeneratedMail> MakeAwkwardMails(int first_number) {
    std::vector<GeneratedMail> mails;
    for (const Kind& kind : kAwkward) mails.push_back(MakeMail(kind.name, first_number++, 0));
    return mails;
}

Maildir::Maildir(std::filesystem::path path) : path_(std::move(path)) {
    for (const char* folder : {"cur", "new", "tmp"}) std::filesystem::create_directories(path_ / folder);
}

void Maildir::Add(const GeneratedMail& mail) {
    const std::string stored = Replace(mail.text, "\r\n", "\n");
    const auto file = path_ / "cur" / MaildirName(mail, stored.size());
    std::ofstream out(file, std::ios::binary);
    out << stored;
    if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
}

void Maildir::Remove(int number) {
    const std::string prefix = std::to_string(1600000000 + number) + ".";
    for (const auto& entry : std::filesystem::directory_iterator(path_ / "cur")) {
        if (entry.path().filename().string().starts_with(prefix)) {
            std::filesystem::remove(entry.path());
            return;
        }
    }
}

int Maildir::Count() const {
    int count = 0;
    for (const char* folder : {"cur", "new"}) {
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(path_ / folder)) ++count;
    }
    return count;
}

}  // namespace tarvex::testing
