#pragma once

// What a mailbox holds, for commands that let it count as handled.

#include <string>
#include <vector>

#include "tarvex/tree.h"

namespace tarvex::host {

// The ids of everything that is in the mailbox. Throws CommandError, which ends with `outcome`: "nothing was added".
std::vector<std::string> IdsOnServer(const CPopProfile& profile, const std::string& outcome);

}  // namespace tarvex::host
