// The memory of the process on Windows, whose heap returns large pieces by itself.

#include "host/system/memory.h"

#include <windows.h>

namespace tarvex::host {

void GiveLargeMemoryBackAtOnce() {}

std::int64_t UsableMemory() {
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof status;
    if (!GlobalMemoryStatusEx(&status)) return INT64_MAX;
    const DWORDLONG bytes = status.ullTotalPhys < status.ullTotalVirtual ? status.ullTotalPhys : status.ullTotalVirtual;
    return static_cast<std::int64_t>(bytes);
}

}  // namespace tarvex::host
