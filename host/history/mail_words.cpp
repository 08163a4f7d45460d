// How text is cut into words for the index, which takes them from what stands between blanks and signs.

#include "host/history/mail_words.h"

#include <cstddef>
#include <cstdint>

#include "host/system/display.h"
#include "tarvex/conversion.h"

namespace tarvex::host {
namespace {

constexpr std::uint32_t kFirstEastAsian = 0x2E80;
constexpr std::uint32_t kFullWidthFirst = 0xFF01;
constexpr std::uint32_t kFullWidthLast = 0xFF5E;
constexpr std::uint32_t kFullWidthBlank = 0x3000;

// The character at the front of well-formed UTF-8.
std::string_view TakeCharacter(std::string_view& utf8) {
    std::size_t bytes = 1;
    while (bytes < utf8.size() && (static_cast<unsigned char>(utf8[bytes]) & 0xC0) == 0x80) ++bytes;
    const std::string_view character = utf8.substr(0, bytes);
    utf8.remove_prefix(bytes);
    return character;
}

std::uint32_t CodePoint(std::string_view character) {
    const auto first = static_cast<unsigned char>(character.front());
    std::uint32_t code = character.size() == 1 ? first : first & (0xFFU >> (character.size() + 1));
    for (const char next : character.substr(1)) code = code << 6 | (static_cast<unsigned char>(next) & 0x3FU);
    return code;
}

bool IsLetterOrDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

}  // namespace

std::string SearchWords(std::string_view utf8) {
    std::string words;
    const std::string text = ShowUtf8Text(utf8);  // which is well formed
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view character = TakeCharacter(rest);
        const std::uint32_t code = CodePoint(character);
        if (code >= kFullWidthFirst && code <= kFullWidthLast) {
            words += static_cast<char>(code - kFullWidthFirst + '!');
        } else if (code < 0x80) {
            words += IsLetterOrDigit(character.front()) ? character.front() : ' ';
        } else if (code < kFirstEastAsian) {
            words += character;
        } else if (code != kFullWidthBlank) {
            words.append(" ").append(character).append(" ");
        }
    }
    return words;
}

std::string SearchWords(const TracedMail& mail) {
    const CHeadlines headlines = HeadlinesOf(mail.header);
    std::string words;
    for (const CString* const text : {&headlines.from, &headlines.subject, &headlines.message_id, &mail.uidl})
        words += SearchWords(Utf8OfServerText(*text)) + ' ';
    for (const TracedCopy& copy : mail.copies) {
        words += SearchWords(Utf8OfServerText(copy.address)) + ' ';
        words += SearchWords(Utf8OfServerText(copy.words)) + ' ';
    }
    return words;
}

std::string SearchPhrase(std::string_view utf8) {
    const std::string words = SearchWords(utf8);
    if (words.find_first_not_of(' ') == std::string::npos) return {};
    return '"' + words + "\" *";
}

}  // namespace tarvex::host
