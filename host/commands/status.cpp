// `tarvex status`: how every profile is doing, from its settings and its log.

#include <algorithm>
#include <ctime>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "host/commands/commands.h"
#include "host/commands/profile_arguments.h"
#include "host/service/service_connection.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/json.h"
#include "host/terminal/table.h"
#include "host/terminal/wording.h"
#include "host/tree/log_reader.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/tree_root.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kReasonWidth = 60;

struct Status {
    std::string name;
    std::string address;
    bool switched_on = false;
    bool has_log = false;  // switched on
    CTime last_due = 0;
    CTime next_due = 0;
    std::optional<RunNow> running;  // by a service
    std::optional<LoggedRun> last;
    std::string trouble;  // why it does not run, as far as the log cannot tell
    int failed_in_a_row = 0;
    std::int64_t runs = 0;
    std::int64_t failed = 0;
    std::int64_t fetched = 0;
    std::int64_t sent = 0;
};

Status StatusOf(const CRootPath& root, const CPopProfile& profile) {
    Status status;
    status.name = ShownName(root, profile.path);
    status.address = ShowText(profile.setting.address);
    status.switched_on = profile.setting.status != 0;
    status.has_log = profile.setting.logmode != 0;
    status.last_due = profile.setting.lasttime;
    status.next_due = profile.NextDue();
    if (const std::string why = WhyUnreadable(profile); !why.empty()) status.trouble = "left out, " + why;
    for (const LoggedRun& run : RunsIn(ReadLog(profile.path).value_or(std::vector<std::string>()))) {
        const bool failed = run.ending == Ending::Failed;
        status.failed_in_a_row = failed ? status.failed_in_a_row + 1 : 0;
        status.failed += failed ? 1 : 0;
        status.fetched += run.fetched;
        status.sent += run.sent;
        ++status.runs;
        status.last = run;
    }
    return status;
}

std::string HowItEnded(const Status& status) {
    if (!status.trouble.empty()) return "see below";
    if (!status.last) return status.has_log ? "" : "its log is off";
    return HowItEnded(*status.last, status.failed_in_a_row, kReasonWidth);
}

std::string LastRun(const Status& status) {
    if (!status.last) return "never";
    return status.last->start ? ShowTime(*status.last->start) : "?";
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
    Table table(
        {"PROFILE", "ADDRESS", "LAST RUN", "NEXT DUE", "RUNS", "FAILED", "FETCHED", "SENT", "HOW THE LAST RUN ENDED"});
    for (const Status& status : all) {
        table.Add({status.name, status.address, LastRun(status), NextDue(status, now), std::to_string(status.runs),
                   std::to_string(status.failed), std::to_string(status.fetched), std::to_string(status.sent),
                   HowItEnded(status)});
    }
    table.Print(std::cout);
    for (const Status& status : all) {
        if (!status.trouble.empty()) std::cout << status.name << ": " << status.trouble << '\n';
        if (!status.switched_on || status.last_due <= now || status.next_due <= now) continue;
        std::cout << status.name << " was last due at " << ShowTime(status.last_due)
                  << ", which is still to come: was the clock wrong? `tarvex profile set " << status.name
                  << " --lasttime never` makes it due.\n";
    }
}

const char* Word(Ending ending) {
    switch (ending) {
        case Ending::Forwarded:
            return "forwarded";
        case Ending::NothingNew:
            return "nothing new";
        case Ending::NobodyTook:
            return "no address took part";
        case Ending::Failed:
            break;
    }
    return "failed";
}

Json JsonOf(const std::optional<RunNow>& run) {
    if (!run) return {};
    return {{"bytes_received", run->bytes_received},
            {"bytes_sent", run->bytes_sent},
            {"messages_to_fetch", run->messages_to_fetch},
            {"messages_fetched", run->messages_fetched},
            {"messages_delivered", run->messages_delivered}};
}

void PrintAsJson(const std::vector<Status>& all, CTime now) {
    Json list = Json::array();
    for (const Status& status : all) {
        Json entry;
        entry["path"] = status.name;
        entry["address"] = status.address;
        entry["switched_on"] = status.switched_on;
        entry["log"] = status.has_log;
        entry["due"] = status.switched_on && status.next_due <= now;
        entry["next_due"] = status.switched_on && status.next_due > now ? Json(ShowIsoTime(status.next_due)) : Json();
        entry["running"] = JsonOf(status.running);
        entry["last_run"] = status.last && status.last->start ? Json(ShowIsoTime(*status.last->start)) : Json();
        entry["ended"] = status.last ? Json(Word(status.last->ending)) : Json();
        entry["reason"] =
            status.last && status.last->ending == Ending::Failed ? Json(Utf8FromText(status.last->reason)) : Json();
        entry["failed_in_a_row"] = status.failed_in_a_row;
        entry["trouble"] = status.trouble.empty() ? Json() : Json(status.trouble);
        entry["runs"] = status.runs;
        entry["failed"] = status.failed;
        entry["fetched"] = status.fetched;
        entry["sent"] = status.sent;
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
        if (trouble != report.troubles.end()) status.trouble = trouble->second;
    }
}

int ShowStatus(const Context& context, const std::vector<std::string>& names, bool as_json) {
    CRootPath root;
    const std::string directory = RootDirectory(context.root_option);
    OpenTree(root, directory);
    std::vector<Status> all;
    for (const NamedProfile& named : ChosenProfiles(root, names)) all.push_back(StatusOf(root, *named.profile));
    AddReport(directory, all);
    const CTime now = std::time(nullptr);
    if (as_json) {
        PrintAsJson(all, now);
    } else if (all.empty()) {
        std::cout << "There is no profile yet; add one with `tarvex profile add`.\n";
    } else {
        PrintTable(all, now);
    }
    return kDone;
}

}  // namespace

void AddStatusCommand(CLI::App& app, Context& context) {
    AddReadOnlyCommand(
        app, context, "status", "Say of every profile when it last ran, how that ended, and when it is due next.",
        ShowStatus,
        "What is counted is what the logs still hold: messages fetched, and copies that the SMTP server took.");
}

}  // namespace tarvex::host
