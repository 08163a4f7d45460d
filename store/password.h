#pragma once

// Passwords as the settings files hold them. These throw std::bad_alloc, where the exported functions return an empty
// text: a record must never be saved with an empty password because memory ran out.

#include <string>
#include <string_view>

namespace tarvex {

// Base64 of the complemented bytes; empty for an empty password.
std::string ScramblePassword(std::string_view plain);

// The reverse. A text that cannot be Base64 was typed in clear: it is the password itself. Of any other, 0xFF bytes at
// the end of the password are lost (B13).
std::string UnscramblePassword(const std::string& stored);

}  // namespace tarvex
