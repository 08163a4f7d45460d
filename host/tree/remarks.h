#pragma once

// What looks wrong in settings files that were edited by hand. The engine reads such a file without a word.

#include <string>
#include <vector>

#include "tarvex/tree.h"

namespace tarvex::host {

// A sentence for each unknown key, and each number that is none or not allowed, in the files of the profile, its
// addresses and its user, and in the rules. Reads the files; says nothing of one that cannot be read.
std::vector<std::string> RemarksOn(const CPopProfile& profile);

// In two parts, for work on many profiles: the files that profiles share, and those that are its own.
std::vector<std::string> RemarksOn(const CUser& user);
std::vector<std::string> RemarksOnItsOwn(const CPopProfile& profile);

}  // namespace tarvex::host
