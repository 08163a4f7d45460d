// Counts the connection attempts that a black hole has swallowed.

#include "tests/support/black_hole.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

namespace tarvex::testing {

// One attempt is its own, the one that filled the queue.
void BlackHole::WaitUntilSomebodyConnects() const {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(20);
    while (Attempts() < 2) {
        if (Clock::now() > end) FAIL() << "nobody connects";
        std::this_thread::yield();
    }
}

int BlackHole::Attempts() const {
    std::array<char, 8> port{};
    std::snprintf(port.data(), port.size(), ":%04X", Port());
    std::ifstream table("/proc/net/tcp");
    int attempts = 0;
    for (std::string number, local, remote, state, line; table >> number >> local >> remote >> state;) {
        std::getline(table, line);
        if (remote.ends_with(port.data()) && state == "02") ++attempts;
    }
    return attempts;
}

}  // namespace tarvex::testing
