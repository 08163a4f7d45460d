// The terminal's UTF-8 to the Shift-JIS of the tree.

#include "host/terminal/tree_text.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "host/system/command_error.h"
#include "host/system/converter.h"
#include "host/system/display.h"

namespace tarvex::host {
namespace {

// The length that the first byte of a character announces, 1 for a byte that cannot be the first of several.
std::size_t AnnouncedBytes(unsigned char first) {
    if (first >= 0xF0) return 4;
    if (first >= 0xE0) return 3;
    return first >= 0xC0 ? 2 : 1;
}

std::uint32_t CodePoint(std::string_view character) {
    constexpr std::array<unsigned, 5> kFirstMask = {0, 0x7F, 0x1F, 0x0F, 0x07};
    std::uint32_t code = static_cast<unsigned char>(character.front()) & kFirstMask[character.size()];
    for (const char c : character.substr(1)) code = code << 6 | (static_cast<unsigned char>(c) & 0x3FU);
    return code;
}

bool IsControl(std::uint32_t code) { return code < 0x20 || (code >= 0x7F && code < 0xA0); }

std::string Number(const char* format, std::uint32_t number) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), format, static_cast<unsigned>(number));
    return text.data();
}

std::string Converted(std::string_view text, const char* to, const char* from) {
    Converter converter(to, from);
    if (!converter.IsThere()) {
        throw CommandError(kTryLater, std::string("the system has no converter from ") + from + " to " + to +
                                          " now (too many open files, or no memory?)");
    }
    std::string result;
    converter.Convert(text, result);
    return text.empty() ? result : std::string();
}

// Some signs have two code points, and Shift-JIS one of them (the wave dash, the minus sign): those are stored. But a
// yen sign must not become a backslash, nor an overline a tilde.
bool IsReadBack(std::string_view character, const std::string& stored) {
    if (stored.empty()) return false;
    return stored.size() == 2 || Utf8Text(stored) == character;
}

}  // namespace

std::string ToStored(std::string_view text) {
    std::string stored;
    while (!text.empty()) {
        const std::string_view character = text.substr(0, AnnouncedBytes(static_cast<unsigned char>(text.front())));
        if (Converted(character, "UTF-8", "UTF-8").empty()) {
            throw CommandError(kBadData, "the byte " + Number("0x%02X", static_cast<unsigned char>(text.front())) +
                                             " is not UTF-8, the character set in which tarvex reads its words");
        }
        const std::uint32_t code = CodePoint(character);
        const std::string name = Number("U+%04X", code);
        if (IsControl(code)) throw CommandError(kBadData, "the control character " + name + " cannot be stored");
        const std::string converted = Converted(character, "CP932", "UTF-8");
        if (!IsReadBack(character, converted)) {
            throw CommandError(kBadData,
                               "the character \"" + std::string(character) + "\" (" + name +
                                   ") cannot be stored: Shift-JIS, the character set of the tree, does not have it");
        }
        stored += converted;
        text.remove_prefix(character.size());
    }
    return stored;
}

}  // namespace tarvex::host
