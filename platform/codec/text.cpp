// Small text operations over Shift-JIS bytes: trimming, letter case, the decimal conversion of the settings files, and
// the view of a line in which headers are recognised.

#include "platform/codec/text.h"

#include <algorithm>
#include <limits>

namespace tarvex {

namespace {

constexpr char kBlot = '\xFF';  // no letter, no bracket, and no byte of any character of the code page

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }

constexpr char UpperLetter(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// Applies `convert` to every single-byte character. Lead bytes pass through it as well: none of them is a letter.
template <class Convert>
std::string ConvertSingleBytes(std::string_view text, Convert convert) {
    std::string result(text);
    for (std::size_t i = 0; i < text.size(); i += CharacterBytes(text.substr(i))) result[i] = convert(text[i]);
    return result;
}

}  // namespace

std::string_view TrimBlanks(std::string_view text) { return TrimTrailingBlanks(TrimLeadingBlanks(text)); }

std::string_view TrimLeadingBlanks(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    return text;
}

std::string_view TrimTrailingBlanks(std::string_view text) {
    while (text.ends_with(' ')) text.remove_suffix(1);
    return text;
}

std::string_view TrimLeadingWhiteSpace(std::string_view text) {
    while (!text.empty() && IsWhiteSpace(text.front())) text.remove_prefix(1);
    return text;
}

std::string ToLower(std::string_view text) { return ConvertSingleBytes(text, LowerLetter); }

std::string ToUpper(std::string_view text) { return ConvertSingleBytes(text, UpperLetter); }

int DecimalValue(std::string_view text) {
    constexpr std::int64_t lowest = std::numeric_limits<int>::min();
    constexpr std::int64_t highest = std::numeric_limits<int>::max();

    text = TrimLeadingWhiteSpace(text);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    const std::int64_t limit = negative ? -lowest : highest;

    std::int64_t value = 0;
    for (; !text.empty() && IsDigit(text.front()); text.remove_prefix(1)) {
        value = value * 10 + (text.front() - '0');
        if (value > limit) value = limit;
    }
    return static_cast<int>(negative ? -value : value);
}

std::string HeaderView(std::string_view line) {
    std::string view = ToLower(line);
    for (std::size_t i = 0; i < line.size();) {
        const std::size_t bytes = CharacterBytes(line.substr(i));
        if (bytes == 2) view.replace(i, 2, 2, kBlot);
        i += bytes;
    }
    return view;
}

std::string WithoutLineBreaks(std::string_view text) {
    std::string line(text);
    std::ranges::replace_if(
        line, [](char c) { return c == '\r' || c == '\n'; }, ' ');
    return line;
}

bool IsBlankOrComment(std::string_view line) { return line.empty() || line.starts_with(';') || line.starts_with("//"); }

}  // namespace tarvex
