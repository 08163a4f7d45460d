#pragma once

// What may be shown on a terminal: UTF-8, with control characters made harmless ("\x1b").

#include <string>
#include <string_view>

namespace tarvex::host {

// Text of the tree, of its logs and from servers: Shift-JIS. A byte that is no text shows as "?". Line feeds and tabs
// stay. The response of AUTH PLAIN, which holds the password, shows as asterisks.
std::string ShowText(std::string_view text);

// The same with its control characters, for JSON.
std::string Utf8OfServerText(std::string_view text);

// The same for text that is UTF-8: what a person has typed, for instance.
std::string ShowUtf8Text(std::string_view text);

// A path of the tree in the system's own form; a byte that is no UTF-8 is made visible like a control character.
std::string ShowPath(std::string_view path);

}  // namespace tarvex::host
