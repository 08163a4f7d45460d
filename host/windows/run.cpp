// `tarvex run`: one call of the entry.

#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

#include "host/display.h"
#include "host/paths.h"
#include "host/process.h"
#include "host/run_log.h"
#include "host/windows/commands.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr int kPollMs = 100;  // how long a signal may go unnoticed
constexpr int kSignalExit = 128;

// Loads the tree; when it cannot be had, the result says why. To the engine a file in the place of the root, or a
// directory that cannot be read, is a tree without users, which is nothing that a user of this command can mean.
std::string LoadTree(CRootPath& root, const std::string& directory) {
    if (!root.SetRootPath(directory)) return "it does not exist and cannot be created";
    std::error_code error;
    const std::filesystem::directory_iterator entries(NativePath(directory), error);
    return error ? error.message() : std::string();
}

void PrintRun(const CPopProfile& copy) {
    std::cout << "== " << ShowPath(copy.path) << '\n';
    const std::vector<std::string> lines = LinesOfThisRun(copy.log);
    for (const std::string& line : lines) std::cout << line << '\n';
    if (lines.empty()) std::cout << (copy.setting.logmode == 0 ? "(its log is switched off)\n" : "(it did not run)\n");
}

// False when a signal came first.
bool WaitForWorkers(CRootPath& root) {
    while (!root.WaitThread(kPollMs)) {
        if (CaughtSignal() != 0) return false;
    }
    return true;
}

}  // namespace

int RunOnce(const std::string& root_directory, bool quiet) {
    RaiseFileLimit();
    CatchTermination();
    CRootPath root;
    if (const std::string trouble = LoadTree(root, root_directory); !trouble.empty()) {
        std::cerr << "tarvex: cannot use \"" << ShowPath(root_directory) << "\" as the root: " << trouble << '\n';
        return kNoRoot;
    }
    Tarvex(&root);
    const bool finished = WaitForWorkers(root);
    // Destroying the root interrupts the workers, which save their state.
    if (!finished) return kSignalExit + CaughtSignal();

    if (!quiet) {
        for (const auto& copy : root.running_copies) PrintRun(*copy);
        if (root.running_copies.empty()) std::cout << "No profile was due.\n";
    }
    return kDone;
}

}  // namespace tarvex::host
