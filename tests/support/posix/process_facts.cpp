// Threads and memory of the test process, from /proc.

#include "tests/support/process_facts.h"

#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace tarvex::testing {

std::ptrdiff_t ThreadCount() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::distance(begin(tasks), end(tasks));
}

std::size_t ResidentMemoryBytes() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::string SystemHostName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

}  // namespace tarvex::testing
