#pragma once

#include <span>
#include <string>
#include <string_view>

namespace tarvex::host {

// Two lower-case digits for each byte.
inline std::string Hexadecimal(std::span<const unsigned char> bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const unsigned char byte : bytes) text.append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 0xF]);
    return text;
}

inline std::string Hexadecimal(unsigned char byte) { return Hexadecimal({&byte, 1}); }

}  // namespace tarvex::host
