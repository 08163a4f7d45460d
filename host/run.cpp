// `tarvex run`: one call of the entry, for all profiles or for some.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "host/choice.h"
#include "host/commands.h"
#include "host/display.h"
#include "host/paths.h"
#include "host/process.h"
#include "host/progress.h"
#include "host/root_lock.h"
#include "host/run_log.h"
#include "host/tree_root.h"
#include "host/trouble.h"
#include "host/wording.h"
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

struct Options {
    std::vector<std::string> names;
    bool now = false;
    bool quiet = false;
};

// False when a signal came first.
bool WaitForWorkers(CRootPath& root, bool show_progress) {
    Progress progress;
    while (!root.WaitThread(kPollMs)) {
        if (CaughtSignal() != 0) return false;
        if (show_progress) progress.Show(root);
    }
    return true;
}

// Takes everything else out of the tree in memory, so that the entry does not see it.
void KeepOnly(CRootPath& root, const std::vector<NamedProfile>& chosen) {
    const auto is_chosen = [&chosen](const auto& profile) {
        return std::ranges::any_of(chosen, [&](const NamedProfile& named) { return named.profile == profile.get(); });
    };
    for (const auto& user : root.users) std::erase_if(user->profiles, std::not_fn(is_chosen));
}

void MakeDue(CRootPath& root) {
    // Before any moment to which an interval could be added without passing now.
    constexpr CTime kLongAgo = -(CTime{1} << 40);
    for (const auto& user : root.users) {
        for (const auto& profile : user->profiles) profile->setting.lasttime = kLongAgo;
    }
}

bool Runs(const CRootPath& root, const CPopProfile& profile) {
    return std::ranges::any_of(root.running_copies, [&](const auto& copy) { return copy->path == profile.path; });
}

// Whoever named a profile wants to know why it does not run.
void PrintWhatDoesNotRun(const CRootPath& root, const std::vector<NamedProfile>& chosen) {
    for (const NamedProfile& named : chosen) {
        const CPopProfile& profile = *named.profile;
        if (Runs(root, profile)) continue;
        std::cout << ShownName(root, profile.path);
        if (profile.setting.status == 0) {
            std::cout << " is switched off (status 0).\n";
        } else {
            std::cout << " is not due before " << ShowTime(profile.NextDue()) << "; --now runs it all the same.\n";
        }
    }
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

// Runs the profiles that are due, once, and waits for the workers. Prints what each run added to its log unless quiet.
int RunOnce(const Context& context, const Options& options) {
    RaiseFileLimit();
    CatchTermination();
    std::optional<RootLock> lock;  // until the workers have ended, which they have when the root is gone
    CRootPath root;
    LoadTreeToRun(root, context, lock);
    std::vector<NamedProfile> chosen;
    if (!options.names.empty()) {
        chosen = ChosenProfiles(root, options.names);
        KeepOnly(root, chosen);
    }
    if (options.now) MakeDue(root);
    Tarvex(&root);
    const bool finished = WaitForWorkers(root, !options.quiet && CanRedraw());
    // Destroying the root interrupts the workers, which save their state.
    if (!finished) return kSignalExit + CaughtSignal();

    if (!options.quiet) {
        for (const auto& copy : root.running_copies) PrintRun(*copy);
        PrintWhatDoesNotRun(root, chosen);
        if (root.running_copies.empty() && chosen.empty()) std::cout << "No profile was due.\n";
    }
    return kDone;
}

}  // namespace

void AddRunCommand(CLI::App& app, Context& context) {
    CLI::App* const run = app.add_subcommand("run", "Run every profile that is due, once, and wait for the end.");
    auto options = std::make_shared<Options>();
    run->add_option("PROFILE", options->names, "Path, nickname or address of a profile; without one, all of them");
    run->add_flag("--now", options->now, "Run them whether they are due or not");
    run->add_flag("--quiet", options->quiet, "Print neither progress nor what the runs added to their logs");
    run->callback(
        [&context, options] { context.command = [&context, options] { return RunOnce(context, *options); }; });
}

}  // namespace tarvex::host
