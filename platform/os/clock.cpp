// The local clock, from what the system says of one moment.

#include "platform/os/clock.h"

#include <array>
#include <cstdio>
#include <limits>

#include "platform/os/broken_down_time.h"

namespace tarvex {

namespace {

constexpr int kFirstTmYear = 1900;  // of tm_year
constexpr std::int64_t kDaySeconds = 86400;

constexpr std::array kWeekdayNames = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
constexpr std::array kMonthNames = {"January", "February", "March",     "April",   "May",      "June",
                                    "July",    "August",   "September", "October", "November", "December"};

bool ShowSameTime(const tm& a, const tm& b) {
    return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday && a.tm_hour == b.tm_hour &&
           a.tm_min == b.tm_min && a.tm_sec == b.tm_sec;
}

// How much later the clock shows the second of two times that lie less than a week apart.
std::int64_t SecondsBetween(const tm& first, const tm& second) {
    const int days = (second.tm_wday - first.tm_wday + 7) % 7;
    const int hours = days * 24 + second.tm_hour - first.tm_hour;
    return (std::int64_t{hours} * 60 + second.tm_min - first.tm_min) * 60 + second.tm_sec - first.tm_sec;
}

// When clocks are put back, an hour comes twice, and which of the two the system answers depends on what it was asked
// before. It is always the first one here.
std::int64_t FirstOfTwo(std::int64_t moment, const tm& parts) {
    const std::optional<tm> day_before = BreakDown(moment - kDaySeconds);
    if (!day_before) return moment;
    const std::int64_t put_back = kDaySeconds - SecondsBetween(*day_before, parts);
    if (put_back <= 0) return moment;
    const std::optional<tm> earlier_parts = BreakDown(moment - put_back);
    return earlier_parts && ShowSameTime(*earlier_parts, parts) ? moment - put_back : moment;
}

}  // namespace

std::int64_t CurrentTime() { return std::time(nullptr); }

LocalTime ToLocalTime(std::int64_t moment) {
    std::optional<tm> parts = BreakDown(moment);
    if (!parts) parts = BreakDown(CurrentTime());
    if (!parts) return {};
    return {.year = std::int64_t{parts->tm_year} + kFirstTmYear,
            .month = parts->tm_mon + 1,
            .day = parts->tm_mday,
            .hour = parts->tm_hour,
            .minute = parts->tm_min,
            .second = parts->tm_sec,
            .weekday = parts->tm_wday + 1};
}

std::optional<std::int64_t> FromLocalTime(int year, int month, int day, int hour, int minute, int second) {
    constexpr int lowest = std::numeric_limits<int>::min();
    if (year < lowest + kFirstTmYear || month == lowest) return std::nullopt;

    tm parts{};
    parts.tm_year = year - kFirstTmYear;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;  // the system finds out
    parts.tm_wday = -1;   // still so after a failure, whose result -1 is a moment as well
    const std::int64_t moment = MakeTime(parts);
    if (parts.tm_wday < 0) return std::nullopt;
    return FirstOfTwo(moment, parts);
}

std::string FormatLongTime(std::int64_t moment) {
    const LocalTime time = ToLocalTime(moment);
    std::array<char, 96> text{};
    const int length = std::snprintf(text.data(), text.size(), "%s, %s %02d, %lld %02d:%02d:%02d",
                                     kWeekdayNames.at(static_cast<std::size_t>(time.weekday - 1)),
                                     kMonthNames.at(static_cast<std::size_t>(time.month - 1)), time.day,
                                     static_cast<long long>(time.year), time.hour, time.minute, time.second);
    return {text.data(), static_cast<std::size_t>(length)};
}

}  // namespace tarvex
