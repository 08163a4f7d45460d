#pragma once

// The memory of the process.

#include <cstdint>
#include <string>

namespace tarvex::host {

// Large pieces of memory go back to the system as soon as they are free, from now on: a service that has forwarded one
// large mail must not keep its memory.
void GiveLargeMemoryBackAtOnce();

// How many bytes the process may use: what the machine has, or the control group of a service or a container allows.
std::int64_t UsableMemory();

// What the control groups allow that /proc/self/cgroup names in this text; the most there is without a limit. `mount`:
// where the groups are. On POSIX.
std::int64_t MemoryOfGroups(const std::string& groups, const std::string& mount);

}  // namespace tarvex::host
