#pragma once

// Small text operations over Shift-JIS bytes.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarvex {

// The byte classes of code page 932.
constexpr bool IsLeadByte(unsigned char byte) {
    return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC);
}
constexpr bool IsTrailByte(unsigned char byte) {
    return (byte >= 0x40 && byte <= 0x7E) || (byte >= 0x80 && byte <= 0xFC);
}

constexpr bool IsSingleByte(unsigned char byte) { return byte < 0x80 || (byte >= 0xA1 && byte <= 0xDF); }

// The length of the first character of a text that is not empty: 2 for a lead byte followed by a trail byte, else 1. A
// lead byte at the end of the text or before a byte that is no trail byte is a character of its own.
constexpr std::size_t CharacterBytes(std::string_view text) {
    return text.size() > 1 && IsLeadByte(static_cast<unsigned char>(text[0])) &&
                   IsTrailByte(static_cast<unsigned char>(text[1]))
               ? 2
               : 1;
}

// 9 to 13 and 32, whatever the locale.
constexpr bool IsWhiteSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

std::string_view TrimBlanks(std::string_view text);             // without leading and trailing blanks (0x20 only)
std::string_view TrimLeadingBlanks(std::string_view text);      // without leading blanks (0x20 only)
std::string_view TrimTrailingBlanks(std::string_view text);     // without trailing blanks (0x20 only)
std::string_view TrimLeadingWhiteSpace(std::string_view text);  // without leading white space

// ASCII letters, whatever the locale.
constexpr char LowerLetter(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// ASCII letters only; the bytes of double-byte characters stay.
std::string ToLower(std::string_view text);
std::string ToUpper(std::string_view text);

// The lenient decimal conversion of the settings files: leading white space, an optional sign, the leading digits; 0
// without digits. Saturates at the limits of 32 bits.
int DecimalValue(std::string_view text);

// The line in the form in which headers are searched: ASCII letters in lower case, every double-byte character replaced
// by 0xFF bytes, so that a trail byte 0x5B or 0x5D never reads as a bracket. Same length as the line.
std::string HeaderView(std::string_view line);

// The text with a blank for every CR and every LF, so that it fits in one line of a file.
std::string WithoutLineBreaks(std::string_view text);

// Whether a settings file ignores the line: it is empty or a comment (";" or "//" first). Expects a trimmed line.
bool IsBlankOrComment(std::string_view line);

}  // namespace tarvex
