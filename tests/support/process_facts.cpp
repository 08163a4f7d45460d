// Waiting until threads have ended.

#include "tests/support/process_facts.h"

#include <chrono>
#include <thread>

namespace tarvex::testing {

bool ThreadsFallTo(std::ptrdiff_t count) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::minutes(3);
    while (ThreadCount() > count) {
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));  // counting costs the system something
    }
    return true;
}

}  // namespace tarvex::testing
