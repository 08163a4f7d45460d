// Makes text from servers and files safe to show on a terminal.

#include "host/system/display.h"

#include <algorithm>
#include <cstddef>

#include "host/system/hexadecimal.h"
#include "host/system/paths.h"
#include "tarvex/conversion.h"
#include "tarvex/settings.h"

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
    text.append("\\x").append(Hexadecimal(static_cast<unsigned char>(c)));
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

// Whether the word is the response of AUTH PLAIN: user, NUL, user, NUL and password in Base64. The scrambled form of a
// password is Base64 of complemented bytes, so what comes out of it is complemented: the NUL is 0xFF.
bool IsPlainLogin(std::string_view word) {
    const CString login = DecodePassWord(CString(word));
    const std::size_t end = login.find('\xFF');
    if (end == CString::npos || end == 0) return false;
    return std::string_view(login).substr(end + 1).starts_with(std::string_view(login).substr(0, end + 1));
}

// The text with each response of AUTH PLAIN starred, also one that a server sends back within a reply.
std::string WithoutPlainLogin(std::string_view text) {
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string result(text);
    for (std::size_t begin = 0; (begin = text.find_first_of(kDigits, begin)) != std::string_view::npos;) {
        const std::size_t padding = std::min(text.find_first_not_of(kDigits, begin), text.size());
        const std::size_t end = std::min(text.find_first_not_of('=', padding), text.size());
        if (IsPlainLogin(text.substr(begin, end - begin))) result.replace(begin, end - begin, end - begin, '*');
        begin = end;
    }
    return result;
}

// The text with something else in the place of each byte that is no UTF-8.
template <class Replace>
std::string WellFormed(std::string_view text, Replace replace) {
    std::string result;
    for (;;) {
        const std::size_t bytes = WellFormedUtf8Bytes(text);
        result += text.substr(0, bytes);
        if (bytes == text.size()) return result;
        replace(result, text[bytes]);
        text.remove_prefix(bytes + 1);
    }
}

}  // namespace

std::string ShowText(std::string_view text) { return Harmless(Utf8OfServerText(text), "\n\t"); }

std::string Utf8OfServerText(std::string_view text) { return Utf8FromText(WithoutPlainLogin(text)); }

std::string ShowUtf8Text(std::string_view text) {
    return Harmless(WellFormed(text, [](std::string& result, char) { result += '?'; }), "\n\t");
}

std::string ShowPath(std::string_view path) { return Harmless(WellFormed(PathAsUtf8(path), AppendHarmless), ""); }

}  // namespace tarvex::host
