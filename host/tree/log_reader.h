#pragma once

// The log of a profile as a file, and as it is shown.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarvex/text.h"

namespace tarvex::host {

inline constexpr std::string_view kRunStart = "---- Operation starting at ";
inline constexpr std::string_view kReportHeading = "== ";  // of the report that `run` prints

// The lines of a profile's log as bytes, without their ends; nothing when there is no log that can be read.
std::optional<std::vector<std::string>> ReadLog(const CString& profile_path);

// How many lines at the end of `now` were not in `before`, an older state of a log of which the oldest lines may have
// gone since.
std::size_t CountNewLines(const std::vector<std::string>& before, const std::vector<std::string>& now);

// A line of a log, fit to be shown. A start, end or heading line that stands where a run writes none, and so comes from
// a server, has "? " in front. From the file alone nothing more can be told.
std::string ShowLogLine(const std::vector<std::string>& lines, std::size_t index);

}  // namespace tarvex::host
