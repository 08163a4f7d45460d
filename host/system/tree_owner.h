#pragma once

// What the user's account decides: where settings and trees are, and as whom the command works.

#include <string>

namespace tarvex::host {

// Where appset.def is looked for: $XDG_CONFIG_HOME/tarvex, else /etc/tarvex for the superuser, else ~/.config/tarvex;
// on Windows %APPDATA%\Tarvex.
std::string ConfigurationDirectory();

// Where a new tree goes when nobody says where: $XDG_DATA_HOME/tarvex, else /var/lib/tarvex for the superuser, else
// ~/.local/share/tarvex; on Windows %LOCALAPPDATA%\Tarvex.
std::string UsualRootDirectory();

// The superuser goes on as the owner of the directory: what is written in a tree must stay readable to the service that
// owns it. Throws CommandError when that is not allowed. Nothing of it on Windows.
void WorkAsOwnerOf(const std::string& directory);

// Whose other trees there may be, for the end of a sentence about a missing one.
std::string RemarkOnOtherTrees();

}  // namespace tarvex::host
