// The machine's name.

#include "platform/os/system.h"

#include <unistd.h>

#include <array>

namespace tarvex {

std::string HostName() {
    std::array<char, 256> name{};
    if (gethostname(name.data(), name.size() - 1) != 0 || name.front() == '\0') return "localhost";
    return name.data();
}

}  // namespace tarvex
