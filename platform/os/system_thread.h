#pragma once

// Threads of the system, for the workers and for name look-ups that outlive them.

#include <cstdint>
#include <optional>

namespace tarvex {

// A thread with a stack of 512 KiB and, on Linux, with the signals that a program may handle blocked.
class SystemThread {
public:
    SystemThread() = default;

    // Runs `procedure(parameter)` on a new thread; the library stays in memory until it has returned. Nothing when no
    // thread can be had.
    static std::optional<SystemThread> Start(void (*procedure)(void*), void* parameter) noexcept;

    // Call one of them once: Free when the procedure has returned or is about to, Leave when nothing waits for the
    // thread. The system then keeps nothing of the thread once it has ended.
    void Free();
    void Leave();

private:
    explicit SystemThread(std::uintptr_t handle) : handle_(handle) {}

    std::uintptr_t handle_ = 0;
};

// Tells this process from the one that it was forked from.
std::uint64_t ProcessNumber();

// Whether the process is ending and the system has ended its other threads already, wherever they were.
bool OtherThreadsAreGone();

// Gives memory that the process does not use back to the system.
void GiveMemoryBack();

}  // namespace tarvex
