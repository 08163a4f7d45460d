#pragma once

// Where settings and trees are for this user, and which user the command works as.

#include <string>

namespace tarvex::host {

// Where appset.def is looked for: $XDG_CONFIG_HOME/tarvex, else /etc/tarvex for the superuser, else ~/.config/tarvex;
// on Windows %APPDATA%\Tarvex.
std::string ConfigurationDirectory();

// Where a new tree goes when nobody says where: $XDG_DATA_HOME/tarvex, else /var/lib/tarvex for the superuser, else
// ~/.local/share/tarvex; on Windows that of the service when it is installed, else %LOCALAPPDATA%\Tarvex.
std::string UsualRootDirectory();

// The tree that the system's service runs, as its unit says, when the superuser asks, and as Windows' service manager
// says, whoever asks; else empty.
std::string ServiceRootDirectory();

// Makes a command of the superuser go on as the owner of the directory, so that the service that owns the tree can read
// what is written. Throws CommandError when that is not allowed. Does nothing on Windows.
void WorkAsOwnerOf(const std::string& directory);

// While it lives, a command of the superuser works as the owner of the directory; then it is the superuser's again, to
// write where that owner may not. Throws CommandError when that is not allowed. Nothing on Windows.
class AsOwnerOf {
public:
    explicit AsOwnerOf(const std::string& directory);
    ~AsOwnerOf();
    AsOwnerOf(const AsOwnerOf&) = delete;
    AsOwnerOf& operator=(const AsOwnerOf&) = delete;

private:
    bool changed_ = false;
};

// The superuser gives a directory, with everything below, to the owner of another one; no link is followed. True also
// when there is nothing to be done, as for other users and on Windows.
[[nodiscard]] bool GiveToOwnerOf(const std::string& other, const std::string& directory);

// Whether other users of the machine may read the file: its mode and those of the folders above it let everybody in.
// Never on Windows, where access lists decide.
bool EverybodyMayRead(const std::string& path);

// The end of a sentence about a missing tree: which other users may have one.
std::string RemarkOnOtherTrees();

}  // namespace tarvex::host
