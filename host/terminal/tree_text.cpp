// The terminal's UTF-8 to the Shift-JIS of the tree.

#include "host/terminal/tree_text.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "tarvex/conversion.h"

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

}  // namespace

std::string ToStored(std::string_view text) {
    std::string stored;
    while (!text.empty()) {
        const std::string_view character = text.substr(0, AnnouncedBytes(static_cast<unsigned char>(text.front())));
        if (WellFormedUtf8Bytes(character) < character.size()) {
            throw CommandError(kBadData,
                               Tr("the byte {0} is not UTF-8, the character set in which tarvex reads its words",
                                  Number("0x%02X", static_cast<unsigned char>(text.front()))));
        }
        const std::uint32_t code = CodePoint(character);
        const std::string name = Number("U+%04X", code);
        if (IsControl(code)) throw CommandError(kBadData, Tr("the control character {0} cannot be stored", name));
        const std::optional<CString> converted = TextFromUtf8(character);
        if (!converted) {
            throw CommandError(kBadData,
                               Tr("the character \"{0}\" ({1}) cannot be stored: Shift-JIS, the character set "
                                  "of the tree, does not have it",
                                  character, name));
        }
        stored += *converted;
        text.remove_prefix(character.size());
    }
    return stored;
}

}  // namespace tarvex::host
