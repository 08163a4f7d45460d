#pragma once

// Text as it stands in addresses and in forms (application/x-www-form-urlencoded).

#include <optional>
#include <string>
#include <string_view>

#include "console/http/fields.h"

namespace tarvex::console {

// More fields than this no page has; a form of more is refused.
inline constexpr std::size_t kMostFields = 2000;

// Whether the bytes are UTF-8 without a NUL, without characters written longer than need be, and without surrogates.
bool IsText(std::string_view bytes);

// The text behind %XX; nothing when an escape is cut short or is none, or the result is not text.
std::optional<std::string> DecodeEscapes(std::string_view encoded);

// The fields of a form or of what stands behind '?' ("a=1&b=x+y"). Nothing when an escape is wrong, something is not
// text, or there are too many fields.
std::optional<Fields> ParseForm(std::string_view encoded);

// Text as a part of a path or as a value of a query: everything but letters, digits and -._~ as %XX.
std::string EncodeEscapes(std::string_view text);

}  // namespace tarvex::console
