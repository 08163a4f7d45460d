// `tarvex run`: one call of the entry, for all profiles or for some.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "host/alerts/alerts.h"
#include "host/commands/arguments/expected_generation.h"
#include "host/commands/arguments/profile_arguments.h"
#include "host/commands/arguments/progress.h"
#include "host/commands/arguments/submit.h"
#include "host/commands/commands.h"
#include "host/generation/generation.h"
#include "host/held/held_work.h"
#include "host/language/tr.h"
#include "host/rules/ruled_runs.h"
#include "host/service/run_reports.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/process.h"
#include "host/system/tree_owner.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/tree_root.h"
#include "host/tree/tree_rules.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr int kPollMs = 100;  // how long a signal may go unnoticed
constexpr int kSignalExit = 128;

struct Options {
    std::vector<std::string> names;
    bool now = false;
    bool quiet = false;
    bool verbose = false;
    std::optional<std::int64_t> expected_generation;

    bool ShowsProgress() const { return !quiet && CanRedraw(); }
};

CommandError CannotUse(const std::string& directory, const std::string& why) {
    return {kNoRoot, Tr("cannot use \"{0}\" as the root: {1}", ShowPath(directory), why)};
}

void PrintTroubles(const std::string& sentences) {
    std::cout << std::flush;  // which comes first on a terminal
    std::istringstream lines(sentences);
    for (std::string line; std::getline(lines, line);) PrintNote(line);
}

// The runs of one call, and what has to be said about them.
class Runner {
public:
    Runner(const std::string& directory, const Options& options)
        : options_(options), directory_(directory), history_(directory, PrintNote), rules_(directory, PrintNote) {
        if (const std::string trouble = LoadTree(root_, directory); !trouble.empty())
            throw CannotUse(directory, trouble);
        chosen_ = ChosenProfiles(root_, options.names);
        for (const std::string& why : WhatIsNotListed(root_)) troubles_.Add("", why, kCannotWrite);
    }

    int Run() {
        for (const NamedProfile& named : chosen_) QueueIfWanted(*named.user, *named.profile);
        const bool done = RunQueue();
        if (!done) {
            InterruptRuns(root_);
            root_.WaitThread(-1);
            TakeEnded();
        }
        if (!done) return kSignalExit + CaughtSignal();
        for (const NamedProfile& named : chosen_) AddLastEnd(*named.profile);
        if (!options_.quiet) Print();
        for (const NamedProfile& named : chosen_) TryHeld(*named.user, *named.profile);
        history_.Tidy([this] { return LimitsOfHistory(directory_); }, std::time(nullptr), kTidyingTime);
        TellReaders();
        if (CaughtSignal() != 0) return kSignalExit + CaughtSignal();
        PrintTroubles(troubles_.sentence);
        return troubles_.code;
    }

private:
    void QueueIfWanted(const CUser& user, CPopProfile& profile) {
        const bool is_due = options_.now || profile.NextDue() <= std::time(nullptr);
        const bool wanted = is_due && IsSwitchedOn(user, profile);
        const std::string why = wanted ? WhyNotRunnable(profile) : WhyUnreadable(profile);
        if (!why.empty()) return troubles_.Add(ShownName(root_, profile.path), why, kCannotWrite);
        if (!wanted) return;
        if (const std::string kept = rules_.WhyNotNow(profile, options_.now); !kept.empty()) {
            kept_back_[profile.path] = kept;
        } else {
            queue_.push_back(&profile);
        }
    }

    // False when a signal ended it.
    bool RunQueue() {
        Progress progress;
        for (;;) {
            StartQueued();
            const bool all_ended = root_.WaitThread(kPollMs) != 0;
            if (CaughtSignal() != 0) return false;
            TakeEnded();
            if (all_ended && queue_.empty()) return true;
            if (options_.ShowsProgress()) progress.Show(RunsNow(root_));
            rules_.EndLongRuns(root_);
            for (const auto& copy : root_.running_copies) history_.AddMails(copy->path, rules_.TakeSettled(*copy));
        }
    }

    void StartQueued() {
        std::erase_if(queue_, [this](CPopProfile* profile) {
            if (!rules_.HasRoomFor(root_, *profile)) return false;
            if (rules_.Start(root_, *profile) == CStartResult::Started) return true;
            history_.Add(profile->path, RunThatCouldNotBegin());
            troubles_.AddEnd(ShownName(root_, profile->path), RunThatCouldNotBegin().result);
            in_brief_.AddOneThatCouldNotBegin(profile->path);
            return true;
        });
    }

    void TakeEnded() {
        std::erase_if(root_.running_copies, [this](auto& copy) {
            if (copy->worker_thread.load()) return false;
            ended_.push_back(std::move(copy));
            TellEnd(*ended_.back());
            return true;
        });
    }

    void TellEnd(CPopProfile& copy) {
        what_else_[&copy] = rules_.WhatElse(copy);
        std::vector<TracedMail> mails;
        const auto duration = rules_.Duration(copy);
        const bool goes_on = rules_.Finish(copy, &mails) == NextRun::AtOnce;
        history_.Add(copy.path, RunThatEnded(copy, duration), std::move(mails));
        if (!goes_on) return;
        const auto of_copy = [&copy](const NamedProfile& named) { return named.profile->path == copy.path; };
        queue_.push_back(std::ranges::find_if(chosen_, of_copy)->profile);
    }

    void AddLastEnd(const CPopProfile& profile) {
        const auto is_of_profile = [&](const auto& copy) { return copy->path == profile.path; };
        const auto last = std::find_if(ended_.rbegin(), ended_.rend(), is_of_profile);
        if (last != ended_.rend()) troubles_.AddEnd(ShownName(root_, profile.path), (*last)->result);
    }

    bool HasRun(const CPopProfile& profile) const {
        return std::ranges::any_of(ended_, [&](const auto& copy) { return copy->path == profile.path; });
    }

    // What was set aside and is due. It says nothing about the runs, so it does not change how the command ends.
    void TryHeld(const CUser& user, const CPopProfile& profile) {
        const CTime now = std::time(nullptr);
        CTime next_look = 0;
        if (CaughtSignal() != 0 || !IsSwitchedOn(user, profile) || !WhyUnreadable(profile).empty()) return;
        const std::vector<HeldChoice> due = DueHeldOf(root_, profile, now, next_look);
        if (due.empty() || !rules_.MayTryHeld(profile)) return;
        CPopProfile copy;
        copy = profile;
        Reply reply;
        const HeldSendingOptions options{now, [] { return CaughtSignal() != 0; }, &rules_.Memory(),
                                         EndOfDataSeconds(root_, profile), &rules_.WaysOut()};
        const std::vector<HeldResult> results = SendHeld(copy, due, options);
        history_.AddMails(copy.path, SentIn(results));
        const int code = TellHeld(results, due.size(), reply);
        const std::string heading = Tr("{0}: held mail was tried again", ShownName(root_, profile.path));
        if (!options_.quiet) std::cout << heading << ":\n" << reply.printed;
        if (options_.quiet && code != kDone) PrintNote(Tr("{0}, {1}", heading, reply.error));
    }

    // As the service would, where there is none.
    void TellReaders() {
        CPopProfile copy;
        Alerts alerts(directory_, {[](const std::string&) {}, PrintNote});
        alerts.Look(root_, {}, std::time(nullptr), 0, {copy, [] { return CaughtSignal() != 0; }});
    }

    // Also why those that were named did not run.
    void Print() {
        const bool in_full = options_.verbose || chosen_.size() == 1;
        for (const NamedProfile& named : chosen_) {
            for (const auto& copy : ended_) {
                if (copy->path != named.profile->path) continue;
                const std::string& what_else = what_else_.at(copy.get());
                std::cout << (in_full ? ReportOf(*copy, what_else)
                                      : in_brief_.Add(ShownName(root_, copy->path), *copy, what_else));
            }
        }
        for (const auto& [path, why] : kept_back_) std::cout << ShownName(root_, path) << ": " << why << '\n';
        const bool nothing = ended_.empty() && kept_back_.empty() && troubles_.code == kDone;
        if (options_.names.empty() && nothing) std::cout << Tr(kNothingDue) << '\n';
        for (const NamedProfile& named : chosen_) {
            const CPopProfile& profile = *named.profile;
            const bool told = options_.names.empty() || HasRun(profile) || kept_back_.contains(profile.path);
            if (!told && WhyUnreadable(*named.profile).empty())
                std::cout << WhyItDoesNotRun(root_, *named.user, *named.profile);
        }
        if (!in_full) std::cout << in_brief_.Sum();
    }

    const Options& options_;
    const std::string directory_;
    HistoryWriter history_;
    RuledRuns rules_;
    CRootPath root_;  // after the rules, which its runs ask
    std::vector<NamedProfile> chosen_;
    std::vector<CPopProfile*> queue_;  // to be started
    std::vector<std::unique_ptr<CPopProfile>> ended_;
    std::map<const CPopProfile*, std::string> what_else_;  // of those
    std::map<CString, std::string> kept_back_;             // why, by path
    RunTroubles troubles_;
    RunsInBrief in_brief_;
};

// Creates a missing directory, but only one that --root names.
void RequireRootToRun(const std::string& directory, bool may_make) {
    std::error_code error;
    if (!std::filesystem::is_directory(NativePath(directory), error)) {
        if (!may_make) throw CannotUse(directory, Tr("it does not exist; make it with `tarvex init`"));
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
    return Runner(directory, options).Run();
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
            return;  // the answer that the command waits for will say what has become of the service
        }
        std::erase_if(runs, [this](const RunNow& run) { return !chosen_.contains(run.profile); });
        progress_.Show(runs);
    }

private:
    std::string directory_;
    std::set<std::string> chosen_;
    Progress progress_;
};

// A signal ends the command, not the runs: they belong to the service.
int RunByService(ServiceConnection& service, const std::string& directory, const Options& options) {
    std::optional<ServiceProgress> progress;
    std::function<void()> show;
    if (options.ShowsProgress()) {
        progress.emplace(directory, options.names);
        show = [&] { progress->Show(); };
    }
    Reply reply;
    const auto note = [&options](const std::string& text) {
        if (!options.quiet) PrintNote(text);
    };
    const int code = service.Run({options.names, options.now, options.verbose}, reply, note, show);
    progress.reset();  // off the terminal
    if (!options.quiet) std::cout << reply.printed;
    PrintTroubles(reply.error);
    return code;
}

// Runs the profiles that are due, once, and waits for the workers. Prints what the run added to its log where it is
// one.
int RunOnce(const Context& context, const Options& options) {
    const std::string directory = RootDirectory(context.root_option);
    RequireRootToRun(directory, context.root_option.has_value());
    LockOrService access = TakeLockOrService(directory, "run");
    auto* const service = std::get_if<std::unique_ptr<ServiceConnection>>(&access);
    const TreeAge age(directory, options.expected_generation);
    if (age.Old()) throw CommandError(kCannotWrite, WhyHeldBack(*age.Old()));
    return service ? RunByService(**service, directory, options) : RunHere(directory, options);
}

}  // namespace

void AddRunCommand(CLI::App& app, Context& context) {
    CLI::App* const run = app.add_subcommand("run", Tr("Run every profile that is due, once, and wait for the end."));
    auto options = std::make_shared<Options>();
    AddProfileNames(*run, options->names);
    run->add_flag("--now", options->now, Tr("Run them whether they are due or not"));
    CLI::Option* const quiet = run->add_flag("--quiet", options->quiet, Tr("Print failures and nothing else"));
    run->add_flag("--verbose", options->verbose, Tr("Print the conversation of every run, also of many"))
        ->excludes(quiet);
    const auto expected = std::make_shared<ExpectedGeneration>(*run);
    run->footer(Tr("While a service owns the tree, it is the service that runs them."));
    run->callback([&context, options, expected] {
        options->expected_generation = expected->Number();
        context.command = [&context, options] { return RunOnce(context, *options); };
    });
}

}  // namespace tarvex::host
