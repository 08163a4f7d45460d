#pragma once

// What the readers of configuration files share.

#include <algorithm>
#include <string>
#include <string_view>

#include "host/system/command_error.h"

#include "host/language/tr.h"

namespace tarvex::host {

inline CommandError BadLine(int line, const std::string& why) { return {kBadData, Tr("line {0}: {1}", line, why)}; }

// Takes a text apart into lines, without their ends.
class Lines {
public:
    // Throws CommandError for a text with a NUL, which is none.
    explicit Lines(std::string_view text) : rest_(text) {
        const std::size_t nul = text.find('\0');
        if (nul == std::string_view::npos) return;
        int line = 1;
        for (const char c : text.substr(0, nul)) line += c == '\n' ? 1 : 0;
        throw BadLine(line, Tr("there is a NUL: this is no text"));
    }

    bool Next(std::string_view& line) {
        if (rest_.empty()) return false;
        const std::size_t end = std::min(rest_.find('\n'), rest_.size());
        line = rest_.substr(0, end);
        rest_.remove_prefix(std::min(end + 1, rest_.size()));
        if (line.ends_with('\r')) line.remove_suffix(1);
        ++number_;
        return true;
    }

    int Number() const { return number_; }  // of the line that was given last, from 1

private:
    std::string_view rest_;
    int number_ = 0;
};

inline bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v'; }

inline std::string_view Trimmed(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

// With small ASCII letters, whatever the locale.
inline std::string Small(std::string_view text) {
    std::string small(text);
    for (char& c : small) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return small;
}

}  // namespace tarvex::host
