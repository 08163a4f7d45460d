// Writes the lines of the console's log.

#include "console/log.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

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

void Log(LogLevel level, std::string_view text) {
    static const bool is_read_by_journal = std::getenv("JOURNAL_STREAM") != nullptr;
    std::string line;
    if (is_read_by_journal) line += '<' + std::to_string(static_cast<int>(level)) + '>';
    line.append(text).append("\n");
    // Where it cannot be written there is nobody to tell.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace tarvex::console
