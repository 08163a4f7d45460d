#pragma once

#include <cstddef>
#include <string>

namespace tarvex {

inline constexpr std::size_t kMaxLine_bytes = 998;  // without its line end: RFC 5321 section 4.5.3.1.6

// Fills `target` from `source`, which may be the same object: ISO-2022-JP or ASCII, in ASCII state at each line end. A
// line of more bytes than one may have is broken: into lines of at most 76 columns, behind a blank where there is one,
// else between two characters. Each is in ASCII state at its end, too. Every other line stays as it is.
void BreakLongLines(const std::string* source, std::string* target);

}  // namespace tarvex
