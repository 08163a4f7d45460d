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
#include "host/commands/look/asked_state.h"
#include "host/commands/look/status_words.h"
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
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kReasonWidth = 60;
// Columns of the table that a narrow terminal can do without, by their places.
constexpr std::size_t kAddress = 1;
constexpr std::size_t kRuns = 4;
constexpr std::size_t kFailed = 5;
constexpr std::size_t kDelivered = 6;
constexpr std::size_t kCopies = 7;

std::string HowTheLastRunEnded(const ProfileState& status) {
    if (!status.trouble.empty()) return Tr("see below");
    if (!status.history) return status.ran_unrecorded ? Tr("no record yet") : "";
    return HowItEnded(status.history->last.result, status.history->failed_in_a_row, kReasonWidth);
}

std::string LastRun(const ProfileState& status) {
    if (status.history) return ShowTime(status.history->last.started);
    return status.ran_unrecorded ? ShowTime(status.last_due) : Tr("never");
}

std::string NextDue(const ProfileState& status, CTime now) {
    if (status.running) {
        const RunNow& run = *status.running;
        return Tr("running: fetched {0} of {1}, delivered {2}", run.messages_fetched, run.messages_to_fetch,
                  run.messages_delivered);
    }
    if (!status.switched_on) return Tr("switched off");
    return status.next_due <= now ? Tr("now") : Tr("in {0}", ShowSpan(status.next_due - now));
}

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

Json JsonOfMoment(CTime moment) { return moment == 0 ? Json() : Json(ShowIsoTime(moment)); }

// What ended the last run, with everything that is known of it.
Json JsonOfFailure(const CRunResult& result) {
    const CRunFailure* const failure = FailureOf(result);
    if (!failure) return {};
    return {{"conversation", failure == &result.mailbox ? "mailbox" : "delivery"},
            {"stage", Word(failure->stage)},
            {"class", Word(failure->failure_class)},
            {"reply", Utf8OfServerText(failure->reply)},
            {"reason", Utf8OfServerText(failure->reason)},
            {"id", Utf8FromText(failure->uidl)},
            {"sender", Utf8FromText(failure->sender)},
            {"recipient", Utf8FromText(failure->recipient)}};
}

void AddHistory(Json& entry, const ProfileHistory& history) {
    const CRunResult& last = history.last.result;
    entry["last_run"] = JsonOfMoment(history.last.started);
    entry["ended"] = history.runs == 0 ? Json() : Json(Word(last.ending));
    entry["reason"] = IsFailure(last.ending) && history.runs > 0 ? Json(Utf8OfServerText(ReasonOf(last))) : Json();
    entry["failure"] = JsonOfFailure(last);
    entry["failed_in_a_row"] = history.failed_in_a_row;
    entry["failing_since"] = JsonOfMoment(history.failing_since);
    entry["last_good_run"] = JsonOfMoment(history.last_good);
    entry["runs"] = history.runs;
    entry["failed"] = history.failed;
    entry["fetched"] = history.fetched;
    entry["not_fetched"] = history.not_fetched;
    entry["delivered"] = history.delivered;
    entry["copies"] = history.copies;
}

Json JsonOf(const std::optional<RunNow>& run) {
    if (!run) return {};
    return {{"bytes_received", run->bytes_received},
            {"bytes_sent", run->bytes_sent},
            {"messages_to_fetch", run->messages_to_fetch},
            {"messages_fetched", run->messages_fetched},
            {"messages_delivered", run->messages_delivered}};
}

Json JsonOf(const std::optional<Blocking>& blocking) {
    if (!blocking) return {};
    return {{"rule", blocking->rule.empty() ? Json() : Json(blocking->rule)},
            {"message", blocking->message.empty() ? Json() : Json(Utf8OfServerText(blocking->message))},
            {"until", JsonOfMoment(blocking->until)}};
}

Json JsonOfRemembered(const ProfileState& status) {
    Json json = Json::object();
    for (const auto& [matter, name, sentence] : ToldMatters()) {
        json[name] = Json::array();
        const auto notes = status.remembered.find(matter);
        if (notes == status.remembered.end()) continue;
        for (const auto& [subject, note] : notes->second) {
            json[name].push_back({{"subject", Utf8OfServerText(subject)},
                                  {"count", note.count},
                                  {"since", JsonOfMoment(note.since)},
                                  {"last", JsonOfMoment(note.last)},
                                  {"next", JsonOfMoment(note.next)},
                                  {"words", Utf8OfServerText(note.words)}});
        }
    }
    return json;
}

using Untold = std::map<std::string, std::vector<UntoldReader>>;

Json JsonOfUntold(const Untold& untold, const std::string& profile) {
    Json list = Json::array();
    const auto readers = untold.find(profile);
    if (readers == untold.end()) return list;
    for (const auto& [reader, alert] : readers->second) {
        list.push_back({{"to", reader.Name()},
                        {"since", JsonOfMoment(alert.since)},
                        {"tries", alert.tries},
                        {"next_try", JsonOfMoment(alert.next_try)},
                        {"words", alert.words}});
    }
    return list;
}

Json JsonOfBlocking(const AskedState& tree, const ProfileState& status, CTime now) {
    const bool is_old = !tree.held_back.empty() && status.trouble == tree.held_back;
    return JsonOf(is_old ? Blocking{"generation", {}, 0} : WhatBlocks(status, now));
}

void PrintAsJson(const AskedState& tree, const Untold& untold, bool has_rules, CTime now) {
    Json list = Json::array();
    for (const ProfileState& status : tree.profiles) {
        Json entry;
        entry["path"] = status.name;
        entry["address"] = status.address;
        entry["switched_on"] = status.switched_on;
        entry["log"] = status.has_log;
        entry["rules"] = has_rules;
        entry["sends_through"] = status.sends_through;
        entry["due"] = status.switched_on && status.next_due <= now;
        entry["next_due"] = status.switched_on && status.next_due > now ? Json(ShowIsoTime(status.next_due)) : Json();
        entry["next_try"] = JsonOfMoment(NextTry(status, now).value_or(0));
        entry["running"] = JsonOf(status.running);
        AddHistory(entry, status.history.value_or(ProfileHistory()));
        entry["held"] = {{"messages", status.held.messages},
                         {"copies", status.held.copies},
                         {"damaged", status.held.damaged},
                         {"bytes", status.held.bytes},
                         {"next_try", JsonOfMoment(status.held.next_try)}};
        entry["blocked_by"] = JsonOfBlocking(tree, status, now);
        entry["remembered"] = JsonOfRemembered(status);
        entry["wants_login"] = status.wants_login.empty() ? Json() : Json(status.wants_login);
        entry["clear_login"] = !status.clear_login.empty();
        entry["alerts_failing"] = JsonOfUntold(untold, status.name);
        entry["trouble"] = status.trouble.empty() ? Json() : Json(status.trouble);
        list.push_back(std::move(entry));
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
