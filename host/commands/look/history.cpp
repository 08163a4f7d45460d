// `tarvex history`: who changed what, and what the runs did.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/commands/arguments/usage.h"
#include "host/commands/commands.h"
#include "host/history/history.h"
#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/settings/keys.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/json.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kReasonColumns = 120;
constexpr std::size_t kValueColumns = 60;

struct Options {
    std::string name;
    std::string since;
    std::size_t count = 20;
    bool edits = false;
    bool runs = false;
    bool as_json = false;
};

// What happened, by its moment: as a person reads it, and as JSON.
struct Event {
    CTime moment = 0;
    std::string text;
    Json json;
};

std::string Show(const EditedBy& by) {
    const std::string user = by.user.empty() ? Tr("somebody") : ShowUtf8Text(by.user);
    return by.caller.empty() ? user : Tr("{0} (as {1})", ShowUtf8Text(by.caller), user);
}

std::string Show(const EditedKey& key) {
    const auto shown = [](const std::string& value) { return '"' + OneLineOfUtf8(value, kValueColumns) + '"'; };
    std::string text = "    " + ShowUtf8Text(key.key);
    // Of a secret there is no value, and of what is new none before.
    if (key.before.empty()) return text + ": " + OneLineOfUtf8(key.after, kValueColumns) + '\n';
    return text + ": " + shown(key.before) + " -> " + shown(key.after) + '\n';
}

Event EventOf(const MadeEdit& edit) {
    Event event{edit.made, ShowTime(edit.made) + "  " + Show(edit.by) + ": " + edit.command, {}};
    if (!edit.name.empty()) event.text += ' ' + ShowUtf8Text(edit.name);
    event.text += '\n';
    Json keys = Json::array();
    for (const EditedKey& key : edit.keys) {
        event.text += Show(key);
        keys.push_back({{"key", key.key}, {"before", key.before}, {"after", key.after}});
    }
    event.json = {{"time", ShowIsoTime(edit.made)},
                  {"kind", "edit"},
                  {"uid", edit.by.uid < 0 ? Json() : Json(edit.by.uid)},
                  {"user", edit.by.user},
                  {"caller", edit.by.caller},
                  {"command", edit.command},
                  {"name", edit.name},
                  {"keys", std::move(keys)}};
    return event;
}

Event EventOf(const FoundRun& found) {
    const PastRun& run = found.run;
    const std::string ended = HowItEnded(run.result, 1, kReasonColumns);
    Json json = {{"time", ShowIsoTime(run.ended)},
                 {"kind", "run"},
                 {"name", found.profile},
                 {"started", ShowIsoTime(run.started)},
                 {"result", Word(run.result.ending)},
                 {"failed", IsFailure(run.result.ending)},
                 {"reason", Utf8OfServerText(ReasonOf(run.result))},
                 {"fetched", run.result.messages_fetched},
                 {"not_fetched", run.result.messages_not_fetched},
                 {"delivered", run.result.messages_delivered},
                 {"copies", run.result.copies},
                 {"set_aside", run.result.copies_set_aside}};
    return {run.ended, ShowTime(run.ended) + "  " + found.profile + ": " + ended + '\n', std::move(json)};
}

// What was removed is still called by its path.
std::string PathOf(const CRootPath& root, const std::string& name) {
    if (name.empty()) return {};
    try {
        return ShownName(root, FindUserOrProfile(root, name));
    } catch (const CommandError&) {
    }
    try {
        return ShownName(root, FindForward(root, name).forward->path);
    } catch (const CommandError&) {
        return name;
    }
}

std::vector<Event> Events(const std::string& directory, const HistorySearch& search, const Options& options) {
    std::vector<Event> events = FromHistory(directory, [&](HistoryReader& reader) {
        std::vector<Event> found;
        if (!options.runs)
            for (const MadeEdit& edit : reader.Edits(search)) found.push_back(EventOf(edit));
        if (!options.edits)
            for (const FoundRun& run : reader.Runs(search)) found.push_back(EventOf(run));
        return found;
    });
    std::ranges::stable_sort(events, std::ranges::greater(), &Event::moment);
    if (events.size() > search.most) events.resize(search.most);
    return events;
}

int ShowHistory(const Context& context, const Options& options) {
    CRootPath root;
    const std::string directory = RootDirectory(context.root_option);
    OpenTree(root, directory);
    HistorySearch search{PathOf(root, options.name), 0, options.count};
    if (!options.since.empty()) search.since = ParseMoment(options.since);
    const std::vector<Event> events = Events(directory, search, options);
    if (options.as_json) {
        Json list = Json::array();
        for (const Event& event : events) list.push_back(event.json);
        PrintJson(list);
    } else {
        for (const Event& event : events) std::cout << event.text;
        if (events.empty()) std::cout << Tr("Nothing of the kind is remembered.\n");
    }
    return kDone;
}

}  // namespace

void AddHistoryCommand(CLI::App& app, Context& context) {
    CLI::App* const history = app.add_subcommand("history", Tr("Say who changed what, and what the runs did."));
    history->footer(
        Tr("The newest comes first. Runs that found nothing new are not shown. Of passwords it is remembered that they "
           "were changed, and no more."));
    auto options = std::make_shared<Options>();
    history->add_option("NAME", options->name, Tr("User, profile or forwarding address; without it the whole tree"))
        ->option_text(" ");
    auto* const edits = history->add_flag("--edits", options->edits, Tr("Only changes"));
    history->add_flag("--runs", options->runs, Tr("Only runs"))->excludes(edits);
    history->add_option("--since", options->since, Tr("Only since this moment: \"2026-12-24 18:00\""))
        ->type_name("MOMENT");
    history->add_option("-n,--count", options->count, Tr("At most N (20)"))
        ->check(WholeNumber(1, 1'000'000))
        ->type_name("N");
    history->add_flag("--json", options->as_json, Tr("Print JSON"));
    history->callback(
        [&context, options] { context.command = [&context, options] { return ShowHistory(context, *options); }; });
}

}  // namespace tarvex::host
