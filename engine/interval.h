#pragma once

// How long a profile waits between two runs.

#include <cstdint>

namespace tarvex {

// The interval in seconds for a timer in minutes. From 1,440 minutes on it is longer than the timer (B2). Computed in
// 32 bits that wrap around.
std::int32_t IntervalSeconds(std::int32_t timer_minutes);

// When a profile that last ran at `lasttime` is due again; the least moment there is when it has no interval (timer 0).
std::int64_t DueTime(std::int32_t timer_minutes, std::int64_t lasttime);

// Whether a profile that last ran at `lasttime` is due at `now`: the interval has passed, or there is none (timer 0).
bool IsDue(std::int32_t timer_minutes, std::int64_t lasttime, std::int64_t now);

}  // namespace tarvex
