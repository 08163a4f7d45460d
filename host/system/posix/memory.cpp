// The memory of the process on POSIX: the C library's and the kernel's limits.

#include "host/system/memory.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>
#include <string_view>

namespace tarvex::host {
namespace {

constexpr std::int64_t kUnlimited = std::numeric_limits<std::int64_t>::max();

// The number in the file; unlimited where there is no such file or no number in it ("max").
std::int64_t LimitIn(const std::string& path) {
    std::ifstream file(path);
    std::int64_t limit = kUnlimited;
    return file >> limit && limit > 0 ? limit : kUnlimited;
}

// The limit of a group is also one of those inside it.
std::int64_t LowestLimit(const std::string& mount, std::string group, const char* file) {
    std::int64_t lowest = kUnlimited;
    for (;;) {
        lowest = std::min(lowest, LimitIn(mount + group + '/' + file));
        const std::size_t parent = group.rfind('/');
        if (parent == std::string::npos) return lowest;
        group.resize(parent);
    }
}

}  // namespace

void GiveLargeMemoryBackAtOnce() {
    // Left alone, the C library raises both limits to 32 MiB and more by the largest piece that was ever freed. What is
    // smaller than a megabyte is used again: most messages, for which new pages would take longer than the copying.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    mallopt(M_TRIM_THRESHOLD, 4 << 20);
}

std::int64_t UsableMemory() {
    const std::int64_t machine = std::int64_t{sysconf(_SC_PHYS_PAGES)} * sysconf(_SC_PAGESIZE);
    std::ifstream file("/proc/self/cgroup");
    const std::string groups{std::istreambuf_iterator<char>(file), {}};
    return std::min(machine, MemoryOfGroups(groups, "/sys/fs/cgroup"));
}

// Lines of "number:controllers:group". The unified hierarchy has no controllers there.
std::int64_t MemoryOfGroups(const std::string& groups, const std::string& mount) {
    std::int64_t lowest = kUnlimited;
    std::istringstream lines(groups);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t controllers = line.find(':');
        const std::size_t group = line.find(':', controllers + 1);
        if (controllers == std::string::npos || group == std::string::npos) continue;
        const std::string path = line.substr(group + 1);
        const std::string named = ',' + line.substr(controllers + 1, group - controllers - 1) + ',';
        if (named == ",,") {
            for (const char* file : {"memory.max", "memory.high"})
                lowest = std::min(lowest, LowestLimit(mount, path, file));
        } else if (named.find(",memory,") != std::string::npos) {
            lowest = std::min(lowest, LowestLimit(mount + "/memory", path, "memory.limit_in_bytes"));
        }
    }
    return lowest;
}

}  // namespace tarvex::host
