// `tarvex run`: one call of the entry.

#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "host/commands.h"
#include "host/display.h"
#include "host/process.h"
#include "host/root_lock.h"
#include "host/run_log.h"
#include "host/tree_root.h"
#include "host/trouble.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr int kPollMs = 100;  // how long a signal may go unnoticed
constexpr int kSignalExit = 128;
constexpr std::chrono::milliseconds kPatience{2000};  // with an edit that is being saved

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

// A directory that is not there yet is created, but only where it was named.
void LoadTreeToRun(CRootPath& root, const Context& context, std::optional<RootLock>& lock) {
    const std::string directory = RootDirectory(context);
    const auto fail = [&](const std::string& why) -> Trouble {
        return {kNoRoot, "cannot use \"" + ShowPath(directory) + "\" as the root: " + why};
    };
    std::error_code error;
    if (!std::filesystem::is_directory(NativePath(directory), error)) {
        if (!context.root_option) throw fail("it does not exist; make it with `tarvex init`");
        if (const std::string trouble = LoadTree(root, directory); !trouble.empty()) throw fail(trouble);
    }
    if (const std::string trouble = WhyUnreadable(directory); !trouble.empty()) throw fail(trouble);
    lock.emplace(RootLock::Take(directory, "run", kPatience));
    if (const std::string trouble = LoadTree(root, directory); !trouble.empty()) throw fail(trouble);
}

// Runs every profile that is due, once, and waits for the workers. Prints what each run added to its log unless quiet.
int RunOnce(const Context& context, bool quiet) {
    RaiseFileLimit();
    CatchTermination();
    std::optional<RootLock> lock;  // until the workers have ended, which they have when the root is gone
    CRootPath root;
    LoadTreeToRun(root, context, lock);
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

}  // namespace

void AddRunCommand(CLI::App& app, Context& context) {
    CLI::App* const run = app.add_subcommand("run", "Run every profile that is due, once, and wait for the end.");
    auto quiet = std::make_shared<bool>(false);
    run->add_flag("--quiet", *quiet, "Do not print what the runs added to their logs");
    run->callback([&context, quiet] { context.command = [&context, quiet] { return RunOnce(context, *quiet); }; });
}

}  // namespace tarvex::host
