// Numbers, moments and spans in words.

#include "host/terminal/wording.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/terminal/table.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

std::string Formatted(const char* format, CTime moment) {
    const auto seconds = static_cast<std::time_t>(moment);
    std::tm parts{};
    if (localtime_r(&seconds, &parts) == nullptr) return "?";
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), format, &parts)};
}

std::string WithDecimal(double value, const char* unit) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), value < 10 ? "%.1f %s" : "%.0f %s", value, unit);
    return text.data();
}

// By TZ, else by what the system's zone is a link to. Elsewhere it has no name that can be relied on.
std::string NameOfZone() {
    if (const char* const zone = std::getenv("TZ"); zone && *zone) return ShowUtf8Text(*zone == ':' ? zone + 1 : zone);
    constexpr std::string_view kFolder = "zoneinfo/";
    std::error_code ignored;
    const std::string file = std::filesystem::read_symlink("/etc/localtime", ignored).generic_string();
    const std::size_t folder = file.find(kFolder);
    return folder == std::string::npos ? "" : file.substr(folder + kFolder.size());
}

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

std::string_view FirstLine(std::string_view text) { return text.substr(0, text.find_first_of("\r\n")); }

std::string Shortened(std::string line, std::size_t columns) {
    constexpr std::string_view kMore = "...";
    constexpr std::size_t kMostBytes = 4;  // of a character
    if (Columns(line) <= columns) return line;
    line.resize(std::min(line.size(), columns * kMostBytes));
    while (Columns(line) + kMore.size() > columns) {
        while (IsContinuation(line.back())) line.pop_back();
        line.pop_back();
    }
    return line.append(kMore);
}

}  // namespace

std::string ShowBytes(std::int64_t bytes) {
    constexpr double kKilo = 1000;
    if (bytes < 1000) return TrN("{0} byte", "{0} bytes", bytes);
    const auto value = static_cast<double>(bytes);
    if (bytes < 1'000'000) return WithDecimal(value / kKilo, "KB");
    if (bytes < 1'000'000'000) return WithDecimal(value / kKilo / kKilo, "MB");
    return WithDecimal(value / kKilo / kKilo / kKilo, "GB");
}

std::string ShowCount(std::int64_t count, const std::string& one) {
    return std::to_string(count) + ' ' + one + (count == 1 ? "" : "s");
}

std::string ShowTime(CTime moment) { return Formatted("%Y-%m-%d %H:%M:%S", moment); }

std::string ShowMoment(CTime moment) { return Formatted("%Y-%m-%d %H:%M", moment); }

// Where the C library's %z is a name of the zone, as on Windows, this is still a number.
std::string ShowOffset(CTime moment) {
    namespace chrono = std::chrono;
    const auto seconds = static_cast<std::time_t>(moment);
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr) return "?";
    const chrono::year_month_day day(chrono::year(local.tm_year + 1900), chrono::month(local.tm_mon + 1u),
                                     chrono::day(static_cast<unsigned>(local.tm_mday)));
    const auto as_utc = chrono::sys_days(day).time_since_epoch() + chrono::hours(local.tm_hour) +
                        chrono::minutes(local.tm_min) + chrono::seconds(local.tm_sec);
    const int minutes = static_cast<int>((as_utc.count() - seconds) / 60);
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%c%02d%02d", minutes < 0 ? '-' : '+', std::abs(minutes) / 60,
                  std::abs(minutes) % 60);
    return text.data();
}

std::string ShowIsoTime(CTime moment) { return Formatted("%Y-%m-%dT%H:%M:%S", moment) + ShowOffset(moment); }

std::string ShowZone() {
    const std::string offset = ShowOffset(std::time(nullptr));
    const std::string name = NameOfZone();
    return name.empty() ? offset : name + " (" + offset + ')';
}

std::string ShowSpan(std::int64_t seconds) {
    constexpr std::int64_t kMinute = 60;
    constexpr std::int64_t kHour = 60 * kMinute;
    constexpr std::int64_t kDay = 24 * kHour;
    if (seconds < 2 * kMinute) return Tr("{0} s", seconds);
    if (seconds < 2 * kHour) return Tr("{0} min", seconds / kMinute);
    if (seconds < 2 * kDay) return Tr("{0} h", seconds / kHour);
    return TrN("{0} day", "{0} days", seconds / kDay);
}

std::string ShowInterval(int timer) {
    if (timer <= 0) return Tr("at every call");
    const std::int32_t minutes = IntervalSeconds(timer) / 60;
    if (minutes < 60) return TrN("every {0} minute", "every {0} minutes", minutes);
    const std::string hours = TrN("{0} hour", "{0} hours", minutes / 60);
    if (minutes % 60 == 0) return Tr("every {0}", hours);
    return Tr("every {0} {1}", hours, TrN("{0} minute", "{0} minutes", minutes % 60));
}

std::string OneLine(std::string_view text, std::size_t columns) {
    return Shortened(ShowText(FirstLine(text)), columns);
}

std::string OneLineOfUtf8(std::string_view text, std::size_t columns) {
    return Shortened(ShowUtf8Text(FirstLine(text)), columns);
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return lower;
}

std::string Paragraph(std::string_view text, std::size_t blanks) {
    constexpr std::size_t kColumns = 80;
    std::istringstream lines(Wrapped(text, kColumns - blanks));
    std::string paragraph;
    for (std::string line; std::getline(lines, line);) paragraph += std::string(blanks, ' ') + line + '\n';
    return paragraph;
}

}  // namespace tarvex::host
