#pragma once

// The log of a profile as a file.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tarvex/text.h"

namespace tarvex::host {

// The lines of a profile's log as bytes, without their ends; nothing when there is no log that can be read.
std::optional<std::vector<std::string>> ReadLog(const CString& profile_path);

// How many lines at the end of `now` were not in `before`, an older state of a log of which the oldest lines may have
// gone since.
std::size_t CountNewLines(const std::vector<std::string>& before, const std::vector<std::string>& now);

}  // namespace tarvex::host
