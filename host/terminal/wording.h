#pragma once

// Numbers and moments as people read them.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tarvex/text.h"

namespace tarvex::host {

std::string ShowBytes(std::int64_t bytes);                          // "3 bytes", "12 KB", "3.4 MB"
std::string ShowCount(std::int64_t count, const std::string& one);  // "1 message", "3 messages"
std::string ShowTime(CTime moment);                                 // "2009-03-15 10:20:05", local time
std::string ShowMoment(CTime moment);                               // "2009-03-15 10:20", as it is typed
std::string ShowOffset(CTime moment);                               // "+0900", of local time at that moment
std::string ShowIsoTime(CTime moment);                              // "2009-03-15T10:20:05+0900"
std::string ShowSpan(std::int64_t seconds);                         // "40 s", "7 min", "3 h", "12 days"
std::string ShowZone();  // of local times in this process: "Asia/Tokyo (+0900)", "+0900" where it has no name

// How often a profile with that timer (in minutes) runs: "at every call", "every 10 minutes", "every 48 hours".
std::string ShowInterval(int timer);

// The first line of bytes that came from elsewhere, fit to be shown and shortened to at most that many columns.
// Tree text is Shift-JIS.
std::string OneLine(std::string_view text, std::size_t columns);
std::string OneLineOfUtf8(std::string_view text, std::size_t columns);

// With small ASCII letters, whatever the locale.
std::string Lower(std::string_view text);

// Lines of at most 80 columns, each behind the blanks and ended.
std::string Paragraph(std::string_view text, std::size_t blanks);

}  // namespace tarvex::host
