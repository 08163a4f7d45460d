#pragma once

// The Microsoft mapping of code page 932 (made by make_cp932_table.py).

#include <array>
#include <cstddef>
#include <span>

namespace tarvex {

inline constexpr std::size_t kCp932Leads = 60;    // 0x81 to 0x9F, 0xE0 to 0xFC
inline constexpr std::size_t kCp932Trails = 188;  // 0x40 to 0x7E, 0x80 to 0xFC
inline constexpr std::size_t kCp932Characters = kCp932Leads * kCp932Trails;

// The Unicode character of each double-byte code, in the order of the codes; 0 = no character. The user-defined leads
// 0xF0 to 0xF9 are left out: they stand for U+E000 and on.
extern const std::array<char16_t, kCp932Characters> kCp932ToUnicode;

// A character that the code page lacks and what is written in its place: 0 = nothing.
struct Folding {
    char16_t from;
    char16_t to;
};

extern const std::span<const Folding> kFoldings;  // ascending by `from`

}  // namespace tarvex
