// `tarvex status`: how every profile is doing, from its settings and the history of its runs.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ctime>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/alerts/untold.h"
#include "host/commands/arguments/profile_arguments.h"
#include "host/commands/arguments/submit.h"
#include "host/commands/commands.h"
#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/process.h"
#include "host/terminal/json.h"
#include "host/terminal/table.h"
#include "host/terminal/wording.h"
#include "host/tree/account_text.h"
#include "host/tree/tree_root.h"
#include "host/view/asked_state.h"
#include "host/view/status_json.h"
#include "host/view/status_words.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

// Columns of the table that a narrow terminal can do without, by their places.
constexpr std::size_t kAddress = 1;
constexpr std::size_t kRuns = 4;
constexpr std::size_t kFailed = 5;
constexpr std::size_t kDelivered = 6;
constexpr std::size_t kCopies = 7;

// A terminal is not left to break the line where it wants.
void PrintWrapped(const std::string& text) {
    const std::size_t columns = TerminalColumns();
    std::cout << (columns == 0 ? text : WrappedBehindIndent(text, columns)) << '\n';
}

void PrintTable(const std::vector<ProfileState>& all, const std::string& held_back, CTime now) {
    Table table({Tr("PROFILE"), Tr("ADDRESS"), Tr("LAST RUN"), Tr("NEXT DUE"), Tr("RUNS"), Tr("FAILED"),
                 Tr("DELIVERED"), Tr("COPIES"), Tr("HOW THE LAST RUN ENDED")});
    for (const ProfileState& status : all) {
        const ProfileHistory history = status.history.value_or(ProfileHistory());
        table.Add({status.name, status.address, LastRun(status), NextDue(status, now), std::to_string(history.runs),
                   std::to_string(history.failed), std::to_string(history.delivered), std::to_string(history.copies),
                   HowTheLastRunEnded(status)});
    }
    table.Print(std::cout, {TerminalColumns(), {kRuns, kCopies, kDelivered, kFailed, kAddress}});
    if (!held_back.empty()) PrintWrapped(held_back);
    for (ProfileState status : all) {
        if (status.trouble == held_back) status.trouble.clear();
        for (const std::string& remark : RemarksOn(status, now)) PrintWrapped(remark);
    }
}

// One line for each shared account.
void PrintSharedServers(const std::vector<ProfileState>& all) {
    std::map<std::string, std::int64_t> profiles;
    for (const ProfileState& status : all) {
        if (!status.shared_server.empty()) ++profiles[status.shared_server];
    }
    for (const auto& [server, count] : profiles) {
        PrintWrapped(TrN("{0} profile sends through {1}.", "{0} profiles send through {1}.", count, server));
    }
}

using Untold = std::map<std::string, std::vector<UntoldReader>>;

void PrintAsJson(const AskedState& tree, const Untold& untold, bool has_rules, CTime now) {
    Json list = Json::array();
    for (const ProfileState& status : tree.profiles) {
        const auto readers = untold.find(status.name);
        list.push_back(JsonOf(tree, status, readers == untold.end() ? std::vector<UntoldReader>() : readers->second,
                              has_rules, now));
    }
    PrintJson(list);
}

struct Options {
    std::vector<std::string> names;
    bool only_failed = false;
    bool as_json = false;
};

// Its last run failed, it is not run, or somebody has to do something about it.
bool Fails(const ProfileState& status, bool has_rules) {
    const bool failing = status.history && status.history->failed_in_a_row > 0;
    return failing || !status.trouble.empty() || (has_rules && (!status.held.IsEmpty() || WantsAPerson(status)));
}

int ShowStatus(const Context& context, const Options& options) {
    CRootPath root;
    const std::string directory = RootDirectory(context.root_option);
    OpenTree(root, directory);
    AskedState tree = AskForState(root, options.names, directory);
    if (!tree.trouble.empty()) PrintNote(tree.trouble);
    NoteWhatIsNotListed(root);
    const bool has_rules = HasRules(root.path);
    const auto fails = [&](const ProfileState& status) { return Fails(status, has_rules); };
    const bool any_fails = std::ranges::any_of(tree.profiles, fails);
    const bool has_profiles = !tree.profiles.empty();
    if (options.only_failed) std::erase_if(tree.profiles, std::not_fn(fails));
    const CTime now = std::time(nullptr);
    const Untold untold = UntoldReaders(root, directory);
    if (options.as_json) {
        PrintAsJson(tree, untold, has_rules, now);
    } else if (!has_profiles) {
        std::cout << Tr("There is no profile yet; add one with `tarvex profile add`.") << '\n';
    } else if (tree.profiles.empty()) {
        std::cout << Tr("None fails.") << '\n';
    } else {
        PrintTable(tree.profiles, tree.held_back, now);
        PrintSharedServers(tree.profiles);
    }
    if (!options.as_json) {
        for (const std::string& line : LinesOn(untold)) PrintWrapped(line);
    }
    if (!options.as_json && !has_rules) {
        PrintWrapped(
            Tr("The tree has no rules (no host.def): the engine's alone hold. `tarvex init --rules` adds them."));
    }
    if (tree.service == ServiceState::Silent)
        throw CommandError(kTryLater, Tr("the service that owns the tree does not answer"));
    return any_fails ? kSomethingFails : kDone;
}

}  // namespace

void AddStatusCommand(CLI::App& app, Context& context) {
    CLI::App* const status = app.add_subcommand(
        "status", Tr("Say of every profile when it last ran, how that ended, and when it is due next."));
    status->footer(Tr(
        "Counted is since the profile was made: runs, messages delivered to all their addresses, and copies that the "
        "SMTP server took in them. It ends with 1 while the last run of a profile has failed or a profile is not run, "
        "and in a tree with rules also while mail is set aside, an address is parked or a profile waits for a person; "
        "with 75 when the service that owns the tree does not answer. Where the terminal is narrow, columns are left "
        "out; --json has all."));
    auto options = std::make_shared<Options>();
    AddProfileNames(*status, options->names);
    status->add_flag("--failed", options->only_failed, Tr("Only profiles about which it would end with 1"));
    status->add_flag("--json", options->as_json, Tr("Print JSON"));
    status->callback(
        [&context, options] { context.command = [&context, options] { return ShowStatus(context, *options); }; });
}

}  // namespace tarvex::host
