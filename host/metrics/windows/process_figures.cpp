// What this process uses, on Windows.

#include "host/metrics/process_figures.h"

#include <windows.h>
// Behind it.
#include <psapi.h>

namespace tarvex::host {
namespace {

constexpr std::int64_t kMostHandles = 1 << 24;  // of a process
constexpr std::int64_t kFileTimeOf1970 = 116'444'736'000'000'000;

std::int64_t Ticks(const FILETIME& time) {  // of 100 ns
    return static_cast<std::int64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

}  // namespace

ProcessFigures FiguresOfThisProcess() {
    ProcessFigures figures;
    figures.most_files = kMostHandles;
    FILETIME started;
    FILETIME ended;
    FILETIME in_system;
    FILETIME in_program;
    if (GetProcessTimes(GetCurrentProcess(), &started, &ended, &in_system, &in_program)) {
        figures.started = (Ticks(started) - kFileTimeOf1970) / 10'000'000;
        figures.processor_ms = (Ticks(in_system) + Ticks(in_program)) / 10'000;
    }
    PROCESS_MEMORY_COUNTERS memory{};
    if (K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory))
        figures.resident_bytes = static_cast<std::int64_t>(memory.WorkingSetSize);
    DWORD handles = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &handles)) figures.open_files = handles;
    return figures;
}

}  // namespace tarvex::host
