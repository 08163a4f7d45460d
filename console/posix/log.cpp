// Writes the lines of the console's log.

#include "console/log.h"

#include <unistd.h>

#include <cstdlib>

namespace tarvex::console {

void Log(LogLevel level, std::string_view text) {
    static const bool is_read_by_journal = std::getenv("JOURNAL_STREAM") != nullptr;
    std::string line;
    if (is_read_by_journal) line += '<' + std::to_string(static_cast<int>(level)) + '>';
    line.append(text).append("\n");
    // Where it cannot be written there is nobody to tell.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace tarvex::console
