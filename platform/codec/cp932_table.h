#pragma once

// The Microsoft mapping of code page 932 (made by make_cp932_table.py).

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tarvex {

inline constexpr std::size_t kCp932Leads = 60;    // 0x81 to 0x9F, 0xE0 to 0xFC
inline constexpr std::size_t kCp932Trails = 188;  // 0x40 to 0x7E, 0x80 to 0xFC
inline constexpr std::size_t kCp932Characters = kCp932Leads * kCp932Trails;

// The Unicode character of each double-byte code, in the order of the codes; 0 = no character. The user-defined leads
// 0xF0 to 0xF9 are left out: they stand for U+E000 and on.
extern const std::array<char16_t, kCp932Characters> kCp932ToUnicode;

// A character that the code page lacks, and what is written in its place: 0 = nothing; an ASCII character, a half-width
// katakana or a double-byte code; kFirstText and up = one of the texts, in Shift-JIS. Nothing of it counts as structure
// in a header but parentheses and full stops.
struct LookAlike {
    char32_t character;
    std::uint16_t written;
};
inline constexpr std::uint16_t kFirstText = 0x100;
inline constexpr std::uint16_t kFirstCode = 0x8140;

extern const std::span<const LookAlike> kLookAlikes;  // ascending by character
extern const std::span<const std::string_view> kLookAlikeTexts;

}  // namespace tarvex
