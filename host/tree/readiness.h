#pragma once

// Whether a profile may be run, edited and saved. The engine treats an unreadable file as empty, and runs although its
// state cannot be saved. In both cases the next run would forward again what was forwarded already.

#include <string>
#include <vector>

#include "tarvex/tree.h"

namespace tarvex::host {

// Which file of an object could not be read when it was loaded, and why; empty when all were.
std::string WhyNotLoaded(const CLoaded& loaded);
std::string WhyNotLoaded(const CPopProfile& profile);  // with its forwarding addresses

// Loads a profile again that was not loaded whole. A missing settings file counts as not loaded here: an editor may be
// replacing it.
void LoadAgain(CPopProfile& profile);
void LoadAgain(CUser& user);  // without its profiles

// As WhyNotLoaded, or why the rules are not known, or a list of ids, which only a run loads, cannot be read.
std::string WhyUnreadable(const CPopProfile& profile);

// The same, or why there is no room for what a run saves. Not while the profile runs.
std::string WhyNotRunnable(const CPopProfile& profile);

// A sentence for each folder that may be a user or a profile but cannot be entered.
std::vector<std::string> WhatIsNotListed(const CRootPath& root);

}  // namespace tarvex::host
