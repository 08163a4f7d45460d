#pragma once

// The fields of a fetched message's header.

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace tarvex::host {

constexpr char SmallLetter(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// Takes the header's next field off the message, with its line ends and the lines that continue it. Empty at the end of
// the header.
inline std::string_view TakeField(std::string_view& message) {
    constexpr std::string_view kLineEnd = "\r\n";
    if (message.starts_with(kLineEnd)) return {};
    std::size_t end = 0;
    do {
        end = message.find(kLineEnd, end);
        end = end == std::string_view::npos ? message.size() : end + kLineEnd.size();
    } while (end < message.size() && (message[end] == ' ' || message[end] == '\t'));
    const std::string_view field = message.substr(0, end);
    message.remove_prefix(end);
    return field;
}

inline bool IsCalled(std::string_view field, std::string_view small_name) {
    return field.size() > small_name.size() && field[small_name.size()] == ':' &&
           std::ranges::equal(field.substr(0, small_name.size()), small_name, {}, SmallLetter);
}

// What stands behind the name.
inline std::string_view ValueIn(std::string_view field) {
    return field.substr(std::min(field.size(), field.find(':') + 1));
}

}  // namespace tarvex::host
