#pragma once

// The machine that the program runs on. Thread-safe.

#include <cstdint>
#include <string>

namespace tarvex {

// The machine's name for the SMTP greeting; "localhost" when it has none. Never throws but std::bad_alloc.
std::string HostName();

// An unpredictable number.
std::uint64_t RandomNumber();

}  // namespace tarvex
