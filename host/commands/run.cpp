// `tarvex run`: one call of the entry, for all profiles or for some.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "host/commands/commands.h"
#include "host/commands/profile_arguments.h"
#include "host/commands/progress.h"
#include "host/commands/submit.h"
#include "host/service/run_reports.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/process.h"
#include "host/system/tree_owner.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/tree_root.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr int kPollMs = 100;  // how long a signal may go unnoticed
constexpr int kSignalExit = 128;

struct Options {
    std::vector<std::string> names;
    bool now = false;
    bool quiet = false;

    bool ShowsProgress() const { return !quiet && CanRedraw(); }
};

// False when a signal came first.
bool WaitForWorkers(CRootPath& root, bool show_progress) {
    Progress progress;
    while (!root.WaitThread(kPollMs)) {
        if (CaughtSignal() != 0) return false;
        if (show_progress) progress.Show(RunsNow(root));
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

bool Runs(const CRootPath& root, const CPopProfile& profile) {
    return std::ranges::any_of(root.running_copies, [&](const auto& copy) { return copy->path == profile.path; });
}

// Takes those out of the chosen ones that must not run, and says why.
std::string LeaveOut(const CRootPath& root, std::vector<NamedProfile>& chosen) {
    std::string left_out;
    std::erase_if(chosen, [&](const NamedProfile& named) {
        const CPopProfile& profile = *named.profile;
        const bool is_due = profile.setting.status != 0 && profile.NextDue() <= std::time(nullptr);
        const std::string why = is_due ? WhyNotRunnable(profile) : WhyUnreadable(profile);
        if (!why.empty()) AddLeftOut(left_out, ShownName(root, profile.path), why);
        return !why.empty();
    });
    return left_out;
}

// Also why those that were named did not run.
void PrintReports(const CRootPath& root, const std::vector<NamedProfile>& chosen, bool named_ones) {
    for (const auto& copy : root.running_copies) std::cout << ReportOf(*copy);
    for (const NamedProfile& named : chosen) {
        if (named_ones && !Runs(root, *named.profile)) std::cout << WhyItDoesNotRun(root, *named.profile);
    }
}

CommandError CannotUse(const std::string& directory, const std::string& why) {
    return {kNoRoot, "cannot use \"" + ShowPath(directory) + "\" as the root: " + why};
}

// A directory that is not there yet is created, but only where it was named.
void RequireRootToRun(const std::string& directory, bool may_make) {
    std::error_code error;
    if (!std::filesystem::is_directory(NativePath(directory), error)) {
        if (!may_make) throw CannotUse(directory, "it does not exist; make it with `tarvex init`");
        CRootPath root;
        if (const std::string trouble = LoadTree(root, directory); !trouble.empty())
            throw CannotUse(directory, trouble);
    }
    WorkAsOwnerOf(directory);
    if (const std::string trouble = WhyRootUnreadable(directory); !trouble.empty()) throw CannotUse(directory, trouble);
}

// Under the lock of the root.
int RunHere(const std::string& directory, const Options& options) {
    RaiseFileLimit();
    CatchTermination();
    CRootPath root;
    if (const std::string trouble = LoadTree(root, directory); !trouble.empty()) throw CannotUse(directory, trouble);
    std::vector<NamedProfile> chosen = ChosenProfiles(root, options.names);
    for (const NamedProfile& named : chosen) {
        if (options.now) MakeDue(*named.profile);
    }
    std::string failed = LeaveOut(root, chosen);
    KeepOnly(root, chosen);
    Tarvex(&root);
    // Destroying the root interrupts the workers, which save their state.
    if (!WaitForWorkers(root, options.ShowsProgress())) return kSignalExit + CaughtSignal();

    for (const auto& copy : root.running_copies) {
        if (UnsavedListBytes(*copy) > 0) AddLeftOut(failed, ShownName(root, copy->path), kStateNotSaved);
    }
    if (!options.quiet) PrintReports(root, chosen, !options.names.empty());
    if (!failed.empty()) throw CommandError(kCannotWrite, failed);
    if (!options.quiet && options.names.empty() && root.running_copies.empty()) std::cout << kNothingDue;
    return kDone;
}

// The service's runs that this command is about, as lines on the terminal.
class ServiceProgress {
public:
    ServiceProgress(std::string directory, const std::vector<std::string>& names) : directory_(std::move(directory)) {
        CRootPath root;
        OpenTree(root, directory_);
        for (const NamedProfile& named : ChosenProfiles(root, names)) {
            chosen_.insert(ShownName(root, named.profile->path));
        }
    }

    void Show() {
        std::vector<RunNow> runs;
        try {
            if (auto service = ServiceConnection::Try(directory_)) runs = service->Report().runs;
        } catch (const CommandError&) {
            return;  // what has become of the service, the answer that is waited for will tell
        }
        std::erase_if(runs, [this](const RunNow& run) { return !chosen_.contains(run.profile); });
        progress_.Show(runs);
    }

private:
    std::string directory_;
    std::set<std::string> chosen_;
    Progress progress_;
};

// A signal ends the command and not the runs, which are the service's.
int RunByService(ServiceConnection& service, const std::string& directory, const Options& options) {
    std::optional<ServiceProgress> progress;
    std::function<void()> show;
    if (options.ShowsProgress()) {
        progress.emplace(directory, options.names);
        show = [&] { progress->Show(); };
    }
    Reply reply;
    const int code = service.Run({options.names, options.now}, reply, PrintNote, show);
    progress.reset();  // off the terminal
    if (!options.quiet) std::cout << reply.printed;
    if (code != kDone) throw CommandError(code, reply.error);
    return code;
}

// Runs the profiles that are due, once, and waits for the workers. Prints what each run added to its log unless quiet.
int RunOnce(const Context& context, const Options& options) {
    const std::string directory = RootDirectory(context.root_option);
    RequireRootToRun(directory, context.root_option.has_value());
    LockOrService access = TakeLockOrService(directory, "run");
    auto* const service = std::get_if<std::unique_ptr<ServiceConnection>>(&access);
    return service ? RunByService(**service, directory, options) : RunHere(directory, options);
}

}  // namespace

void AddRunCommand(CLI::App& app, Context& context) {
    CLI::App* const run = app.add_subcommand("run", "Run every profile that is due, once, and wait for the end.");
    auto options = std::make_shared<Options>();
    AddProfileNames(*run, options->names);
    run->add_flag("--now", options->now, "Run them whether they are due or not");
    run->add_flag("--quiet", options->quiet, "Print neither progress nor what the runs added to their logs");
    run->footer("While a service owns the tree, it is the service that runs them.");
    run->callback(
        [&context, options] { context.command = [&context, options] { return RunOnce(context, *options); }; });
}

}  // namespace tarvex::host
