// Threads and memory of the test process on Windows.

#include "tests/support/process_facts.h"

#include <winsock2.h>
// Behind the one that they need.
#include <psapi.h>
#include <tlhelp32.h>

#include <array>

namespace tarvex::testing {

std::ptrdiff_t ThreadCount() {
    const HANDLE threads = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    std::ptrdiff_t count = 0;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(threads, &entry); more; more = Thread32Next(threads, &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
    }
    CloseHandle(threads);
    return count;
}

std::size_t ResidentMemoryBytes() {
    PROCESS_MEMORY_COUNTERS counters{};
    return GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) ? counters.WorkingSetSize : 0;
}

std::string SystemHostName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), static_cast<int>(name.size() - 1)) == 0 ? name.data() : "";
}

}  // namespace tarvex::testing
