#pragma once

// What may be shown on a terminal.

#include <string>
#include <string_view>

namespace tarvex::host {

// Log text as UTF-8: Shift-JIS is converted, and what is none shows as "?". Comes from servers, so control characters
// other than the line feed are made harmless ("\x1b").
std::string ShowText(std::string_view shift_jis);

// A path of the tree in the system's own form, control characters made harmless.
std::string ShowPath(std::string_view path);

}  // namespace tarvex::host
