#include "host/tree_root.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "host/display.h"
#include "host/trouble.h"

namespace tarvex::host {
namespace {

// An unset variable and a relative path count as nothing (the XDG base directories).
std::string FolderOf(const char* variable) {
    const char* const value = std::getenv(variable);
    return value && *value == '/' ? value : "";
}

}  // namespace

std::string ConfigurationDirectory() {
    if (const std::string folder = FolderOf("XDG_CONFIG_HOME"); !folder.empty()) return folder + "/tarvex";
    if (geteuid() == 0) return "/etc/tarvex";
    return FolderOf("HOME") + "/.config/tarvex";
}

std::string RootDirectory(const Context& context) {
    if (context.root_option) return *context.root_option;
    CAppSetting setting;
    setting.Load(ConfigurationDirectory());
    return NativePath(setting.rootpath);
}

std::string WhyUnreadable(const std::string& directory) {
    std::error_code error;
    const std::filesystem::directory_iterator entries(NativePath(directory), error);
    return error ? error.message() : std::string();
}

// To the engine a file in the place of the root, or a directory that cannot be read, is a tree without users, which is
// nothing that a user of a command can mean.
std::string LoadTree(CRootPath& root, const std::string& directory) {
    if (!root.SetRootPath(directory)) return "it does not exist and cannot be created";
    return WhyUnreadable(directory);
}

void OpenTree(CRootPath& root, const std::string& directory) {
    std::error_code error;
    if (!std::filesystem::exists(NativePath(directory), error)) {
        throw Trouble(kNotFound, "there is no data tree at \"" + ShowPath(directory) +
                                     "\"; make one with `tarvex init`, or name another with --root");
    }
    if (const std::string trouble = LoadTree(root, directory); !trouble.empty()) {
        throw Trouble(kNotFound, "cannot use \"" + ShowPath(directory) + "\" as the root: " + trouble);
    }
}

}  // namespace tarvex::host
