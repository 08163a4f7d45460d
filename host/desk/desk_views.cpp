// What the console shows of the tree. Words come in the reader's language, beside what programs read.

#include <algorithm>
#include <ctime>
#include <set>

#include "host/alerts/untold.h"
#include "host/desk/visit.h"
#include "host/held/held.h"
#include "host/held/held_export.h"
#include "host/history/history.h"
#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/settings/keys.h"
#include "host/settings/schedule_text.h"
#include "host/settings/shared_account.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tokens/login_speaker.h"
#include "host/tree/account_text.h"
#include "host/tree/listing_json.h"
#include "host/tree/log_reader.h"
#include "host/tree/readiness.h"
#include "host/view/asked_state.h"
#include "host/view/mail_json.h"
#include "host/view/status_json.h"
#include "host/view/status_words.h"
#include "tarvex/conversion.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kProfilesAPage = 50;
constexpr std::size_t kMailsAPage = 50;
constexpr std::size_t kMostHistory = 200;
constexpr std::size_t kMostLines = 1000;
constexpr std::size_t kReasonColumns = 200;
constexpr std::size_t kHead_bytes = 8 << 10;
constexpr std::size_t kMostShown_bytes = 1 << 20;     // of a held message
constexpr std::size_t kMostLogShown_bytes = 4 << 20;  // a server's answers make the lines as long as it likes
constexpr std::size_t kMostText_bytes = 256 << 10;
constexpr std::size_t kMostTaken_bytes = std::size_t{12} << 20;  // what an answer has room for, as Base64 and the rest

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
            {"remarks", RemarksOn(state, now)}};
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

// One page of a list: the page that the question names, within what there is.
struct Page {
    Page(const Visit& visit, std::size_t count, std::size_t most)
        : pages(std::max<std::size_t>(1, (count + most - 1) / most)),
          number(static_cast<std::size_t>(
              std::clamp<std::int64_t>(visit.Number("page", 1), 1, static_cast<std::int64_t>(pages)))),
          first((number - 1) * most),
          last(std::min(count, first + most)) {}

    std::size_t pages, number, first, last;

    void AddTo(Json& answer) const {
        answer["page"] = number;
        answer["pages"] = pages;
    }
};

template <class Record>
Json JsonOfKeys(const Record& record) {
    Json keys = Json::array();
    for (const Key<Record>& key : Keys<Record>()) {
        Json choices = Json::array();
        for (const ValueWord& word : key.words) choices.push_back(word.word);
        keys.push_back({{"key", key.name},
                        {"group", Tr(key.group)},
                        {"meaning", Tr(key.meaning)},
                        {"unit", *key.unit ? Json(Tr(key.unit)) : Json()},
                        {"secret", key.type == KeyType::Password},
                        {"number", key.type == KeyType::Number},
                        {"words", std::move(choices)},
                        {"only_words", WordsAreAll(key)},
                        {"value", ShowValue(record, key)},
                        {"json", JsonValue(record, key)}});
    }
    return keys;
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

std::vector<FoundMail> FindIn(HistoryReader& reader, const Visit& visit, MailSearch search) {
    const std::string asked = visit.Text("profile");
    if (!asked.empty()) {
        search.directory = visit.ProfileCalled(asked).profile->path;
        return reader.Find(search);
    }
    if (visit.IsAdministrator()) return reader.Find(search);
    std::vector<FoundMail> all;
    for (const NamedProfile& named : visit.Visible()) {
        search.directory = named.profile->path;
        std::ranges::move(reader.Find(search), std::back_inserter(all));
    }
    std::ranges::stable_sort(all, std::ranges::greater(), &FoundMail::id);
    if (all.size() > search.most + 1) all.resize(search.most + 1);
    return all;
}

std::vector<std::string> WordsOf(const std::string& text) {
    std::vector<std::string> words;
    for (std::size_t i = 0; i < text.size() && words.size() < 20;) {
        const std::size_t end = std::min(text.find(' ', i), text.size());
        if (end > i) words.push_back(text.substr(i, end - i));
        i = end + 1;
    }
    return words;
}

Json JsonOfMail(const FoundMail& found) {
    Json json = JsonOf(found);
    for (std::size_t i = 0; i < found.mail.copies.size(); ++i)
        json["copies"][i]["says"] = Say(found.mail.copies[i].fate);
    return json;
}

// The readable text of a message that a stranger wrote: never its HTML, and no more than can be read.
std::string PlainTextOf(const CPopProfile& profile, const std::string& message) {
    const auto text = profile.TextMailOf(message, 0, 0, 1, "");
    if (!text) return {};
    const std::size_t body = text->find("\r\n\r\n");
    CString sjis = TextFromJis(body == CString::npos ? *text : text->substr(body + 4));
    std::erase(sjis, '\r');  // the ends of lines are \n here; no character of Shift-JIS has this byte
    return ShowText(sjis.substr(0, kMostText_bytes));
}

// Throws Refusal.
std::string WholeAsBase64(const CPopProfile& profile, int id) {
    const auto text = HeldStore(profile.path).Text(id, kMostTaken_bytes + 1);
    if (!text) throw Refusal{"refused", Tr("The message cannot be read.")};
    if (text->size() > kMostTaken_bytes)
        throw Refusal{"refused",
                      Tr("The message is too large for the browser: `tarvex held export` writes it to a file.")};
    return Base64Encoded(MessageIn(*text));
}

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

// What `look` reads in the history; throws CommandError where that cannot be read.
template <class Look>
auto FromHistory(const Visit& visit, const Look& look) {
    try {
        HistoryReader reader(visit.Directory());
        return look(reader);
    } catch (const DatabaseError& error) {
        throw CommandError(kCannotWrite, Tr("the history cannot be read: {0}", error.what()));
    }
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
    answer["zone"] = ShowZone();
    answer["mails"] = FromHistory(visit, [&](HistoryReader& reader) {
        Json mails = Json::array();
        const MailSearch search{{}, {}, 0, 10, profile.path};
        for (const FoundMail& mail : reader.Find(search)) mails.push_back(JsonOfMail(mail));
        return mails;
    });
    return answer;
}

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

// What became of messages: the newest, or those that have the words.
Json AnswerMails(Visit& visit) {
    const auto most = kMailsAPage;
    std::vector<FoundMail> found = FromHistory(visit, [&](HistoryReader& reader) {
        return FindIn(reader, visit, {WordsOf(visit.Text("search")), {}, 0, most});
    });
    Json answer = visit.Ok();
    answer["more"] = found.size() > most;
    if (found.size() > most) found.resize(most);
    answer["mails"] = Json::array();
    for (const FoundMail& one : found) answer["mails"].push_back(JsonOfMail(one));
    return answer;
}

Json AnswerHeld(Visit& visit) {
    const CTime now = std::time(nullptr);
    const std::string asked = visit.Text("profile");
    const std::vector<NamedProfile> chosen = asked.empty() ? visit.Visible() : std::vector{visit.ProfileCalled(asked)};
    std::vector<Json> all;
    for (const NamedProfile& named : chosen) {
        const std::string name = ShownName(visit.Root(), named.profile->path);
        for (const HeldRecord& record : HeldRecordsOf(*named.profile)) {
            Json one = JsonOf(name, record);
            one["account"] = ShowText(named.profile->setting.address);
            one["when"] = ShowTime(record.set_aside);
            one["size"] = ShowBytes(record.bytes);
            for (std::size_t i = 0; i < record.addresses.size(); ++i) {
                const CTime next = record.addresses[i].next_try;
                one["addresses"][i]["next"] = next == 0     ? Tr("when told")
                                              : next <= now ? Tr("now")
                                                            : Tr("in {0}", ShowSpan(next - now));
            }
            all.push_back(std::move(one));
        }
    }
    std::ranges::reverse(all);
    Json answer = visit.Ok();
    const Page page(visit, all.size(), kMailsAPage);
    page.AddTo(answer);
    answer["count"] = all.size();
    answer["held"] = Json::array();
    for (std::size_t i = page.first; i < page.last; ++i) answer["held"].push_back(std::move(all[i]));
    return answer;
}

// The beginning of one message, to be read.
Json AnswerHeldMail(Visit& visit) {
    const CPopProfile& profile = *visit.ProfileCalled(visit.Text("profile")).profile;
    const std::int64_t id = visit.Number("id", -1);
    for (const HeldRecord& record : HeldRecordsOf(profile)) {
        if (record.id != id) continue;
        Json answer = visit.Ok();
        if (visit.Flag("whole")) {
            answer["whole"] = WholeAsBase64(profile, record.id);
            return answer;
        }
        const auto text = HeldStore(profile.path).Text(record.id, kMostShown_bytes);
        const std::string message = text ? MessageIn(*text) : "";
        answer["mail"] = JsonOf(ShownName(visit.Root(), profile.path), record);
        answer["mail"]["when"] = ShowTime(record.set_aside);
        answer["mail"]["size"] = ShowBytes(record.bytes);
        answer["header"] = text ? Json(ShowHead(*text, kHead_bytes)) : Json();
        const CHeadlines headlines = HeadlinesOf(text ? *text : "");
        answer["subject"] = ShowText(headlines.subject);
        answer["from"] = ShowText(headlines.from);
        answer["text"] = PlainTextOf(profile, message);
        return answer;
    }
    throw Refusal{"missing", {}};
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
    answer["events"] =
        FromHistory(visit, [&](HistoryReader& reader) { return Events(reader, search, visit.IsAdministrator()); });
    return answer;
}

Json AnswerUsers(Visit& visit) {
    Json answer = visit.Ok();
    answer["users"] = Json::array();
    for (const CUser* const user : AllUsers(visit.Root())) {
        answer["users"].push_back({{"path", ShownName(visit.Root(), user->path)},
                                   {"name", ShowText(user->setting.loginname)},
                                   {"administrator", user->setting.administrator != 0},
                                   {"on", user->setting.status != 0},
                                   {"has_password", !user->setting.password.empty()},
                                   {"profiles", user->profiles.size()},
                                   {"loaded", user->setting_loaded.whole}});
    }
    return answer;
}

// Of the tree, or of what "name" names.
Json AnswerRules(Visit& visit) {
    const auto of_root = RulesOf(visit.Root().path);
    if (!of_root) throw NoRules();
    const std::string name = visit.Text("name");
    HostRules rules = *of_root;
    if (name.find('/') != std::string::npos) {
        rules = RulesOf(visit.Root().path, visit.ProfileCalled(name).profile->path).value_or(rules);
    } else if (!name.empty()) {
        rules = RulesOfUser(visit.Root().path, visit.UserCalled(name).path).value_or(rules);
    }
    Json answer = visit.Ok();
    answer["name"] = name;
    answer["keys"] = JsonOfKeys(rules);
    return answer;
}

}  // namespace tarvex::host
