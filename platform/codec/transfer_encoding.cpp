// Quoted-printable and uuencode, decoding.

#include "platform/codec/transfer_encoding.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace tarvex {
namespace {

std::optional<unsigned> HexDigit(char c) {
    if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
    if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
    if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
    return std::nullopt;
}

// The byte that the text behind an "=" stands for.
std::optional<char> HexByte(std::string_view text) {
    if (text.size() < 2) return std::nullopt;
    const auto high = HexDigit(text[0]);
    const auto low = HexDigit(text[1]);
    if (!high || !low) return std::nullopt;
    return static_cast<char>(*high << 4 | *low);
}

// The length of a soft line break behind its "="; 0 when it is none.
std::size_t SoftBreakBytes(std::string_view text) {
    const std::size_t blanks = std::min(text.find_first_not_of(" \t"), text.size());
    text.remove_prefix(blanks);
    if (text.starts_with("\r\n")) return blanks + 2;
    return text.starts_with('\n') ? blanks + 1 : 0;
}

std::string_view TakeLine(std::string_view& text) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

constexpr bool IsUuCharacter(char c) { return c >= ' ' && c <= '`'; }
constexpr unsigned UuValue(char c) { return static_cast<unsigned>(c - ' ') & 0x3F; }

// Appends the bytes of one line; false when the line is no uuencode.
bool AppendUuLine(std::string_view line, std::string& out) {
    if (line.empty() || !IsUuCharacter(line[0])) return false;
    std::size_t length = UuValue(line[0]);
    const std::size_t encoded_bytes = (length + 2) / 3 * 4;
    // A line of 14 bytes begins with a dot of its own; a second dot belongs to it only when the rest is too short
    // otherwise.
    if (line.starts_with("..") && line.size() != 1 + encoded_bytes) line.remove_prefix(1);
    line.remove_prefix(1);

    const auto value = [line](std::size_t index) { return index < line.size() ? UuValue(line[index]) : 0; };
    for (std::size_t i = 0; length > 0; i += 4) {
        const unsigned bits = value(i) << 18 | value(i + 1) << 12 | value(i + 2) << 6 | value(i + 3);
        for (unsigned shift : {16U, 8U, 0U}) {
            if (length == 0) break;
            out += static_cast<char>(bits >> shift & 0xFF);
            --length;
        }
    }
    return true;
}

}  // namespace

void QuotedPrintableDecode(const std::string* source, std::string* target) {
    std::string_view text = *source;
    std::string out;
    out.reserve(text.size());
    for (;;) {
        const std::size_t equals = text.find('=');
        out.append(text.substr(0, equals));
        if (equals == std::string_view::npos) break;
        text.remove_prefix(equals + 1);
        if (const auto byte = HexByte(text)) {
            out += *byte;
            text.remove_prefix(2);
        } else if (const std::size_t soft_break = SoftBreakBytes(text)) {
            text.remove_prefix(soft_break);
        } else {
            out += '=';
        }
    }
    *target = std::move(out);
}

void UUDecode(const std::string* source, std::string* target) {
    std::string_view text = *source;
    std::string out;
    while (!text.empty() && !TakeLine(text).starts_with("begin ")) continue;
    out.reserve(text.size() / 4 * 3);
    // A line of one character may stand for 63 bytes: what is longer than its source lies about itself.
    while (!text.empty() && out.size() <= source->size()) {
        const std::string_view line = TakeLine(text);
        if (line == "end" || !AppendUuLine(line, out)) break;
    }
    out.resize(std::min(out.size(), source->size()));
    *target = std::move(out);
}

}  // namespace tarvex
