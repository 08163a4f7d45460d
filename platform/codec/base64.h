#pragma once

// Base64 (RFC 4648 section 4). `source` and `target` may be the same string.

#include <string>
#include <string_view>

namespace tarvex {

// Fills `target` with the Base64 form of every byte of `source`, zero bytes included, with padding and without line
// breaks.
void Base64Encode(const std::string* source, std::string* target);

// Fills `target` with the bytes of a Base64 text, so that every text has a decoded form: characters outside the
// alphabet are skipped, decoding stops at the padding that completes a quantum ("=" behind three digits, "==" behind
// two), padding elsewhere is skipped, and bits that do not fill a byte are dropped.
void Base64Decode(const std::string* source, std::string* target);

// Whether the text may be Base64, white space aside. It cannot be when it has another character outside the alphabet,
// padding behind fewer than two digits, or a last quantum of a single digit. What follows the padding that completes a
// quantum does not count but for its characters.
bool CouldBeBase64(std::string_view text);

// The lines in front that hold nothing but Base64 and blanks: what lists and scanners append in clear is no part of it.
// All of the text where already its first line holds something else.
std::string_view Base64Lines(std::string_view text);

}  // namespace tarvex
