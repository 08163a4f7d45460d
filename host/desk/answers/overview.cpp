// What the console shows of profiles: how they are doing, and what they are set to.

#include <algorithm>
#include <array>
#include <bitset>
#include <ctime>
#include <map>

#include "host/alerts/untold.h"
#include "host/desk/answers/parts.h"
#include "host/history/history.h"
#include "host/language/tr.h"
#include "host/settings/schedule_text.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tree/account_text.h"
#include "host/tree/listing_json.h"
#include "host/tree/readiness.h"
#include "host/tree/tree_rules.h"
#include "host/view/asked_state.h"
#include "host/view/mail_json.h"
#include "host/view/status_json.h"
#include "host/view/status_words.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kProfilesAPage = 50;

// How a profile is doing, in one word: by these the overview is sorted.
enum class Level { Failing, Waiting, Running, Well, New, Off };
constexpr std::array<const char*, 6> kLevels = {"failing", "waiting", "running", "well", "new", "off"};

Level LevelOf(const ProfileState& state) {
    const bool fails = !state.trouble.empty() || (state.history && state.history->failed_in_a_row > 0);
    if (fails && state.switched_on) return Level::Failing;
    if (WantsAPerson(state)) return Level::Waiting;
    if (state.running) return Level::Running;
    if (!state.switched_on) return Level::Off;
    return state.history ? Level::Well : Level::New;
}

Json JsonOfWords(const ProfileState& state, CTime now) {
    return {{"level", kLevels[static_cast<std::size_t>(LevelOf(state))]},
            {"last_run", LastRun(state)},
            {"ended", HowTheLastRunEnded(state)},
            {"next", NextDue(state, now)},
            {"last_good",
             !state.history || state.history->last_good == 0 ? Json() : Json(ShowTime(state.history->last_good))},
            {"remarks", NotesOn(state, now)}};
}

bool Holds(const CString& text, const std::string& wanted) {
    return Lower(ShowText(text)).find(wanted) != std::string::npos;
}

bool IsSearched(const NamedProfile& named, const std::string& wanted) {
    const CPopProfileSetting& setting = named.profile->setting;
    return wanted.empty() || Holds(setting.address, wanted) || Holds(setting.nickname, wanted) ||
           Holds(setting.popserver, wanted) || Holds(named.user->setting.loginname, wanted) ||
           std::ranges::any_of(named.profile->forward_addresses, [&](const auto& forward) {
               return Holds(forward->setting.address, wanted) || Holds(forward->setting.nickname, wanted);
           });
}

std::string Bits(const std::bitset<kSlotsADay>& day) {
    std::string bits;
    for (std::size_t slot = 0; slot < kSlotsADay; ++slot) bits += day.test(slot) ? '1' : '0';
    return bits;
}

Json JsonOfWeek(const CScheduleSetting& schedule) {
    const auto week = WeekOf(schedule);
    if (!week) return nullptr;
    Json days = Json::array();
    for (const auto& day : *week) days.push_back(Bits(day));
    return {{"days", std::move(days)}, {"whole", IsWholeWeek(schedule)}};
}

Json JsonOfForward(const Visit& visit, const CForwardAddress& forward, CTime now) {
    Json json = JsonOf(visit.Root(), forward);
    json["keys"] = JsonOfKeys(forward.setting);
    json["week"] = JsonOfWeek(forward.schedule);
    json["takes_part_now"] = forward.JudgeTakePart(now) != 0;
    json["loaded"] = forward.setting_loaded.whole && forward.schedule_loaded.whole;
    return json;
}

Json JsonOfRow(const NamedProfile& named, const ProfileState& state, CTime now) {
    Json row = JsonOfWords(state, now);
    row["path"] = state.name;
    row["address"] = state.address;
    row["nickname"] = ShowText(named.profile->setting.nickname);
    row["user"] = ShowText(named.user->setting.loginname);
    row["switched_on"] = state.switched_on;
    row["running"] = state.running.has_value();
    row["forwards"] = named.profile->forward_addresses.size();
    row["held"] = state.held.messages;
    return row;
}

}  // namespace

// All that one may see, what fails first. Counted are all; shown is what fits the search, a page of it.
Json AnswerOverview(Visit& visit) {
    const CTime now = std::time(nullptr);
    const std::vector<NamedProfile> visible = visit.Visible();
    const AskedState tree = AskForState(visit.Root(), visible, visit.Directory());
    const std::string wanted = Lower(visit.Text("search"));
    std::map<Level, std::size_t> counts;
    std::int64_t held = 0;
    std::vector<std::pair<Level, std::size_t>> shown;
    for (std::size_t i = 0; i < visible.size(); ++i) {
        const Level level = LevelOf(tree.profiles[i]);
        ++counts[level];
        held += tree.profiles[i].held.messages;
        if (IsSearched(visible[i], wanted)) shown.emplace_back(level, i);
    }
    std::ranges::stable_sort(shown, {}, &std::pair<Level, std::size_t>::first);
    Json answer = visit.Ok();
    const Page page(visit, shown.size(), kProfilesAPage);
    page.AddTo(answer);
    answer["profiles"] = Json::array();
    for (std::size_t i = page.first; i < page.last; ++i) {
        const std::size_t place = shown[i].second;
        answer["profiles"].push_back(JsonOfRow(visible[place], tree.profiles[place], now));
    }
    answer["found"] = shown.size();
    answer["all"] = visible.size();
    answer["held"] = held;
    for (std::size_t i = 0; i < kLevels.size(); ++i) answer["counts"][kLevels[i]] = counts[static_cast<Level>(i)];
    answer["trouble"] = tree.trouble;
    answer["now"] = ShowTime(now);
    answer["zone"] = ShowZone();
    answer["has_rules"] = HasRules(visit.Root().path);
    return answer;
}

// For a script that refreshes a page: only of profiles that it names.
Json AnswerState(Visit& visit) {
    const CTime now = std::time(nullptr);
    std::vector<NamedProfile> chosen;
    for (const std::string& path : visit.List("profiles")) chosen.push_back(visit.ProfileCalled(path));
    const AskedState tree = AskForState(visit.Root(), chosen, visit.Directory());
    Json answer = visit.Ok();
    answer["profiles"] = Json::array();
    for (std::size_t i = 0; i < chosen.size(); ++i)
        answer["profiles"].push_back(JsonOfRow(chosen[i], tree.profiles[i], now));
    return answer;
}

Json AnswerProfile(Visit& visit) {
    const CTime now = std::time(nullptr);
    const NamedProfile named = visit.ProfileCalled(visit.Text("profile"));
    const CPopProfile& profile = *named.profile;
    const AskedState tree = AskForState(visit.Root(), std::vector{named}, visit.Directory());
    Json answer = visit.Ok();
    Json& json = answer["profile"] = JsonOfRow(named, tree.profiles.front(), now);
    json["state"] = JsonOf(tree, tree.profiles.front(), std::vector<UntoldReader>(), HasRules(visit.Root().path), now);
    json["keys"] = JsonOfKeys(profile.setting);
    json["runs"] = ShowInterval(profile.setting.timer);
    json["sends_through"] = ShowAccount(profile);
    json["unreadable"] = WhyNotLoaded(profile);
    json["addresses"] = Json::array();
    for (const auto& forward : profile.forward_addresses)
        json["addresses"].push_back(JsonOfForward(visit, *forward, now));
    for (const HeldRecord& record : HeldRecordsOf(profile))
        if (record.damage.empty()) json["newest_held"] = record.id;
    answer["zone"] = ShowZone();
    answer["mails"] = FromHistory(visit.Directory(), [&](HistoryReader& reader) {
        Json mails = Json::array();
        const MailSearch search{{}, {}, 0, 10, profile.path};
        for (const FoundMail& mail : reader.Find(search)) mails.push_back(JsonOfMail(mail));
        return mails;
    });
    return answer;
}

}  // namespace tarvex::host
