// wine 8 lets a process crash that ends while one of its threads is about to start, and GoogleTest has a thread of its
// own watch each thread that asserts something. So the test program does not end before all of them have started.

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/support/process_facts.h"

namespace tarvex::testing {
namespace {

std::atomic<int> started = 1;  // and not ended: the main thread, and all that have come here since

// Called by the system on each thread, at its start and at its end.
void NTAPI OnThread(PVOID, DWORD reason, PVOID) {
    if (reason == DLL_THREAD_ATTACH) ++started;
    if (reason == DLL_THREAD_DETACH) --started;
}

class ThreadStarts : public ::testing::Environment {
public:
    void TearDown() override {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (started < ThreadCount() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
};

[[maybe_unused]] const auto* const added = ::testing::AddGlobalTestEnvironment(new ThreadStarts);

}  // namespace

// Where the linker collects what is to be called.
extern "C" __attribute__((section(".CRT$XLF"), used)) const PIMAGE_TLS_CALLBACK tarvex_on_thread = OnThread;

}  // namespace tarvex::testing
