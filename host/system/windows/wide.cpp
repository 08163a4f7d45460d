// UTF-16 to UTF-8 and to the code page.

#include "host/system/windows/wide.h"

#include <array>

namespace tarvex::host {

std::string Narrow(unsigned code_page, std::wstring_view text) {
    const int units = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(code_page, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(code_page, 0, text.data(), units, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

std::wstring Wide(unsigned code_page, std::string_view text) {
    const int bytes = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(code_page, 0, text.data(), bytes, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    MultiByteToWideChar(code_page, 0, text.data(), bytes, wide.data(), units);
    return wide;
}

std::string SystemMessage(DWORD error) {
    constexpr DWORD kFlags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK;
    std::array<wchar_t, 512> text{};
    const DWORD length = FormatMessageW(kFlags, nullptr, error, 0, text.data(), text.size(), nullptr);
    const std::wstring_view said(text.data(), length);
    const std::size_t end = said.find_last_not_of(L". \u3002");
    return end == std::wstring_view::npos ? std::to_string(error) : Utf8(said.substr(0, end + 1));
}

}  // namespace tarvex::host
