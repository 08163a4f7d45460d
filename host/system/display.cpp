// Makes text from servers and files safe to show on a terminal.

#include "host/system/display.h"

#include <cstddef>

#include "host/system/converter.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

// How many bytes of UTF-8 the control character in front has, 0 when there is none: C0, DEL, or C1 (0xC2 first), whose
// 0x9B some terminals take for an escape sequence.
constexpr std::size_t ControlBytes(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x20 || first == 0x7F) return 1;
    if (first != 0xC2 || text.size() < 2) return 0;
    const auto second = static_cast<unsigned char>(text[1]);
    return second >= 0x80 && second <= 0x9F ? 2 : 0;
}

void AppendHarmless(std::string& text, char c) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(c);
    text += "\\x";
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
}

std::string Harmless(std::string_view text, std::string_view allowed) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t control_bytes = allowed.find(text.front()) == std::string_view::npos ? ControlBytes(text) : 0;
        for (const char c : text.substr(0, control_bytes)) AppendHarmless(result, c);
        if (control_bytes == 0) result += text.front();
        text.remove_prefix(control_bytes > 0 ? control_bytes : 1);
    }
    return result;
}

// As UTF-8. What to append for a byte that is no text is said by `replace`.
template <class Replace>
std::string ToUtf8(std::string_view text, const char* charset, Replace replace) {
    Converter converter("UTF-8", charset);
    std::string result;
    for (;;) {
        converter.Convert(text, result);
        if (text.empty()) return result;
        if (static_cast<unsigned char>(text.front()) < 0x80) {
            result += text.front();
        } else {
            replace(result, text.front());
        }
        text.remove_prefix(1);
    }
}

}  // namespace

std::string ShowText(std::string_view text, const char* charset) { return Harmless(Utf8Text(text, charset), "\n\t"); }

std::string Utf8Text(std::string_view text, const char* charset) {
    return ToUtf8(text, charset, [](std::string& result, char) { result += '?'; });
}

std::string ShowPath(std::string_view path) { return Harmless(ToUtf8(PathAsUtf8(path), "UTF-8", AppendHarmless), ""); }

}  // namespace tarvex::host
