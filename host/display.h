#pragma once

// What may be shown on a terminal: UTF-8, with control characters made harmless ("\x1b").

#include <string>
#include <string_view>

namespace tarvex::host {

// Log text, which is Shift-JIS and comes from servers; a byte that is none shows as "?". Line feeds and tabs stay.
std::string ShowText(std::string_view shift_jis);

// A path of the tree in the system's own form; a byte that is no UTF-8 is made visible like a control character.
std::string ShowPath(std::string_view path);

// A path of the tree in the system's own form, as it is.
std::string NativePath(std::string_view path);

}  // namespace tarvex::host
