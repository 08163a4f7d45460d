// `tarvex` without a command: what there is to do next.

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>

#include "host/commands/commands.h"
#include "host/service/service_connection.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/tree_owner.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

// What the tree lacks, and the command for that; empty when it lacks nothing.
std::string Missing(const CRootPath& root, const std::string& tarvex) {
    const auto profiles = AllProfiles(root);
    if (profiles.empty()) return "There is no profile yet: a mailbox to fetch from. Next:\n  " + tarvex + " setup\n";
    for (const NamedProfile& named : profiles) {
        const CPopProfile& profile = *named.profile;
        if (!profile.forward_addresses.empty() || !profile.addresses_loaded.whole) continue;
        const std::string name = ShownName(root, profile.path);
        return name + " (" + ShowText(profile.setting.address) + ") has no forwarding address. Next:\n  " + tarvex +
               " forward add " + name + " ADDRESS\n";
    }
    return {};
}

std::string OfTree(const std::string& directory, const std::string& tarvex) {
    CRootPath root;
    OpenTree(root, directory);
    if (std::string missing = Missing(root, tarvex); !missing.empty()) return missing;
    const std::string count = ShowCount(static_cast<std::int64_t>(AllProfiles(root).size()), "profile");
    if (ServiceConnection::Try(directory)) {
        return "A service runs " + count + ". How they fare:\n  " + tarvex + " status\n";
    }
    return "No service runs the " + count + ". `" + tarvex + " check` tries the servers. Next:\n  " +
           HowToKeepRunning(tarvex) + '\n';
}

}  // namespace

int NextStep(const Context& context) {
    const std::string directory = RootDirectory(context.root_option);
    const std::string tarvex = context.root_option ? "tarvex --root " + ShowPath(directory) : "tarvex";
    std::error_code error;
    const bool is_there = std::filesystem::exists(NativePath(directory), error) || error;
    std::cout << (is_there ? OfTree(directory, tarvex)
                           : "There is no data tree at " + ShowPath(directory) + RemarkOnOtherTrees() + ". Next:\n  " +
                                 tarvex + " setup\n")
              << "`tarvex --help` lists the commands.\n";
    return kDone;
}

}  // namespace tarvex::host
