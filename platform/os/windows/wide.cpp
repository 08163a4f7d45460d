// Between the system's code page and UTF-16.

#include "platform/os/windows/wide.h"

#include <windows.h>

namespace tarvex {

std::optional<std::wstring> ToWide(std::string_view text) {
    if (text.empty()) return std::wstring();
    const int bytes = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, text.data(), bytes, nullptr, 0);
    if (units <= 0) return std::nullopt;
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), bytes, wide.data(), units);
    return wide;
}

std::optional<std::string> FromWide(std::wstring_view text) {
    if (text.empty()) return std::string();
    const int units = static_cast<int>(text.size());
    const bool is_utf8 = GetACP() == CP_UTF8;  // which takes other arguments
    const DWORD flags = is_utf8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS;
    BOOL replaced = FALSE;
    BOOL* const is_replaced = is_utf8 ? nullptr : &replaced;
    const int bytes = WideCharToMultiByte(CP_ACP, flags, text.data(), units, nullptr, 0, nullptr, is_replaced);
    if (bytes <= 0 || replaced) return std::nullopt;
    std::string narrow(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_ACP, flags, text.data(), units, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

std::wstring NativePath(std::string_view path) {
    if (path.find('\0') != std::string_view::npos) return {};
    return ToWide(path).value_or(std::wstring());
}

std::wstring FullPath(const std::wstring& path) {
    std::wstring full(GetFullPathNameW(path.c_str(), 0, nullptr, nullptr), L'\0');  // with its zero
    const DWORD length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    full.resize(length < full.size() ? length : 0);
    return full;
}

}  // namespace tarvex
