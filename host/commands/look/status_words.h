#pragma once

// What `tarvex status` says of a profile below the table.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/state/profile_state.h"

namespace tarvex::host {

// Each a sentence or two on one line, fit to be shown.
std::vector<std::string> RemarksOn(const ProfileState& state, CTime now);

// In lines of at most so many columns, all but the first behind an indent.
std::string WrappedBehindIndent(std::string_view text, std::size_t columns);

}  // namespace tarvex::host
