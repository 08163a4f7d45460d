#pragma once

// Passwords as the settings files hold them. These throw std::bad_alloc, where the exported functions return an empty
// text: a record must never be saved with an empty password because memory ran out.

#include <string>
#include <string_view>

namespace tarvex {

// Base64 of the complemented bytes; empty for an empty password.
std::string ScramblePassword(std::string_view plain);

// The reverse, but for 0xFF bytes at the end of the password: they are complemented to zero bytes, and zero bytes at
// the end of the decoded form are cut off. Kept on purpose.
std::string UnscramblePassword(const std::string& stored);

}  // namespace tarvex
