#include "host/tree_root.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/display.h"
#include "host/paths.h"
#include "host/trouble.h"

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

}  // namespace

std::string ConfigurationDirectory() { return OwnFolder("XDG_CONFIG_HOME", "/etc", "/.config"); }

std::string UsualRootDirectory() { return OwnFolder("XDG_DATA_HOME", "/var/lib", "/.local/share"); }

std::string RootDirectory(const Context& context) {
    if (context.root_option) return *context.root_option;
    // Looked up once: after WorkAsOwnerOf the superuser's settings are out of reach.
    static const std::string remembered = [] {
        CAppSetting setting;
        setting.Load(ConfigurationDirectory());
        return NativePath(setting.rootpath);
    }();
    return remembered;
}

std::string WhyUnreadable(const std::string& directory) {
    std::error_code error;
    const std::filesystem::directory_iterator entries(NativePath(directory), error);
    return error ? error.message() : std::string();
}

void WorkAsOwnerOf(const std::string& directory) {
    struct stat status {};
    if (geteuid() != 0 || stat(NativePath(directory).c_str(), &status) != 0 || status.st_uid == 0) return;
    if (setgroups(0, nullptr) == 0 && setgid(status.st_gid) == 0 && setuid(status.st_uid) == 0) return;
    throw Trouble(kNotAllowed, "cannot work as the owner of " + QuotedPath(directory) + ": " + std::strerror(errno));
}

// To the engine a file in the place of the root, or a directory that cannot be read, is a tree without users, which is
// nothing that a user of a command can mean.
std::string LoadTree(CRootPath& root, const std::string& directory) {
    WorkAsOwnerOf(directory);
    if (!root.SetRootPath(directory)) return "it does not exist and cannot be created";
    return WhyUnreadable(directory);
}

void RequireRoot(const std::string& directory) {
    std::error_code error;
    if (!std::filesystem::exists(NativePath(directory), error)) {
        throw Trouble(kNotFound,
                      "there is no data tree at " + QuotedPath(directory) +
                          "; make one with `tarvex init`, or name another with --root" +
                          (geteuid() == 0 ? "" : " (that of the system's service is the superuser's: sudo)"));
    }
    WorkAsOwnerOf(directory);
    if (const std::string trouble = WhyUnreadable(directory); !trouble.empty()) {
        throw Trouble(kNotFound, "cannot use " + QuotedPath(directory) + " as the root: " + trouble);
    }
}

void OpenTree(CRootPath& root, const std::string& directory) {
    RequireRoot(directory);
    if (!root.SetRootPath(directory)) throw Trouble(kCannotWrite, "cannot load " + QuotedPath(directory));
}

}  // namespace tarvex::host
