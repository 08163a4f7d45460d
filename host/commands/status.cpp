// `tarvex status`: how every profile is doing, from its settings and the history of its runs.

#include <algorithm>
#include <array>
#include <ctime>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/commands/arguments/profile_arguments.h"
#include "host/commands/arguments/submit.h"
#include "host/commands/commands.h"
#include "host/held/held_work.h"
#include "host/history/history.h"
#include "host/history/run_words.h"
#include "host/memory/memory.h"
#include "host/service/service_connection.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/json.h"
#include "host/terminal/table.h"
#include "host/terminal/wording.h"
#include "host/tokens/profile_tokens.h"
#include "host/tree/account_text.h"
#include "host/tree/clear_login.h"
#include "host/tree/log_reader.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/tree_root.h"
#include "host/tree/tree_rules.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kReasonWidth = 60;
constexpr std::size_t kWordsWidth = 200;

struct Status {
    std::string name;
    std::string address;
    bool switched_on = false;
    bool has_log = false;         // switched on
    bool ran_unrecorded = false;  // before there was a history
    CTime last_due = 0;
    CTime next_due = 0;
    std::optional<RunNow> running;  // by a service
    std::optional<ProfileHistory> history;
    HeldCount held;
    std::map<Matter, std::map<CString, Note>> remembered;  // in a tree with rules
    Json sends_through;                                    // see JsonOfAccount
    std::string shared_server;                             // the same in words, where the account is a shared one
    std::string wants_login;                               // why no run begins before `tarvex login`
    std::string clear_login;                               // the password goes over the network in clear
    std::string trouble;                                   // why it is not run, or what of its last run is not on disk
};

std::string WhyWantsLogin(const CRootPath& root, const CPopProfile& profile) {
    try {
        const std::optional<HostRules> rules = RulesOf(profile);
        return rules ? WhyNoToken(AccessTokens(root.path), *rules, profile) : "";
    } catch (const CommandError&) {
        return {};  // that the rules cannot be read is said elsewhere
    }
}

Status StatusOf(const CRootPath& root, const CUser& user, const CPopProfile& profile, HistoryReader* reader) {
    Status status;
    status.name = ShownName(root, profile.path);
    status.address = ShowText(profile.setting.address);
    status.switched_on = IsSwitchedOn(user, profile);
    status.has_log = profile.setting.logmode != 0;
    status.last_due = profile.setting.lasttime;
    status.next_due = profile.NextDue();
    status.held = CountHeld(profile);
    status.sends_through = JsonOfAccount(profile);
    if (!WhereAccountIsSet(profile).empty()) status.shared_server = ShowAccount(profile);
    status.clear_login = NoteOnClearLogin(profile, status.name);
    status.wants_login = WhyWantsLogin(root, profile);
    if (reader) status.history = reader->Of(profile.path);
    status.ran_unrecorded = !status.history && ReadLog(profile.path).has_value();
    if (const std::string why = WhyUnreadable(profile); !why.empty()) {
        status.trouble = "left out, " + why;
    } else if (status.history) {
        status.trouble = WhatIsNotSaved(status.history->last.result);
    }
    return status;
}

// ---- what the rules remember

struct MatterWords {
    Matter matter;
    const char* json;
    const char* sentence;  // behind the subject
};

constexpr std::array kTold = {
    MatterWords{Matter::Waiting, "waiting", "waits, because its ids cannot be trusted"},
    MatterWords{Matter::Parked, "parked", " is parked, its recipient was refused"},
    MatterWords{Matter::Bouncing, "bouncing", " bounces, delivery reports come for it"},
    MatterWords{Matter::NotFetched, "not_fetched", " cannot be fetched"},
    MatterWords{Matter::NotDeleted, "not_deleted", " cannot be deleted on the server"},
    MatterWords{Matter::Login, "login_failing", "its logins fail"},
    MatterWords{Matter::Left, "left_on_server",
                "reports or mail of loops stay on the server, there is no room in held/"},
    MatterWords{Matter::SmtpLogin, "smtp_login_failing", "its logins at the SMTP server fail"},
};

void AddRemembered(const CRootPath& root, const std::string& directory, const std::vector<NamedProfile>& profiles,
                   std::vector<Status>& all, CTime now) {
    if (!HasRules(root.path)) return;
    try {
        RuleMemoryReader reader(directory);
        for (std::size_t i = 0; i < all.size(); ++i) {
            for (const MatterWords& told : kTold) {
                all[i].remembered[told.matter] = reader.Notes(profiles[i].profile->path, told.matter);
            }
            std::erase_if(all[i].remembered[Matter::Bouncing],
                          [now](const auto& one) { return one.second.last + kBouncesKept < now; });
        }
    } catch (const DatabaseError& error) {
        PrintNote(std::string("what the rules remember cannot be read: ") + error.what());
    }
}

void PrintRemembered(const Status& status, CTime now) {
    for (const MatterWords& told : kTold) {
        const auto notes = status.remembered.find(told.matter);
        if (notes == status.remembered.end()) continue;
        for (const auto& [subject, note] : notes->second) {
            const bool is_id = told.matter == Matter::NotFetched || told.matter == Matter::NotDeleted;
            std::cout << status.name << ": " << (is_id ? "message " : "") << ShowText(subject) << told.sentence
                      << ", since " << ShowTime(note.since);
            if (note.next > now) std::cout << ", not tried before " << ShowTime(note.next);
            if (!note.words.empty()) std::cout << ": " << OneLine(note.words, kWordsWidth);
            if (told.matter == Matter::Waiting)
                std::cout << "; `tarvex accept " << status.name << " --send` sends it, `--skip` does not";
            std::cout << '\n';
        }
    }
}

// A person has to do something about it.
bool WantsAPerson(const Status& status) {
    return !status.wants_login.empty() || std::ranges::any_of(status.remembered, [](const auto& of) {
        return (of.first == Matter::Waiting || of.first == Matter::Parked) && !of.second.empty();
    });
}

std::string HowTheLastRunEnded(const Status& status) {
    if (!status.trouble.empty()) return "see below";
    if (!status.history) return status.ran_unrecorded ? "no record yet" : "";
    return HowItEnded(status.history->last.result, status.history->failed_in_a_row, kReasonWidth);
}

// The table has room for the beginning of a long one.
std::string ReasonThatWasCut(const Status& status) {
    if (!status.trouble.empty() || !status.history || !IsFailure(status.history->last.result.ending)) return {};
    const std::string reason = ReasonOf(status.history->last.result);
    return OneLine(reason, kReasonWidth) == OneLine(reason, kWordsWidth) ? "" : OneLine(reason, kWordsWidth);
}

std::string LastRun(const Status& status) {
    if (status.history) return ShowTime(status.history->last.started);
    return status.ran_unrecorded ? ShowTime(status.last_due) : "never";
}

std::string NextDue(const Status& status, CTime now) {
    if (status.running) {
        const RunNow& run = *status.running;
        return "running: fetched " + std::to_string(run.messages_fetched) + " of " +
               std::to_string(run.messages_to_fetch) + ", delivered " + std::to_string(run.messages_delivered);
    }
    if (!status.switched_on) return "switched off";
    return status.next_due <= now ? "now" : "in " + ShowSpan(status.next_due - now);
}

void PrintTable(const std::vector<Status>& all, CTime now) {
    Table table({"PROFILE", "ADDRESS", "LAST RUN", "NEXT DUE", "RUNS", "FAILED", "DELIVERED", "COPIES",
                 "HOW THE LAST RUN ENDED"});
    for (const Status& status : all) {
        const ProfileHistory history = status.history.value_or(ProfileHistory());
        table.Add({status.name, status.address, LastRun(status), NextDue(status, now), std::to_string(history.runs),
                   std::to_string(history.failed), std::to_string(history.delivered), std::to_string(history.copies),
                   HowTheLastRunEnded(status)});
    }
    table.Print(std::cout);
    for (const Status& status : all) {
        if (!status.trouble.empty()) std::cout << status.name << ": " << status.trouble << '\n';
        if (const std::string reason = ReasonThatWasCut(status); !reason.empty())
            std::cout << status.name << ": failed: " << reason << '\n';
        if (!status.held.IsEmpty()) {
            std::cout << status.name << ": " << ShowHeld(status.held) << "; `tarvex held list " << status.name
                      << "` shows why\n";
        }
        PrintRemembered(status, now);
        if (!status.wants_login.empty()) {
            std::cout << status.name << ": waits for `tarvex login " << status.name << "`: " << status.wants_login
                      << '\n';
        }
        if (!status.clear_login.empty()) std::cout << status.name << ": " << status.clear_login << '\n';
        if (!status.switched_on || status.last_due <= now || status.next_due <= now) continue;
        std::cout << status.name << " was last due at " << ShowTime(status.last_due)
                  << ", which is still to come: was the clock wrong? `tarvex profile set " << status.name
                  << " --lasttime never` makes it due.\n";
    }
}

// One line for each shared account.
void PrintSharedServers(const std::vector<Status>& all) {
    std::map<std::string, std::int64_t> profiles;
    for (const Status& status : all) {
        if (!status.shared_server.empty()) ++profiles[status.shared_server];
    }
    for (const auto& [server, count] : profiles) {
        std::cout << ShowCount(count, "profile") << (count == 1 ? " sends" : " send") << " through " << server << ".\n";
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

Json JsonOfRemembered(const Status& status) {
    Json json = Json::object();
    for (const auto& [matter, name, sentence] : kTold) {
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

void PrintAsJson(const std::vector<Status>& all, bool has_rules, CTime now) {
    Json list = Json::array();
    for (const Status& status : all) {
        Json entry;
        entry["path"] = status.name;
        entry["address"] = status.address;
        entry["switched_on"] = status.switched_on;
        entry["log"] = status.has_log;
        entry["rules"] = has_rules;
        entry["sends_through"] = status.sends_through;
        entry["due"] = status.switched_on && status.next_due <= now;
        entry["next_due"] = status.switched_on && status.next_due > now ? Json(ShowIsoTime(status.next_due)) : Json();
        entry["running"] = JsonOf(status.running);
        AddHistory(entry, status.history.value_or(ProfileHistory()));
        entry["held"] = {{"messages", status.held.messages},
                         {"copies", status.held.copies},
                         {"damaged", status.held.damaged},
                         {"bytes", status.held.bytes}};
        entry["remembered"] = JsonOfRemembered(status);
        entry["wants_login"] = status.wants_login.empty() ? Json() : Json(status.wants_login);
        entry["clear_login"] = !status.clear_login.empty();
        entry["trouble"] = status.trouble.empty() ? Json() : Json(status.trouble);
        list.push_back(std::move(entry));
    }
    PrintJson(list);
}

// What the service that owns the tree is doing, if there is one that tells.
void AddReport(const std::string& directory, std::vector<Status>& all) {
    ServiceReport report;
    try {
        auto service = ServiceConnection::Try(directory);
        if (!service) return;
        report = service->Report();
    } catch (const CommandError&) {
        return;  // the rest is worth showing
    }
    for (Status& status : all) {
        const auto run = std::ranges::find(report.runs, status.name, &RunNow::profile);
        if (run != report.runs.end()) status.running = *run;
        const auto trouble = report.troubles.find(status.name);
        if (trouble == report.troubles.end()) continue;
        status.trouble = trouble->second;
        const std::string unsaved = status.history ? WhatIsNotSaved(status.history->last.result) : "";
        if (!unsaved.empty()) status.trouble += " (" + unsaved + ')';
    }
}

// Also without the history, where that cannot be read.
std::vector<Status> StatusesOf(const CRootPath& root, const std::vector<std::string>& names,
                               const std::string& directory) {
    const auto read = [&](HistoryReader* reader) {
        std::vector<Status> all;
        for (const NamedProfile& named : ChosenProfiles(root, names)) {
            all.push_back(StatusOf(root, *named.user, *named.profile, reader));
        }
        return all;
    };
    try {
        HistoryReader reader(directory);
        return read(&reader);
    } catch (const DatabaseError& error) {
        PrintNote(std::string("the history of runs cannot be read: ") + error.what());
        return read(nullptr);
    }
}

int ShowStatus(const Context& context, const std::vector<std::string>& names, bool as_json) {
    CRootPath root;
    const std::string directory = RootDirectory(context.root_option);
    OpenTree(root, directory);
    std::vector<Status> all = StatusesOf(root, names, directory);
    AddReport(directory, all);
    const CTime now = std::time(nullptr);
    AddRemembered(root, directory, ChosenProfiles(root, names), all, now);
    NoteWhatIsNotListed(root);
    if (as_json) {
        PrintAsJson(all, HasRules(directory), now);
    } else if (all.empty()) {
        std::cout << "There is no profile yet; add one with `tarvex profile add`.\n";
    } else {
        PrintTable(all, now);
        PrintSharedServers(all);
    }
    if (!as_json && !HasRules(directory)) {
        std::cout << "The tree has no rules (no host.def): the engine's alone hold. `tarvex init --rules` adds them.\n";
    }
    const bool not_all_sent =
        std::ranges::any_of(all, [](const Status& status) { return !status.held.IsEmpty() || WantsAPerson(status); });
    return not_all_sent && HasRules(directory) ? kNotAllSent : kDone;
}

}  // namespace

void AddStatusCommand(CLI::App& app, Context& context) {
    AddReadOnlyCommand(app, context, "status",
                       "Say of every profile when it last ran, how that ended, and when it is due next.", ShowStatus,
                       "Counted is since the profile was made: runs, messages delivered to all their addresses, and "
                       "copies that the SMTP server took in them. In a tree with rules it ends with 1 "
                       "while mail is set aside, an address is parked or a profile waits for `tarvex accept`.");
}

}  // namespace tarvex::host
