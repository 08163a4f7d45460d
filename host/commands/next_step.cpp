// `tarvex` without a command: what there is to do next.

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>

#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/service/service_connection.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/tree_owner.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

// What the tree lacks, and the command for that; empty when it lacks nothing.
std::string Missing(const CRootPath& root, const std::string& tarvex) {
    const auto profiles = AllProfiles(root);
    if (profiles.empty()) {
        return Tr("There is no profile yet: a mailbox to fetch from. Next:") + "\n  " + tarvex + " setup\n";
    }
    for (const NamedProfile& named : profiles) {
        const CPopProfile& profile = *named.profile;
        if (!profile.forward_addresses.empty() || !profile.addresses_loaded.whole) continue;
        const std::string name = ShownName(root, profile.path);
        return Tr("{0} ({1}) has no forwarding address. Next:", name, ShowText(profile.setting.address)) + "\n  " +
               tarvex + " forward add " + name + " ADDRESS\n";
    }
    return {};
}

std::string OfTree(const std::string& directory, const std::string& tarvex) {
    CRootPath root;
    OpenTree(root, directory);
    if (std::string missing = Missing(root, tarvex); !missing.empty()) return missing;
    const auto count = static_cast<std::int64_t>(AllProfiles(root).size());
    if (ServiceConnection::Try(directory)) {
        return TrN("A service runs {0} profile. How it fares:", "A service runs {0} profiles. How they fare:", count) +
               "\n  " + tarvex + " status\n";
    }
    return TrN("No service runs the {0} profile. `{1} check` tries the servers. Next:",
               "No service runs the {0} profiles. `{1} check` tries the servers. Next:", count, tarvex) +
           "\n  " + HowToKeepRunning(tarvex) + '\n';
}

}  // namespace

int NextStep(const Context& context) {
    const std::string directory = RootDirectory(context.root_option);
    const std::string tarvex = context.root_option ? "tarvex --root " + ShowPath(directory) : "tarvex";
    std::error_code error;
    const bool is_there = std::filesystem::exists(NativePath(directory), error) || error;
    std::cout << (is_there ? OfTree(directory, tarvex)
                           : Tr("There is no data tree at {0}{1}. Next:", ShowPath(directory), RemarkOnOtherTrees()) +
                                 "\n  " + tarvex + " setup\n")
              << Tr("`tarvex --help` lists the commands.") << '\n';
    return kDone;
}

}  // namespace tarvex::host
