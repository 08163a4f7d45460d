#pragma once

// Which directory is the root, and loading the tree below it.

#include <string>

#include "host/commands.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

// Where appset.def is looked for: $XDG_CONFIG_HOME/tarvex, else /etc/tarvex for the superuser, else ~/.config/tarvex.
std::string ConfigurationDirectory();

// Where a new tree goes when nobody says where: $XDG_DATA_HOME/tarvex, else /var/lib/tarvex for the superuser, else
// ~/.local/share/tarvex.
std::string UsualRootDirectory();

// The directory of --root, else that of appset.def in the configuration directory, else the default of CAppSetting.
std::string RootDirectory(const Context& context);

// Why the directory cannot be read, empty when it can.
std::string WhyUnreadable(const std::string& directory);

// The superuser goes on as the owner of the directory: what is written in a tree must stay readable to the service that
// owns it. Throws Trouble when that is not allowed.
void WorkAsOwnerOf(const std::string& directory);

// Why the tree below the directory cannot be loaded, empty when it has been. A missing directory is created.
std::string LoadTree(CRootPath& root, const std::string& directory);

// Throws Trouble when there is no directory that can be read. From here on the process works as its owner.
void RequireRoot(const std::string& directory);

// Loads the tree of a root that must exist; throws Trouble.
void OpenTree(CRootPath& root, const std::string& directory);

}  // namespace tarvex::host
