// Where settings and trees are on POSIX, and how the superuser becomes the owner of a tree.

#include "host/system/tree_owner.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/users.h"

namespace tarvex::host {
namespace {

// An unset variable and a relative path count as nothing (the XDG base directories).
std::string FolderOf(const char* variable) {
    const char* const value = std::getenv(variable);
    return value && *value == '/' ? value : "";
}

std::string OwnFolder(const char* variable, const std::string& of_superuser, const std::string& in_home) {
    std::string folder = FolderOf(variable);
    if (folder.empty()) folder = geteuid() == 0 ? of_superuser : FolderOf("HOME") + in_home;
    return folder + "/tarvex";
}

// Where the service manager looks for units, in its order.
constexpr const char* kUnitFolders =
    "/etc/systemd/system:/run/systemd/system:/usr/local/lib/systemd/system:/usr/lib/systemd/system:/lib/systemd/system";

// The word behind --root.
std::string RootIn(const std::string& command_line) {
    std::istringstream words(command_line);
    std::string word;
    while (words >> word) {
        if (word == "--root" && words >> word) return word;
    }
    return {};
}

}  // namespace

std::string ConfigurationDirectory() { return OwnFolder("XDG_CONFIG_HOME", "/etc", "/.config"); }

std::string UsualRootDirectory() { return OwnFolder("XDG_DATA_HOME", "/var/lib", "/.local/share"); }

std::string ServiceRootDirectory() {
    if (geteuid() != 0) return {};
    const char* const given = std::getenv("SYSTEMD_UNIT_PATH");
    std::istringstream folders(given && *given ? given : kUnitFolders);
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::ifstream unit(folder + "/tarvex.service");
        for (std::string line; std::getline(unit, line);) {
            if (line.starts_with("ExecStart=")) return RootIn(line);
        }
    }
    return {};
}

void WorkAsOwnerOf(const std::string& directory) {
    struct stat status {};
    if (geteuid() != 0 || stat(NativePath(directory).c_str(), &status) != 0 || status.st_uid == 0) return;
    CallingUser();  // is asked later, too
    if (setgroups(0, nullptr) == 0 && setgid(status.st_gid) == 0 && setuid(status.st_uid) == 0) return;
    throw CommandError(kNotAllowed,
                       Tr("cannot work as the owner of \"{0}\": {1}", ShowPath(directory), std::strerror(errno)));
}

AsOwnerOf::AsOwnerOf(const std::string& directory) {
    struct stat status {};
    if (geteuid() != 0 || stat(NativePath(directory).c_str(), &status) != 0 || status.st_uid == 0) return;
    changed_ = true;
    CallingUser();
    if (setgroups(0, nullptr) == 0 && setegid(status.st_gid) == 0 && seteuid(status.st_uid) == 0) return;
    throw CommandError(kNotAllowed,
                       Tr("cannot work as the owner of \"{0}\": {1}", ShowPath(directory), std::strerror(errno)));
}

// The groups beside the first one stay away: the superuser needs none.
AsOwnerOf::~AsOwnerOf() {
    if (changed_ && (seteuid(0) != 0 || setegid(0) != 0)) std::abort();
}

bool GiveToOwnerOf(const std::string& other, const std::string& directory) {
    struct stat status {};
    if (geteuid() != 0) return true;
    if (stat(NativePath(other).c_str(), &status) != 0) return false;
    const auto give = [&](const std::filesystem::path& path) {
        return lchown(path.c_str(), status.st_uid, status.st_gid) == 0;
    };
    std::error_code error;
    bool given = true;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(NativePath(directory), error)) {
        given = give(entry.path()) && given;
    }
    return !error && given && give(NativePath(directory));
}

bool EverybodyMayRead(const std::string& path) {
    namespace fs = std::filesystem;
    std::error_code error;
    const auto has = [&error](const fs::path& place, fs::perms wanted) {
        const fs::perms given = fs::status(place, error).permissions();
        return !error && (given & wanted) == wanted;
    };
    fs::path place = fs::canonical(NativePath(path), error);
    if (error || !has(place, fs::perms::others_read)) return false;
    for (place = place.parent_path(); place != place.root_path(); place = place.parent_path()) {
        if (!has(place, fs::perms::others_exec)) return false;
    }
    return true;
}

std::string RemarkOnOtherTrees() {
    return geteuid() == 0 ? "" : " (that of the system's service is the superuser's: sudo)";
}

}  // namespace tarvex::host
