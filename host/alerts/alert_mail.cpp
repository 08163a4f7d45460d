// Writes the mail of an alert.

#include "host/alerts/alert_mail.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <random>
#include <string_view>

#include "host/tokens/login_speaker.h"
#include "host/ways/one_mail.h"
#include "tarvex/conversion.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kWordBytes = 75;  // of an encoded word (RFC 2047)
constexpr std::size_t kLineBytes = 76;

bool IsAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// How many bytes the first character has.
std::size_t FirstCharacter(std::string_view utf8) {
    std::size_t length = 1;
    while (length < utf8.size() && (static_cast<unsigned char>(utf8[length]) & 0xC0) == 0x80) ++length;
    return length;
}

// Whether every reader of ISO-2022-JP knows it: the rows of JIS X 0208 that have characters. Other systems have put
// characters of their own into the rows between.
bool IsOfJis(std::string_view jis) {
    const std::size_t start = jis.find("\x1b$B");
    if (start == std::string_view::npos || start + 3 >= jis.size()) return true;
    const char row = jis[start + 3];
    return (row >= 0x21 && row <= 0x28) || (row >= 0x30 && row <= 0x74);
}

// Each piece begins and ends in ASCII.
std::string Jis(std::string_view utf8) {
    CString text;
    while (!utf8.empty()) {
        const std::string_view character = utf8.substr(0, FirstCharacter(utf8));
        const CString stored = TextFromUtf8(character).value_or("?");
        text += IsOfJis(JisFromText(stored)) ? stored : "?";
        utf8.remove_prefix(character.size());
    }
    return JisFromText(text);
}

std::string EncodedWord(std::string_view utf8, bool japanese) {
    return japanese ? "=?ISO-2022-JP?B?" + Base64Encoded(Jis(utf8)) + "?=" : "=?UTF-8?B?" + Base64Encoded(utf8) + "?=";
}

// A field's value; folded where it is long.
std::string EncodedWords(std::string_view utf8, bool japanese) {
    if (IsAscii(utf8)) return std::string(utf8);
    std::string words;
    while (!utf8.empty()) {
        std::size_t length = FirstCharacter(utf8);
        for (std::size_t next = length; next < utf8.size();) {
            next += FirstCharacter(utf8.substr(next));
            if (EncodedWord(utf8.substr(0, next), japanese).size() > kWordBytes) break;
            length = next;
        }
        words += (words.empty() ? "" : "\r\n ") + EncodedWord(utf8.substr(0, length), japanese);
        utf8.remove_prefix(length);
    }
    return words;
}

std::string InLines(const std::string& text) {
    std::string lines;
    for (std::size_t i = 0; i < text.size(); i += kLineBytes) lines.append(text, i, kLineBytes).append("\r\n");
    return lines;
}

// Line by line, with CR LF.
std::string LinesOf(std::string_view body, const std::function<std::string(std::string_view)>& write) {
    std::string lines;
    while (!body.empty()) {
        const std::size_t end = std::min(body.find('\n'), body.size());
        lines += write(body.substr(0, end)) + "\r\n";
        body.remove_prefix(std::min(end + 1, body.size()));
    }
    return lines;
}

std::string DotStuffed(const std::string& lines) {
    std::string stuffed = lines.starts_with('.') ? "." : "";
    for (std::size_t i = 0; i < lines.size(); ++i) {
        stuffed += lines[i];
        if (lines[i] == '\n' && i + 1 < lines.size() && lines[i + 1] == '.') stuffed += '.';
    }
    return stuffed;
}

// No other alert has it.
std::string MessageId(const std::string& from, CTime now) {
    std::random_device random;
    std::array<char, 64> name{};
    std::snprintf(name.data(), name.size(), "alert-%lld-%08x%08x", static_cast<long long>(now), random(), random());
    return std::string("<") + name.data() + from.substr(from.rfind('@')) + '>';
}

// A text of which every line goes as it is.
std::string OneLineField(std::string text) {
    std::ranges::replace_if(
        text, [](unsigned char c) { return c < ' ' || c == 0x7F; }, ' ');
    return text;
}

}  // namespace

std::string AlertMail(const AlertText& text, Language language, const std::string& from, const std::string& to,
                      CTime now) {
    const bool ascii = IsAscii(text.body);
    const bool japanese = language == Language::Japanese;
    const char* const type = ascii ? "us-ascii" : japanese ? "ISO-2022-JP" : "UTF-8";
    const char* const encoding = ascii || japanese ? "7bit" : "base64";
    std::string mail =
        "\r\nFrom: Tarvex <" + from + ">\r\nTo: <" + to +
        ">\r\nSubject: " + EncodedWords(OneLineField(text.subject), japanese) + "\r\nDate: " + MailDate(now) +
        "\r\nMessage-ID: " + MessageId(from, now) +
        "\r\nAuto-Submitted: auto-generated\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=" + type +
        "\r\nContent-Transfer-Encoding: " + encoding + "\r\n\r\n";
    const auto as_it_is = [](std::string_view line) { return std::string(line); };
    const bool in_jis = !ascii && japanese;
    const std::string lines = LinesOf(text.body, in_jis ? std::function<std::string(std::string_view)>(Jis) : as_it_is);
    mail += ascii || japanese ? DotStuffed(lines) : InLines(Base64Encoded(lines));
    return mail + ".\r\n";
}

}  // namespace tarvex::host
