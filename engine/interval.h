#pragma once

// When a profile is due again; its interval is IntervalSeconds of tarvex/tarvex.h.

#include <cstdint>

namespace tarvex {

// When a profile that last ran at `lasttime` is due again; the earliest moment of all without an interval (timer 0).
std::int64_t DueTime(std::int32_t timer_minutes, std::int64_t lasttime);

// Whether a profile that last ran at `lasttime` is due at `now`: the interval has passed, or there is none (timer 0).
bool IsDue(std::int32_t timer_minutes, std::int64_t lasttime, std::int64_t now);

}  // namespace tarvex
