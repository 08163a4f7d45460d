// From 1970 to 3000, which is what the system knows.

#include "platform/os/broken_down_time.h"

namespace tarvex {

static_assert(sizeof(std::time_t) == sizeof(std::int64_t), "the standard library would end in 2038");

std::optional<std::tm> BreakDown(std::int64_t moment) {
    std::tm parts{};
    if (_localtime64_s(&parts, &moment) != 0) return std::nullopt;
    return parts;
}

std::int64_t MakeTime(std::tm& parts) { return _mktime64(&parts); }

}  // namespace tarvex
