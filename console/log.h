#pragma once

// The console's own log: lines on standard error, for the journal; entries of the event log where Windows' service
// manager has started it.

#include <string>
#include <string_view>

namespace tarvex::console {

enum class LogLevel { Error = 3, Warning = 4, Information = 6 };  // as syslog numbers them

// Foreign text as it may stand in a line: short, without control characters, and UTF-8.
std::string Printable(std::string_view text);

// Writes it, with its level where the system's log reads it.
void Log(LogLevel level, std::string_view text);

}  // namespace tarvex::console
