// Makes foreign text fit for a line of the log.

#include "console/log.h"

#include <algorithm>

#include "console/http/url_text.h"

namespace tarvex::console {
namespace {

constexpr std::size_t kMostBytes = 200;

}  // namespace

std::string Printable(std::string_view text) {
    const bool is_text = IsText(text);
    std::string printable(text.substr(0, kMostBytes));
    while (is_text && !IsText(printable)) printable.pop_back();
    std::ranges::replace_if(
        printable,
        [is_text](char c) {
            const auto byte = static_cast<unsigned char>(c);
            return byte < ' ' || byte == 0x7F || (!is_text && byte > 0x7F);
        },
        '?');
    return printable;
}

}  // namespace tarvex::console
