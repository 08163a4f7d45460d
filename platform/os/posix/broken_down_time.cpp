// localtime_r and mktime, under one lock.

#include "platform/os/broken_down_time.h"

#include <mutex>

namespace tarvex {

namespace {

// The C library reads the time zone anew with almost every call, under a lock of its own. Ours is for the thread
// sanitizer, which cannot see that one.
std::mutex time_zone_mutex;

}  // namespace

std::optional<std::tm> BreakDown(std::int64_t moment) {
    const std::lock_guard lock(time_zone_mutex);
    tzset();
    const std::time_t time = moment;
    std::tm parts{};
    if (localtime_r(&time, &parts) == nullptr) return std::nullopt;
    return parts;
}

std::int64_t MakeTime(std::tm& parts) {
    const std::lock_guard lock(time_zone_mutex);
    return std::mktime(&parts);
}

}  // namespace tarvex
