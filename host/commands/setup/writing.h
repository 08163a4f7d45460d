#pragma once

// Writing what `tarvex setup` has planned.

#include <string>

#include "host/commands/commands.h"
#include "host/commands/setup/plan.h"

namespace tarvex::host {

// Makes what is missing of the tree, and adds the user, the profile, its addresses and their schedules. The profile is
// switched off until all of it is there, and logged in where it wants tokens. When something fails, or a signal comes,
// what was added is removed. Returns the profile's name: "user0/from0". Throws CommandError.
std::string Write(const Context& context, SetupPlan& plan);

// Switches the profile off: nothing is forwarded until somebody switches it on.
void SwitchOff(const std::string& directory, const std::string& profile);

}  // namespace tarvex::host
