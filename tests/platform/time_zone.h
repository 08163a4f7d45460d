#pragma once

// Moments and time zones for tests of the clock.

#include <chrono>
#include <cstdint>
#include <string>

#include "platform/os/clock.h"
#include "tests/support/environment.h"

namespace tarvex::testing {

// Written out, so that no installed time zone data is needed.
inline constexpr const char* kUtc = "UTC0";
inline constexpr const char* kTokyo = "JST-9";

// The time zone of the process for as long as it lives.
class TimeZone {
public:
    explicit TimeZone(const char* name) : variable_("TZ", name) {}

private:
    Variable variable_;
};

// What a clock in Greenwich shows at the moment, as seconds.
inline std::int64_t Utc(int year, int month, int day, int hour, int minute, int second) {
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
    return ((days * 24 + hour) * 60 + minute) * 60 + second;
}

inline std::string Show(const LocalTime& time) {
    std::string text = std::to_string(time.year);
    for (const int field : {time.month, time.day, time.hour, time.minute, time.second, time.weekday}) {
        text += ',' + std::to_string(field);
    }
    return text;
}

}  // namespace tarvex::testing
