// The machine's name and its source of randomness.

#include "platform/os/system.h"

#include <winsock2.h>
// Behind the one that it needs.
#include <bcrypt.h>

#include <array>
#include <chrono>

namespace tarvex {

std::string HostName() {
    std::array<char, 256> name{};
    if (gethostname(name.data(), static_cast<int>(name.size() - 1)) != 0 || name.front() == '\0') return "localhost";
    return name.data();
}

std::uint64_t RandomNumber() {
    std::uint64_t number = 0;
    if (BCryptGenRandom(nullptr, reinterpret_cast<unsigned char*>(&number), sizeof number,
                        BCRYPT_USE_SYSTEM_PREFERRED_RNG) == 0) {
        return number;
    }
    // Without it the clock in nanoseconds and an address of the process must do.
    const auto now = static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
    return now * 0x9E3779B97F4A7C15U ^ reinterpret_cast<std::uintptr_t>(&number);
}

}  // namespace tarvex
