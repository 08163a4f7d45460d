#pragma once

// Bytes that came as text.

#include <optional>
#include <string>
#include <string_view>

namespace tarvex::console {

// The bytes behind Base64; nothing for what is none.
std::optional<std::string> FromBase64(std::string_view text);

}  // namespace tarvex::console
