// `tarvex profile set --all`, `--user` and `--where`: the same settings for many profiles.

#include "host/commands/arguments/many_profiles.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <utility>
#include <variant>

#include "host/commands/arguments/submit.h"
#include "host/edit/key_values.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/password_source.h"
#include "host/terminal/typed_word.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

using Setting = CPopProfileSetting;

std::string LowerCase(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// A key is looked for without a value (`nickname=`) as well, whatever its default is.
template <class Record>
Record WithoutTexts() {
    Record record;
    for (const auto& key : Keys<Record>()) {
        if (const auto* const text = std::get_if<CString Record::*>(&key.field)) (record.**text).clear();
    }
    return record;
}

// `smtpserver=relay.example.net`, taken apart once for all profiles.
template <class Record>
class Condition {
public:
    Condition(const std::string& name, const std::string& value) : key_(KeyNamed<Record>(name)) {
        if (key_.type == KeyType::Password) throw CommandError(kBadUsage, Tr("--where does not look into passwords"));
        if (!value.empty() || key_.type == KeyType::Number) SetValue(wanted_, key_, value);
    }

    bool Holds(const Record& record) const {
        const bool any_case = key_.type == KeyType::HostName;
        return std::visit(
            [&](auto field) {
                if constexpr (std::is_same_v<decltype(field), CString Record::*>) {
                    if (any_case) return LowerCase(record.*field) == LowerCase(wanted_.*field);
                }
                return record.*field == wanted_.*field;
            },
            key_.field);
    }

private:
    const Key<Record>& key_;
    Record wanted_ = WithoutTexts<Record>();
};

// Of the settings of a profile, and of the rules that hold for it.
class Conditions {
public:
    explicit Conditions(const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            const std::size_t end = text.find('=');
            if (end == std::string::npos)
                throw CommandError(kBadUsage,
                                   Tr("--where takes KEY=VALUE, such as pop_tls=off, not {0}", Quoted(text)));
            const std::string name = text.substr(0, end);
            if (std::ranges::any_of(Keys<HostRules>(), [&](const auto& key) { return IsRuleOfProfile(key, name); })) {
                rules_.emplace_back(name, text.substr(end + 1));
            } else {
                settings_.emplace_back(name, text.substr(end + 1));
            }
        }
    }

    bool Hold(const CPopProfile& profile) const {
        const auto all = [](const auto& conditions, const auto& record) {
            return std::ranges::all_of(conditions, [&](const auto& condition) { return condition.Holds(record); });
        };
        return all(settings_, profile.setting) &&
               (rules_.empty() || all(rules_, RulesOf(profile).value_or(HostRules())));
    }

private:
    static bool IsRuleOfProfile(const KeyInfo& key, const std::string& name) {
        return key.name == name && !key.is_of_root && !key.is_shared;
    }

    std::vector<Condition<Setting>> settings_;
    std::vector<Condition<HostRules>> rules_;
};

// Who cannot be read may be meant, or not.
void RequireWhole(const std::string& why) {
    if (!why.empty()) throw CommandError(kCannotWrite, Tr("{0}; nothing was changed", why));
}

std::vector<NamedProfile> Find(const CRootPath& root, const ManyProfiles& chosen) {
    const Conditions conditions(chosen.where);
    const CUser* const user = chosen.user.empty() ? nullptr : &FindUser(root, chosen.user);
    if (!user) {
        for (const std::string& why : WhatIsNotListed(root)) RequireWhole(why);
    } else {
        RequireWhole(WhyNotLoaded(user->profiles_loaded));
    }
    std::vector<NamedProfile> found;
    for (const NamedProfile& named : AllProfiles(root)) {
        if (user && named.user != user) continue;
        RequireWhole(WhyNotLoaded(*named.profile));
        if (conditions.Hold(*named.profile)) found.push_back(named);
    }
    if (found.empty()) throw CommandError(kNotFound, Tr("no profile has these settings; nothing was changed"));
    return found;
}

// What one of the two edits changes; nothing for one without keys. Throws CommandError when a value is not allowed.
template <class Record>
std::string Preview(const Record& before, const EditRequest& request) {
    const KeyValues<Record> values(request);
    Record after(before);
    values.Assign(after);
    return values.Difference(before, after);
}

}  // namespace

void ManyProfiles::AddTo(CLI::App& command) {
    command.add_flag("--all", all, Tr("All profiles of the tree"));
    command.add_option("--user", user, Tr("All profiles of this user: path (user0) or login name"))->type_name("USER");
    command
        .add_option(
            "--where", where,
            Tr("All profiles with this setting or rule, such as smtpserver=relay.example.net or pop_tls=off; more "
               "than once: with all of them"))
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false);
    command.add_flag("--yes,-y", yes, Tr("Do not ask before many profiles are changed"));
}

int SetMany(const Context& context, const ManyProfiles& chosen, const KeyOptions& keys, const KeyOptions& host_keys) {
    EditRequest settings(EditKind::Profile, EditVerb::Set, "");
    EditRequest rules(EditKind::Rules, EditVerb::Set, "");
    keys.Fill(settings);  // before the tree is read: a file with a password may be the superuser's alone
    host_keys.Fill(rules);
    const std::string directory = RootDirectory(context.root_option);
    CRootPath root;
    OpenTree(root, directory);
    if (!host_keys.Empty() && !HasRules(root.path)) throw NoRules();
    const std::vector<NamedProfile> found = Find(root, chosen);
    std::vector<EditRequest> requests;
    std::string preview;
    for (const NamedProfile& named : found) {
        const CPopProfile& profile = *named.profile;
        const std::string name = ShownName(root, profile.path);
        preview += name + " (" + ShowText(profile.setting.address) + "):\n";
        if (!host_keys.Empty()) preview += Preview(RulesOf(profile).value(), rules);
        preview += Preview(profile.setting, settings);
        settings.name = rules.name = name;
        if (!host_keys.Empty()) requests.push_back(rules);
        if (!keys.Empty()) requests.push_back(settings);
    }
    const auto count = static_cast<std::int64_t>(found.size());
    if (!chosen.yes) {
        std::cout << preview << std::flush;
        if (!AskYes(TrN("Change {0} profile?", "Change {0} profiles?", count))) {
            std::cout << Tr("Nothing was changed.") << '\n';
            return kDone;
        }
    }
    const int code = SubmitAll(directory, requests);
    std::cout << TrN("Changed {0} profile.", "Changed {0} profiles.", count) << '\n';
    return code;
}

}  // namespace tarvex::host
