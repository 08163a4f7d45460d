// The system's converter of character sets: its code pages.

#include "platform/codec/charset.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

namespace tarvex {

namespace {

struct NamedCodePage {
    std::string_view name;
    unsigned code_page;
};
// Without "-" and "_", on whose use mails do not agree.
constexpr std::array<NamedCodePage, 31> kNamed = {{
    {"usascii", 20127},   {"ascii", 20127},     {"ansix3.41968", 20127},
    {"iso88591", 28591},  {"latin1", 28591},    {"l1", 28591},
    {"iso88592", 28592},  {"latin2", 28592},    {"iso88593", 28593},
    {"iso88594", 28594},  {"iso88595", 28595},  {"iso88596", 28596},
    {"iso88597", 28597},  {"iso88598", 28598},  {"iso88599", 28599},
    {"latin5", 28599},    {"iso885913", 28603}, {"iso885915", 28605},
    {"latin9", 28605},    {"koi8r", 20866},     {"koi8u", 21866},
    {"gb2312", 936},      {"gbk", 936},         {"gb18030", 54936},
    {"big5", 950},        {"euckr", 949},       {"ksc56011987", 949},
    {"uhc", 949},         {"iso2022kr", 50225}, {"tis620", 874},
    {"macintosh", 10000},
}};

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
    std::string plain_name(name);
    std::erase_if(plain_name, [](char c) { return c == '-' || c == '_'; });
    const auto* const named = std::ranges::find(kNamed, plain_name, &NamedCodePage::name);
    const unsigned code_page = named != kNamed.end() ? named->code_page : NumberedCodePage(name);
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
