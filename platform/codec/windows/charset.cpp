// The system's converter of character sets: its code pages.

#include "platform/codec/charset.h"

#include <windows.h>

#include <charconv>
#include <string>

namespace tarvex {

namespace {

// The number behind "windows-", "cp" or "ibm".
unsigned NumberedCodePage(std::string_view name) {
    for (const std::string_view prefix : {"windows-", "cp", "ibm"}) {
        if (!name.starts_with(prefix)) continue;
        const std::string_view digits = name.substr(prefix.size());
        unsigned number = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        return error == std::errc() && end == digits.data() + digits.size() ? number : 0;
    }
    return 0;
}

unsigned CodePageOf(std::string_view name) {
    const Charset* const known = FindCharset(name);
    const unsigned code_page = known ? known->windows_code_page : NumberedCodePage(name);
    return IsValidCodePage(code_page) ? code_page : 0;
}

// Some code pages take no flags, so that what does not belong to them is not found out.
DWORD CheckingFlags(unsigned code_page) {
    constexpr unsigned kUtf7 = 65000;
    const bool switches_sets = code_page >= 50220 && code_page <= 50229;
    return code_page == kUtf7 || switches_sets ? 0 : MB_ERR_INVALID_CHARS;
}

}  // namespace

std::unique_ptr<SystemCharset> SystemCharset::Open(const std::string& charset) {
    const std::uintptr_t code_page = CodePageOf(charset);
    if (code_page == 0) return nullptr;
    std::unique_ptr<SystemCharset> opened(new SystemCharset(reinterpret_cast<void*>(code_page)));
    return opened;
}

SystemCharset::~SystemCharset() = default;

std::optional<std::string> SystemCharset::ToUtf8(std::string_view text) {
    if (text.empty()) return std::string();
    const auto code_page = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(handle_));
    const int bytes = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(code_page, CheckingFlags(code_page), text.data(), bytes, nullptr, 0);
    if (units <= 0) return std::nullopt;
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    MultiByteToWideChar(code_page, 0, text.data(), bytes, wide.data(), units);

    const int utf8_bytes = WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(utf8_bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, utf8.data(), utf8_bytes, nullptr, nullptr);
    return utf8;
}

}  // namespace tarvex
