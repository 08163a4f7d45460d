#pragma once

// What holds of Shift-JIS text.

#include <string_view>

#include "platform/codec/text.h"

namespace tarvex::fuzz {

// Whether the text consists of whole characters.
inline bool HoldsWholeCharacters(std::string_view text) {
    while (!text.empty()) {
        const std::size_t bytes = CharacterBytes(text);
        if (bytes == 1 && !IsSingleByte(static_cast<unsigned char>(text.front()))) return false;
        text.remove_prefix(bytes);
    }
    return true;
}

}  // namespace tarvex::fuzz
