// Reading and writing moments.

#include "store/time_text.h"

#include <array>

#include "platform/codec/text.h"
#include "platform/os/clock.h"
#include "platform/os/shield.h"
#include "tarvex/settings.h"

namespace tarvex {
namespace {

int OrCurrent(int value, std::int64_t current) { return value != 0 ? value : static_cast<int>(current); }

}  // namespace

CTime ParseTime(std::string_view text, CTime now) {
    std::array<int, 5> parts{};  // year, month, day, hour, minute
    for (int& part : parts) {
        const std::size_t comma = text.find(',');
        if (comma == std::string_view::npos) return now;
        part = DecimalValue(text.substr(0, comma));
        text.remove_prefix(comma + 1);
    }
    // The seconds must be there, but they are dropped (B4).
    if (text.empty()) return now;

    const auto [year, month, day, hour, minute] = parts;
    const LocalTime today = ToLocalTime(now);
    return FromLocalTime(OrCurrent(year, today.year), OrCurrent(month, today.month), OrCurrent(day, today.day), hour,
                         minute, 0)
        .value_or(now);
}

std::string FormatTime(CTime moment) {
    const LocalTime time = ToLocalTime(moment);
    std::string text = std::to_string(time.year);
    for (const int part : {time.month, time.day, time.hour, time.minute, time.second}) {
        text += ',';
        text += std::to_string(part);
    }
    return text;
}

}  // namespace tarvex

CTime GetCTime(const CString& text) {
    const CTime now = tarvex::CurrentTime();
    return tarvex::Shielded(now, [&] { return tarvex::ParseTime(text, now); });
}
