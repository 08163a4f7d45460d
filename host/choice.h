#pragma once

// Which profiles a command is about.

#include <string>
#include <vector>

#include "host/names.h"

namespace tarvex::host {

// The named profiles, each once, in the order of the names; without names all of the tree. Throws Trouble.
std::vector<NamedProfile> ChosenProfiles(const CRootPath& root, const std::vector<std::string>& names);

}  // namespace tarvex::host
