// Finds the root directory and loads the tree.

#include "host/tree/tree_root.h"

#include <filesystem>
#include <system_error>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/error_words.h"
#include "host/system/paths.h"
#include "host/system/tree_owner.h"
#include "host/tree/tree_rules.h"

namespace tarvex::host {

std::string RootDirectory(const std::optional<std::string>& root_option) {
    if (root_option) return *root_option;
    // Looked up once: after WorkAsOwnerOf the superuser's settings are out of reach.
    static const std::string remembered = [] {
        CAppSetting setting;
        if (setting.Load(ConfigurationDirectory())) return setting.rootpath;
        const std::string served = ServiceRootDirectory();
        return served.empty() ? setting.rootpath : served;
    }();
    return remembered;
}

std::string WhyRootUnreadable(const std::string& directory) {
    std::error_code error;
    const std::filesystem::directory_iterator entries(NativePath(directory), error);
    return error ? WordsOf(error) : std::string();
}

// The engine treats a root that is a file or cannot be read as a tree without users. A command must refuse it.
std::string LoadTree(CRootPath& root, const std::string& directory) {
    WorkAsOwnerOf(directory);
    if (!root.SetRootPath(directory)) return Tr("it does not exist and cannot be created");
    ApplyRules(root);
    return WhyRootUnreadable(directory);
}

void RequireRoot(const std::string& directory) {
    std::error_code error;
    if (!std::filesystem::exists(NativePath(directory), error)) {
        throw CommandError(
            kNotFound, Tr("there is no data tree at \"{0}\"; make one with `tarvex init`, or name another with --root",
                          ShowPath(directory)) +
                           RemarkOnOtherTrees());
    }
    WorkAsOwnerOf(directory);
    if (const std::string trouble = WhyRootUnreadable(directory); !trouble.empty()) {
        throw CommandError(kNotFound, Tr("cannot use \"{0}\" as the root: {1}", ShowPath(directory), trouble));
    }
}

void OpenTree(CRootPath& root, const std::string& directory) {
    RequireRoot(directory);
    if (!root.SetRootPath(directory)) throw CommandError(kCannotWrite, Tr("cannot load \"{0}\"", ShowPath(directory)));
    ApplyRules(root);
}

void RequireNewUsersAllowed() {
    CAppSetting setting;
    if (!setting.Load(ConfigurationDirectory()) || setting.allowcreatenewuser != 0) return;
    throw CommandError(kNotAllowed, Tr("appset.def in \"{0}\" does not allow new users; `tarvex settings set "
                                       "--allowcreatenewuser on` does",
                                       ShowPath(ConfigurationDirectory())));
}

}  // namespace tarvex::host
