#pragma once

// The local clock. Moments are whole seconds since 1970-01-01 00:00:00 UTC, in 64 bits. Thread-safe.

#include <cstdint>
#include <optional>
#include <string>

namespace tarvex {

std::int64_t CurrentTime();

struct LocalTime {
    std::int64_t year = 1970;
    int month = 1;  // 1 to 12
    int day = 1;    // 1 to 31
    int hour = 0;
    int minute = 0;
    int second = 0;
    int weekday = 1;  // 1 = Sunday to 7 = Saturday
};

// A moment that the system cannot break down yields the current local time.
LocalTime ToLocalTime(std::int64_t moment);

// The moment of a local time, daylight saving time determined by the system; fields out of range are normalised (month
// 13 is January of the next year). Of a time that comes twice, when clocks are put back, the first moment; a time that
// is skipped, when clocks are put forward, is shifted by what is skipped. Nothing for a date that cannot be
// represented.
std::optional<std::int64_t> FromLocalTime(int year, int month, int day, int hour, int minute, int second);

// "Sunday, March 15, 2009 10:20:05": local time, English names whatever the locale, two digits for day and time.
std::string FormatLongTime(std::int64_t moment);

}  // namespace tarvex
