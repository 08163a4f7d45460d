// Prints what is in a tree, as text or JSON.

#include "host/tree/listing.h"

#include <algorithm>
#include <array>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/advice/advice.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/settings/keys.h"
#include "host/settings/schedule_text.h"
#include "host/settings/shared_account.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/process.h"
#include "host/terminal/json.h"
#include "host/terminal/table.h"
#include "host/terminal/wording.h"
#include "host/tree/account_text.h"
#include "host/tree/listing_json.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "tarvex/conversion.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMeaningColumns = 60;

template <class Record>
void AddKeys(Json& json, const Record& record) {
    for (const Key<Record>& key : Keys<Record>()) json[key.name] = JsonValue(record, key);
}

using LeavesOut = std::function<bool(const KeyInfo&)>;

// What is left of a terminal's line behind the other columns.
std::size_t ColumnsOfMeaning(const std::vector<Table::Row>& rows) {
    constexpr std::size_t kFewest = 20;
    constexpr std::size_t kGaps = 6;
    std::array<std::size_t, 3> widths{};
    for (const Table::Row& row : rows) {
        for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], Columns(row[i]));
    }
    const std::size_t others = widths[0] + widths[1] + widths[2] + kGaps;
    if (TerminalColumns() == 0) return kMeaningColumns;
    return std::clamp(TerminalColumns() - std::min(TerminalColumns(), others), kFewest, kMeaningColumns);
}

// The first line of it. The rest of a long one is in the help.
std::string Shortened(const std::string& meaning, std::size_t columns) {
    constexpr std::string_view kMore = " ...";
    if (Columns(meaning) <= columns) return meaning;
    const std::string lines = Wrapped(meaning, columns - kMore.size());
    return lines.substr(0, lines.find('\n')).append(kMore);
}

template <class Record>
void PrintKeys(const Record& record, const LeavesOut& leaves_out = {}) {
    const Table::Row headings = {Tr("KEY"), Tr("VALUE"), Tr("UNIT"), Tr("MEANING")};
    std::vector<Table::Row> rows = {headings};
    for (const Key<Record>& key : Keys<Record>()) {
        if (leaves_out && leaves_out(key)) continue;
        rows.push_back({key.name, ShowValue(record, key), *key.unit ? Tr(key.unit) : "", Tr(key.meaning)});
    }
    const std::size_t columns = ColumnsOfMeaning(rows);
    Table table(headings);
    for (std::size_t i = 1; i < rows.size(); ++i) {
        rows[i].back() = Shortened(rows[i].back(), columns);
        table.Add(std::move(rows[i]));
    }
    table.Print(std::cout);
}

Json JsonOfTerms(const CScheduleSetting& schedule) {
    Json terms = Json::array();
    for (std::size_t i = 0; i < schedule.terms.size(); ++i) {
        const CTerm& term = *schedule.terms[i];
        terms.push_back({{"number", i + 1},
                         {"on", term.status != 0},
                         {"term", WriteTerm(term)},
                         {"meaning", DescribeTerm(term)},
                         {"kind", term.kind},
                         {"start", Utf8FromText(term.start)},
                         {"end", Utf8FromText(term.end)}});
    }
    return terms;
}

void RequireLoaded(const CLoaded& loaded) {
    if (!loaded.whole) throw CommandError(kCannotWrite, WhyNotLoaded(loaded));
}

// Where the files of the object were not read.
void Add(Unread& unread, const CRootPath& root, const CString& path, const CLoaded& loaded) {
    if (loaded.whole) return;
    unread.push_back(Tr("{0} is listed with defaults: {1}", ShownName(root, path), WhyNotLoaded(loaded)));
}

// Where folders could not be seen, or not be entered.
void AddMissing(Unread& unread, const CLoaded& loaded) {
    if (!loaded.whole) unread.push_back(Tr("the list may not be whole: {0}", WhyNotLoaded(loaded)));
}

void AddMissingProfiles(Unread& unread, const CRootPath& root, const CUser* only) {
    if (!only) AddMissing(unread, root.users_loaded);
    for (const CUser* const user : AllUsers(root)) {
        if (!only || user == only) AddMissing(unread, user->profiles_loaded);
    }
}

template <class Object>
void Show(const CRootPath& root, const Object& object, Form form) {
    RequireLoaded(object.setting_loaded);
    if (form == Form::Json) return PrintJson(JsonOf(root, object));
    std::cout << ShownName(root, object.path) << "\n\n";
    PrintKeys(object.setting);
}

const char* OnOff(int status) { return status != 0 ? "on" : "off"; }

std::string Server(const CString& host, int port) {
    return host.empty() ? Tr("(none)") : ShowText(host) + ':' + std::to_string(port);
}

std::string ShortForm(const CForwardAddressSetting& setting) {
    if (setting.textonly < 0) return Tr("whole mail");
    if (setting.textonly == 0) return Tr("text mail");
    return Tr("text mail, {0} bytes", setting.textonly);
}

std::string ShortSchedule(const CScheduleSetting& schedule) {
    if (schedule.terms.empty()) return Tr("always");
    if (schedule.terms.size() > 1) return Tr("{0} terms", schedule.terms.size());
    return WriteTerm(*schedule.terms.front());
}

}  // namespace

Json JsonOf(const CRootPath& root, const CUser& user) {
    Json json = {{"path", ShownName(root, user.path)}};
    AddKeys(json, user.setting);
    json["profiles"] = user.profiles.size();
    return json;
}

Json JsonOf(const CRootPath& root, const CPopProfile& profile) {
    Json json = {{"path", ShownName(root, profile.path)}};
    AddKeys(json, profile.setting);
    json["sends_through"] = JsonOfAccount(profile);
    json["wait_seconds"] = IntervalSeconds(profile.setting.timer);
    json["forwards"] = profile.forward_addresses.size();
    return json;
}

Json JsonOf(const CRootPath& root, const CForwardAddress& forward) {
    Json json = {{"path", ShownName(root, forward.path)}};
    AddKeys(json, forward.setting);
    json["schedule"] = JsonOfTerms(forward.schedule);
    return json;
}

Unread ListUsers(const CRootPath& root, Form form) {
    Unread unread;
    AddMissing(unread, root.users_loaded);
    Json json = Json::array();
    constexpr std::size_t kAdministrator = 3;  // the column that a narrow terminal does without
    Table table({Tr("PATH"), Tr("LOGIN NAME"), Tr("STATUS"), Tr("ADMINISTRATOR"), Tr("PROFILES")});
    for (const CUser* const user : AllUsers(root)) {
        const CUserSetting& setting = user->setting;
        Add(unread, root, user->path, user->setting_loaded);
        if (form == Form::Json) json.push_back(JsonOf(root, *user));
        table.Add({ShownName(root, user->path), ShowText(setting.loginname), OnOff(setting.status),
                   setting.administrator != 0 ? Tr("yes") : Tr("no"), std::to_string(user->profiles.size())});
    }
    form == Form::Json ? PrintJson(json) : table.Print(std::cout, {TerminalColumns(), {kAdministrator}});
    return unread;
}

Unread ListProfiles(const CRootPath& root, const CUser* only, Form form) {
    Unread unread;
    AddMissingProfiles(unread, root, only);
    Json json = Json::array();
    constexpr std::size_t kPop = 3, kSmtp = 4, kForwards = 7;  // columns that a narrow terminal does without
    Table table({Tr("PATH"), Tr("NICKNAME"), Tr("ADDRESS"), "POP3", "SMTP", Tr("RUNS"), Tr("STATUS"), Tr("FORWARDS")});
    for (const auto& [user, profile] : AllProfiles(root)) {
        if (only && user != only) continue;
        const CPopProfileSetting& setting = profile->setting;
        Add(unread, root, profile->path, profile->setting_loaded);
        if (form == Form::Json) json.push_back(JsonOf(root, *profile));
        const CPopProfileSetting used = SettingsInUse(*profile).setting;
        table.Add({ShownName(root, profile->path), ShowText(setting.nickname), ShowText(setting.address),
                   Server(setting.popserver, setting.popport), Server(ServerOf(used, Protocol::Smtp), used.smtpport),
                   ShowInterval(setting.timer), OnOff(setting.status),
                   std::to_string(profile->forward_addresses.size())});
    }
    form == Form::Json ? PrintJson(json) : table.Print(std::cout, {TerminalColumns(), {kSmtp, kPop, kForwards}});
    return unread;
}

Unread ListForwards(const CRootPath& root, const CPopProfile* only, Form form) {
    Unread unread;
    if (!only) AddMissingProfiles(unread, root, nullptr);
    for (const auto& [user, profile] : AllProfiles(root)) {
        if (!only || profile == only) AddMissing(unread, profile->addresses_loaded);
    }
    Json json = Json::array();
    Table table({Tr("PATH"), Tr("NICKNAME"), Tr("ADDRESS"), Tr("GETS"), Tr("SCHEDULE"), Tr("STATUS")});
    for (const auto& [user, profile, forward] : AllForwards(root)) {
        if (only && profile != only) continue;
        const CForwardAddressSetting& setting = forward->setting;
        Add(unread, root, forward->path, forward->setting_loaded);
        Add(unread, root, forward->path, forward->schedule_loaded);
        if (form == Form::Json) json.push_back(JsonOf(root, *forward));
        table.Add({ShownName(root, forward->path), ShowText(setting.nickname), ShowText(setting.address),
                   ShortForm(setting), ShortSchedule(forward->schedule), OnOff(setting.status)});
    }
    form == Form::Json ? PrintJson(json) : table.Print(std::cout, {TerminalColumns(), {}});
    return unread;
}

void ShowUser(const CRootPath& root, std::string_view name, Form form) { Show(root, FindUser(root, name), form); }

void ShowProfile(const CRootPath& root, std::string_view name, Form form) {
    const CPopProfile& profile = *FindProfile(root, name).profile;
    Show(root, profile, form);
    if (form == Form::Json) return;
    std::cout << '\n'
              << Tr("It runs {0}.", ShowInterval(profile.setting.timer)) << '\n'
              << Tr("It sends through {0}.", ShowAccount(profile)) << '\n';
}

void ShowForward(const CRootPath& root, std::string_view name, Form form) {
    const CForwardAddress& forward = *FindForward(root, name).forward;
    RequireLoaded(forward.schedule_loaded);
    Show(root, forward, form);
    if (form == Form::Text) std::cout << '\n' << Tr("Schedule: {0}", ShortSchedule(forward.schedule)) << '\n';
}

void ListSchedule(const CRootPath& root, std::string_view name, Form form) {
    const CForwardAddress& forward = *FindForward(root, name).forward;
    RequireLoaded(forward.schedule_loaded);
    const CScheduleSetting& schedule = forward.schedule;
    if (form == Form::Json) return PrintJson(JsonOfTerms(schedule));
    if (schedule.terms.empty()) {
        std::cout << Tr("The schedule is empty: the address always takes part.") << '\n';
        return;
    }
    Table table({Tr("NUMBER"), Tr("TERM"), Tr("THE ADDRESS TAKES PART")});
    for (std::size_t i = 0; i < schedule.terms.size(); ++i) {
        const CTerm& term = *schedule.terms[i];
        table.Add({std::to_string(i + 1), WriteTerm(term), DescribeTerm(term)});
    }
    table.Print(std::cout);
}

void ShowRules(const CRootPath& root, std::string_view name, Form form) {
    const std::optional<HostRules> of_root = RulesOf(root.path);
    if (!of_root) throw NoRules();
    const CString path = name.empty() ? root.path : FindUserOrProfile(root, name);
    const bool is_user = ParentOf(path) == root.path;
    const HostRules rules = name.empty() ? *of_root
                            : is_user    ? RulesOfUser(root.path, path).value()
                                         : RulesOf(root.path, path).value();
    const auto is_of_others = [&](const KeyInfo& key) { return key.is_shared && !name.empty() && !is_user; };
    if (form == Form::Json) {
        Json json = {{"path", name.empty() ? "" : ShownName(root, path)}};
        AddKeys(json, rules);
        for (const Key<HostRules>& key : Keys<HostRules>()) {
            if (is_of_others(key)) json.erase(key.name);
        }
        return PrintJson(json);
    }
    std::cout << Tr("Rules of {0}", name.empty() ? Tr("the tree") : ShownName(root, path)) << "\n\n";
    PrintKeys(rules, is_of_others);
    std::string own;
    for (const Key<HostRules>& key : Keys<HostRules>()) {
        if (is_of_others(key)) continue;
        const bool same = std::visit([&](auto field) { return rules.*field == (*of_root).*field; }, key.field);
        if (!same) own += (own.empty() ? "" : Tr(", ")) + key.name;
    }
    if (!own.empty()) std::cout << '\n' << Tr("Not as in the tree: {0}.", own) << '\n';
}

void ShowSettings(const CAppSetting& setting, Form form) {
    if (form == Form::Text) return PrintKeys(setting);
    Json json = Json::object();
    AddKeys(json, setting);
    PrintJson(json);
}

}  // namespace tarvex::host
