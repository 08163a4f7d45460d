#pragma once

// Makes server text safe to quote in an error message.

#include <cstddef>
#include <string>
#include <string_view>

namespace tarvex {

// The beginning of the text with "?" for everything but printable ASCII.
inline std::string Printable(std::string_view text, std::size_t max_bytes = 80) {
    std::string result(text.substr(0, max_bytes));
    for (char& c : result) {
        if (c < ' ' || c > '~') c = '?';
    }
    if (text.size() > max_bytes) result += "...";
    return result;
}

}  // namespace tarvex
