// `tarvex run`: one call of the entry.

#include <iostream>

#include "host/commands.h"
#include "host/display.h"
#include "host/process.h"
#include "host/run_log.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr int kPollMs = 100;  // how long a signal may go unnoticed
constexpr int kSignalExit = 128;

void PrintRun(const CPopProfile& copy) {
    std::cout << "== " << ShowPath(copy.path) << '\n';
    if (copy.setting.logmode == 0) std::cout << "(its log is switched off)\n";
    for (const std::string& line : LinesOfThisRun(copy.log)) std::cout << line << '\n';
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
    if (!root.SetRootPath(root_directory)) {
        std::cerr << "tarvex: cannot use " << ShowPath(root_directory)
                  << " as the root: there is no such directory and it cannot be created\n";
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
