#include "host/interval.h"

namespace tarvex::host {

std::int64_t WaitSeconds(int timer_minutes) {
    const std::int64_t minutes = timer_minutes % 60;
    const std::int64_t all_hours = timer_minutes / 60;
    // Hours modulo 60 and not 24: so the engine waits, on purpose.
    const std::int64_t days = all_hours > 23 ? all_hours / 24 : 0;
    const std::int64_t hours = all_hours > 23 ? all_hours % 60 : all_hours;
    return ((days * 24 + hours) * 60 + minutes) * 60;
}

std::string WaitInWords(int timer_minutes) {
    if (timer_minutes <= 0) return "at every call";
    const std::int64_t minutes = WaitSeconds(timer_minutes) / 60;
    const auto some = [](std::int64_t count, const char* unit) {
        return std::to_string(count) + ' ' + unit + (count == 1 ? "" : "s");
    };
    if (minutes < 60) return "every " + some(minutes, "minute");
    if (minutes % 60 == 0) return "every " + some(minutes / 60, "hour");
    return "every " + some(minutes / 60, "hour") + ' ' + some(minutes % 60, "minute");
}

}  // namespace tarvex::host
