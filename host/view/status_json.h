#pragma once

// How a profile is doing, as `tarvex status --json` prints it and the console gets it.

#include <vector>

#include "host/alerts/untold.h"
#include "host/terminal/json.h"
#include "host/view/asked_state.h"

namespace tarvex::host {

// `tree`: that of the profile. `untold`: who could not be told about it. `has_rules`: of the tree.
Json JsonOf(const AskedState& tree, const ProfileState& status, const std::vector<UntoldReader>& untold, bool has_rules,
            CTime now);

}  // namespace tarvex::host
