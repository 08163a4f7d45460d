#pragma once

// Whether a profile may be run, edited and saved. To the engine a file that cannot be read is an empty one, and a run
// whose state cannot be saved goes well: either way the next run would forward again what was forwarded already.

#include <string>
#include <vector>

#include "tarvex/tree.h"

namespace tarvex::host {

// What of an object's files could not be read when it was loaded, and why; empty when all was.
std::string WhyNotLoaded(const CLoaded& loaded);
std::string WhyNotLoaded(const CPopProfile& profile);  // with its forwarding addresses

// For a profile that was not loaded whole. One whose settings file is missing stays so: it is about to be replaced.
void LoadAgain(CPopProfile& profile);

// As WhyNotLoaded, or why a list of ids, which only a run loads, cannot be read.
std::string WhyUnreadable(const CPopProfile& profile);

// The same, or why there is no room for what a run saves. Not while the profile runs.
std::string WhyNotRunnable(const CPopProfile& profile);

// The users and profiles that may be there and are not known, a sentence for each: a folder that cannot be looked into.
std::vector<std::string> WhatIsNotListed(const CRootPath& root);

}  // namespace tarvex::host
