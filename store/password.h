#pragma once

// Passwords as the settings files hold them. These throw std::bad_alloc, where the exported functions return an empty
// text: a record must never be saved with an empty password because memory ran out.

#include <string>
#include <string_view>

namespace tarvex {

// Base64 of the complemented bytes; empty for an empty password.
std::string ScramblePassword(std::string_view plain);

// The reverse, except that 0xFF bytes at the end of a password are lost (B13).
std::string UnscramblePassword(const std::string& stored);

}  // namespace tarvex
