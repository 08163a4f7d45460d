#pragma once

// What the system says of this process and its machine.

#include <cstddef>
#include <string>

namespace tarvex::testing {

// A thread that has just ended may be counted for a moment longer.
std::ptrdiff_t ThreadCount();

// Waits at most a minute until there are no more threads than that; false when there still are.
bool ThreadsFallTo(std::ptrdiff_t count);

std::size_t ResidentMemoryBytes();

std::string SystemHostName();

}  // namespace tarvex::testing
