// The machine's name and its source of randomness.

#include "platform/os/system.h"

#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <chrono>

namespace tarvex {

std::string HostName() {
    std::array<char, 256> name{};
    if (gethostname(name.data(), name.size() - 1) != 0 || name.front() == '\0') return "localhost";
    return name.data();
}

std::uint64_t RandomNumber() {
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) == sizeof number) return number;
    // A system without the call: the clock in nanoseconds and an address of the process must do.
    const auto now = static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
    return now * 0x9E3779B97F4A7C15U ^ reinterpret_cast<std::uintptr_t>(&number);
}

}  // namespace tarvex
