#pragma once

// What the local clock asks of the system. Thread-safe.

#include <cstdint>
#include <ctime>
#include <optional>

namespace tarvex {

// Nothing for a moment that the system cannot break down. A change of the system's time zone is noticed, on Windows not
// before the next start of the program.
std::optional<std::tm> BreakDown(std::int64_t moment);

// As mktime, which puts the fields in order as well; leaves tm_wday as it is when it fails.
std::int64_t MakeTime(std::tm& parts);

}  // namespace tarvex
