#pragma once

// Which directory is the root, and loading the tree below it.

#include <optional>
#include <string>

#include "tarvex/tarvex.h"

namespace tarvex::host {

// The directory of --root, else that of appset.def in the configuration directory, else the default of CAppSetting.
std::string RootDirectory(const std::optional<std::string>& root_option);

// Throws CommandError where appset.def allows no new users.
void RequireNewUsersAllowed();

// Why the directory cannot be read, empty when it can.
std::string WhyRootUnreadable(const std::string& directory);

// Why the tree below the directory cannot be loaded, empty when it has been. A missing directory is created.
std::string LoadTree(CRootPath& root, const std::string& directory);

// Throws CommandError when there is no directory that can be read. From here on the process works as its owner.
void RequireRoot(const std::string& directory);

// Loads the tree of a root that must exist; throws CommandError.
void OpenTree(CRootPath& root, const std::string& directory);

}  // namespace tarvex::host
