// What the console shows of what was: the log of a profile, runs and changes.

#include <algorithm>
#include <functional>
#include <map>

#include "host/desk/answers/parts.h"
#include "host/history/history.h"
#include "host/history/run_words.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tree/log_reader.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostHistory = 200;
constexpr std::size_t kMostLines = 1000;
constexpr std::size_t kReasonColumns = 200;
constexpr std::size_t kMostLogShown_bytes = 4 << 20;  // a server's answers make the lines as long as it likes

Json JsonOf(const MadeEdit& edit) {
    Json keys = Json::array();
    for (const EditedKey& key : edit.keys)
        keys.push_back({{"key", key.key}, {"before", key.before}, {"after", key.after}});
    return {{"time", ShowTime(edit.made)},
            {"moment", edit.made},
            {"kind", "edit"},
            {"by", edit.by.caller.empty() ? edit.by.user : edit.by.caller},
            {"command", edit.command},
            {"name", edit.name},
            {"keys", std::move(keys)}};
}

Json JsonOf(const FoundRun& found) {
    return {{"time", ShowTime(found.run.ended)},
            {"moment", found.run.ended},
            {"kind", "run"},
            {"name", found.profile},
            {"failed", IsFailure(found.run.result.ending)},
            {"ended", HowItEnded(found.run.result, 1, kReasonColumns)}};
}

// Of the newest lines as many as a page takes.
std::size_t FirstShown(const std::vector<std::string>& lines) {
    std::size_t first = lines.size();
    for (std::size_t bytes = 0; first > 0 && lines.size() - first < kMostLines; --first) {
        bytes += lines[first - 1].size();
        if (bytes > kMostLogShown_bytes) break;
    }
    return first;
}

// The newest first, of runs and edits together. To a user nothing from before the edit that added what is asked for:
// the folder, and with it the name, may have been another's.
Json Events(HistoryReader& reader, HistorySearch search, bool is_administrator) {
    std::vector<Json> events;
    for (const MadeEdit& edit : reader.Edits(search)) {
        events.push_back(JsonOf(edit));
        if (is_administrator || edit.name != search.name || !edit.command.ends_with(" add")) continue;
        search.since = edit.made;
        break;
    }
    for (const FoundRun& run : reader.Runs(search)) events.push_back(JsonOf(run));
    std::ranges::stable_sort(events, std::ranges::greater(),
                             [](const Json& one) { return one["moment"].get<CTime>(); });
    if (events.size() > search.most) events.resize(search.most);
    return events;
}

}  // namespace

Json AnswerLog(Visit& visit) {
    const CPopProfile& profile = *visit.ProfileCalled(visit.Text("profile")).profile;
    Json answer = visit.Ok();
    answer["path"] = ShownName(visit.Root(), profile.path);
    answer["address"] = ShowText(profile.setting.address);
    answer["lines"] = Json::array();
    answer["is_on"] = profile.setting.logmode != 0;
    const auto lines = ReadLog(profile.path);
    if (!lines) return answer;
    for (std::size_t i = FirstShown(*lines); i < lines->size(); ++i) answer["lines"].push_back(ShowLogLine(*lines, i));
    return answer;
}

// Users see what was done to what is theirs.
Json AnswerHistory(Visit& visit) {
    HistorySearch search;
    search.name = visit.Text("name");
    search.most = kMostHistory;
    if (!search.name.empty() && !visit.IsAdministrator() && search.name != visit.WhoPath())
        visit.ProfileCalled(search.name);
    if (search.name.empty() && !visit.IsAdministrator()) search.name = visit.WhoPath();
    Json answer = visit.Ok();
    answer["name"] = search.name;
    answer["title"] = visit.TitleOf(search.name);
    answer["events"] = FromHistory(
        visit.Directory(), [&](HistoryReader& reader) { return Events(reader, search, visit.IsAdministrator()); });
    std::map<std::string, std::string> titles;
    for (Json& event : answer["events"]) {
        const auto name = event["name"].get<std::string>();
        const auto [title, is_new] = titles.try_emplace(name);
        if (is_new) title->second = visit.TitleOf(name);
        event["title"] = title->second;
    }
    return answer;
}

}  // namespace tarvex::host
