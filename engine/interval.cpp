// How long a profile waits between two runs.

#include "engine/interval.h"

#include <limits>

#include "tarvex/tarvex.h"

namespace tarvex {

std::int64_t DueTime(std::int32_t timer_minutes, std::int64_t lasttime) {
    if (timer_minutes == 0) return std::numeric_limits<std::int64_t>::min();
    // The sum leaves 64 bits only for a lasttime that no clock shows; then it wraps around.
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(lasttime) +
                                     static_cast<std::uint64_t>(std::int64_t{IntervalSeconds(timer_minutes)}));
}

bool IsDue(std::int32_t timer_minutes, std::int64_t lasttime, std::int64_t now) {
    return now >= DueTime(timer_minutes, lasttime);
}

}  // namespace tarvex

// From 1,440 minutes on it is longer than the timer (B2).
std::int32_t IntervalSeconds(std::int32_t timer_minutes) {
    std::int32_t days = 0;
    std::int32_t hours = 0;
    std::int32_t minutes = timer_minutes;
    if (minutes > 59) {
        hours = minutes / 60;
        minutes %= 60;
        if (hours > 23) {
            days = hours / 24;
            hours %= 60;
        }
    }
    // Unsigned arithmetic wraps around where signed arithmetic would be undefined.
    const auto wrapping = [](std::int32_t value) { return static_cast<std::uint32_t>(value); };
    return static_cast<std::int32_t>(((wrapping(days) * 24 + wrapping(hours)) * 60 + wrapping(minutes)) * 60);
}
