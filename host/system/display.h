#pragma once

// What may be shown on a terminal: UTF-8, with control characters made harmless ("\x1b").

#include <string>
#include <string_view>

namespace tarvex::host {

// Text that comes from servers, in a character set that the system knows: log text is Shift-JIS. A byte that is no text
// shows as "?". Line feeds and tabs stay.
std::string ShowText(std::string_view text, const char* charset = "CP932");

// The same, but control characters stay as they are: for JSON, which has escapes of its own.
std::string Utf8Text(std::string_view text, const char* charset = "CP932");

// A path of the tree in the system's own form; a byte that is no UTF-8 is made visible like a control character.
std::string ShowPath(std::string_view path);

}  // namespace tarvex::host
