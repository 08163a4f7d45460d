// What this process uses, on POSIX.

#include "host/metrics/process_figures.h"

#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace tarvex::host {
namespace {

const std::int64_t started = std::time(nullptr);

std::int64_t Milliseconds(const timeval& time) { return std::int64_t{time.tv_sec} * 1000 + time.tv_usec / 1000; }

}  // namespace

ProcessFigures FiguresOfThisProcess() {
    ProcessFigures figures;
    figures.started = started;
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) == 0)
        figures.processor_ms = Milliseconds(usage.ru_utime) + Milliseconds(usage.ru_stime);
    std::int64_t all_pages = 0;
    std::int64_t resident_pages = 0;
    if (std::ifstream("/proc/self/statm") >> all_pages >> resident_pages)
        figures.resident_bytes = resident_pages * sysconf(_SC_PAGESIZE);
    std::error_code error;
    const std::filesystem::directory_iterator files("/proc/self/fd", error);
    if (!error) figures.open_files = std::distance(begin(files), end(files)) - 1;  // without the folder itself
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) figures.most_files = static_cast<std::int64_t>(limit.rlim_cur);
    return figures;
}

}  // namespace tarvex::host
