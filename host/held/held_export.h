#pragma once

// Held messages as other mail programs take them.

#include <string>
#include <string_view>

namespace tarvex::host {

// The message of a text that POP3 delivered: without the line end of the status line before it, without the "." line
// behind it, not dot-stuffed.
std::string MessageIn(std::string_view fetched);

// Its header, fit to be shown, up to so many bytes of it.
std::string ShowHead(std::string_view fetched, std::size_t most_bytes);

}  // namespace tarvex::host
