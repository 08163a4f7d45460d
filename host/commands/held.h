#pragma once

// What other commands do with mail that was set aside.

#include <string>
#include <vector>

#include "host/commands/commands.h"

namespace tarvex::host {

// What `tarvex held send` does with these messages of a profile; for one address, or for all that wait where it is
// empty. Returns the exit code; throws CommandError.
int SendSetAside(const Context& context, const std::string& profile, const std::vector<int>& ids,
                 const std::string& address);

}  // namespace tarvex::host
