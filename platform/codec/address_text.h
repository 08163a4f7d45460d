#pragma once

#include <string>
#include <string_view>

namespace tarvex {

// A list of addresses (RFC 5322 section 3.4) in UTF-8, decoded, as text that may lose characters can show it: no
// address in it becomes another one.
//   - In "< >", in an address without them, and in whatever else holds an "@" and a character that Shift-JIS lacks: a
//     label of the domain that is not ASCII takes its xn-- form (RFC 3492), without any mapping but that of capital
//     letters.
//   - Another character there is written as "{U+FC}", and the domain ends in ".invalid": nobody can answer by mistake.
//   So
//     is what would begin an encoded word.
// Everything else stays as it is.
std::string WithUnmistakableAddresses(std::string_view utf8);

}  // namespace tarvex
