#pragma once

// What the worker threads ask of the system.

#include <cstdint>
#include <optional>

namespace tarvex {

// A thread of the system's, with a stack of 512 KiB.
class SystemThread {
public:
    SystemThread() = default;

    // Runs `procedure(parameter)` on a new thread; the library stays in memory until it has returned. Nothing when no
    // thread can be had.
    static std::optional<SystemThread> Start(void (*procedure)(void*), void* parameter) noexcept;

    // Frees what the system keeps of the thread. To be called once, when the procedure is about to return or has.
    void Free();

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
