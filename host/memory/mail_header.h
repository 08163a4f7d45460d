#pragma once

// A fetched message and the fields of its header.

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

namespace tarvex::host {

constexpr char SmallLetter(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// A message as POP3 delivered it, with or without the line end before it and the "." line behind it. Its parts belong
// to the text that it was made of.
struct SplitMail {
    explicit SplitMail(std::string_view message);

    std::vector<std::string_view> fields;  // of the header, one behind the other, with their line ends
    std::string_view rest;                 // begins with the line end of the empty line, where there is one
};

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

inline SplitMail::SplitMail(std::string_view message) : rest(message) {
    if (rest.starts_with("\r\n")) rest.remove_prefix(2);
    if (rest == ".\r\n") rest = {};
    if (rest.ends_with("\r\n.\r\n")) rest.remove_suffix(3);
    fields.reserve(32);
    for (auto field = TakeField(rest); !field.empty(); field = TakeField(rest)) fields.push_back(field);
}

// What stands behind the name.
inline std::string_view ValueIn(std::string_view field) {
    return field.substr(std::min(field.size(), field.find(':') + 1));
}

}  // namespace tarvex::host
