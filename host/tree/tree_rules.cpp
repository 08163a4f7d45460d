// Applies the rules of a tree to what was loaded.

#include "host/tree/tree_rules.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/settings/settings_sections.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/durable_files.h"
#include "host/system/paths.h"
#include "host/tree/names.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

template <class Children>
void Order(Children& children) {
    std::ranges::stable_sort(children,
                             [](const auto& left, const auto& right) { return NaturalLess(left->path, right->path); });
}

// An editor may have been writing the file while it was loaded: it counts as cut short, too, when it has the key by
// now.
bool IsCutShort(const CString& path, std::span<const std::string_view> keys, std::string_view needed_key) {
    try {
        const std::optional<std::string> text = ReadWholeFile(path);
        if (!text) return false;
        const SettingsSections file(*text);
        const bool has_key = std::ranges::any_of(keys, [&file](std::string_view key) { return file.HasHeader(key); });
        return !has_key || (!needed_key.empty() && file.Find(needed_key) != nullptr);
    } catch (const CommandError&) {
        return false;  // the engine has said so
    }
}

template <class Record>
std::vector<std::string_view> KeyNames() {
    std::vector<std::string_view> names = {"version"};
    for (const Key<Record>& key : Keys<Record>()) names.emplace_back(key.name);
    return names;
}

void Mark(CLoaded& loaded, const CString& path) {
    if (loaded.whole) loaded = {false, path, Marked("it holds no key: it was cut short")};
}

// What a settings file with keys never leaves like this is all that has to be looked at again.
void MarkCutShort(CPopProfile& profile) {
    const CString file = profile.path + "\\popprofile.def";
    const bool is_bare = profile.setting.popserver.empty() && profile.setting.popuser.empty();
    if (is_bare && IsCutShort(file, KeyNames<CPopProfileSetting>(), "popserver")) Mark(profile.setting_loaded, file);
}

void MarkCutShort(CForwardAddress& forward) {
    const CString file = forward.path + "\\forwardaddress.def";
    if (!HasMailbox(forward) && IsCutShort(file, KeyNames<CForwardAddressSetting>(), {}))
        Mark(forward.setting_loaded, file);
    constexpr std::array<std::string_view, 2> kScheduleKeys = {"version", "schedule"};
    const CString schedule = forward.path + "\\schedule.def";
    if (forward.schedule.terms.empty() && IsCutShort(schedule, kScheduleKeys, "schedule")) {
        Mark(forward.schedule_loaded, schedule);
    }
}

void MarkCutShort(CUser& user) {
    const CString file = user.path + "\\userset.def";
    if (user.setting.loginname.empty() && IsCutShort(file, KeyNames<CUserSetting>(), "loginname"))
        Mark(user.setting_loaded, file);
}

// Whether its user is switched on is not known.
void MarkLikeItsUser(CPopProfile& profile) {
    CUser user;
    user.path = ParentOf(profile.path);
    user.LoadSetting();
    MarkCutShort(user);
    if (!user.setting_loaded.whole && profile.setting_loaded.whole) profile.setting_loaded = user.setting_loaded;
}

// Of a root, or of a profile.
template <class Place>
bool LooksForCutShort(const Place& place) {
    try {
        const std::optional<HostRules> rules = RulesOf(place);
        return rules && rules->keyless;
    } catch (const CommandError&) {
        return false;  // it is left out anyway
    }
}

}  // namespace

void OrderByNumber(CRootPath& root) {
    Order(root.users);
    for (const auto& user : root.users) {
        Order(user->profiles);
        for (const auto& profile : user->profiles) Order(profile->forward_addresses);
    }
}

void ApplyRules(CRootPath& root) {
    if (!HasRules(root.path)) return;
    OrderByNumber(root);
    const OneReadingOfRules once;
    for (const auto& user : root.users) {
        ApplyRules(*user);
        for (const auto& profile : user->profiles) ApplyRules(*profile);
    }
}

void ApplyRules(CUser& user) {
    const CString root = ParentOf(user.path);
    if (HasRules(root) && LooksForCutShort(root)) MarkCutShort(user);
}

void ApplyRules(CPopProfile& profile) {
    if (!HasRules(ParentOf(ParentOf(profile.path)))) return;
    Order(profile.forward_addresses);
    if (!LooksForCutShort(profile)) return;
    MarkCutShort(profile);
    MarkLikeItsUser(profile);
    for (const auto& forward : profile.forward_addresses) MarkCutShort(*forward);
}

bool HasMailbox(const CForwardAddress& forward) {
    return RecipientOf(forward.setting.address).find('@') != CString::npos;
}

std::string WhySwitchedOff(const CUser& user, const CPopProfile& profile) {
    if (profile.setting.status == 0) return Tr("switched off (status 0)");
    if (user.setting.status != 0 || !HasRules(ParentOf(user.path))) return {};
    return Tr("switched off with its user (status 0 of {0})", ShowText(user.setting.loginname));
}

}  // namespace tarvex::host
