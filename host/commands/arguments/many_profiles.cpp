// `tarvex profile set --all`, `--user` and `--where`: the same settings for many profiles.

#include "host/commands/arguments/many_profiles.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <utility>
#include <variant>

#include "host/commands/arguments/submit.h"
#include "host/edit/key_values.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/password_source.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

using Setting = CPopProfileSetting;

// `smtpserver=relay.example.net`, taken apart once for all profiles.
class Condition {
public:
    explicit Condition(const std::string& text) : key_(KeyNamed<Setting>(text.substr(0, text.find('=')))) {
        const std::size_t end = text.find('=');
        if (end == std::string::npos) throw CommandError(kBadUsage, "--where takes key=value, not \"" + text + '"');
        if (key_.type == KeyType::Password) throw CommandError(kBadUsage, "--where does not look into passwords");
        if (end + 1 < text.size() || key_.type == KeyType::Number) SetValue(wanted_, key_, text.substr(end + 1));
    }

    bool Holds(const Setting& setting) const {
        const bool any_case = key_.type == KeyType::HostName;
        return std::visit(
            [&](auto field) {
                if constexpr (std::is_same_v<decltype(field), CString Setting::*>) {
                    if (any_case) return Lower(setting.*field) == Lower(wanted_.*field);
                }
                return setting.*field == wanted_.*field;
            },
            key_.field);
    }

private:
    static std::string Lower(std::string text) {
        std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
        return text;
    }

    const Key<Setting>& key_;
    Setting wanted_ = WithoutTexts();

    // A key is looked for without a value (`nickname=`) as well, whatever its default is.
    static Setting WithoutTexts() {
        Setting setting;
        for (const auto& key : Keys<Setting>()) {
            if (const auto* const text = std::get_if<CString Setting::*>(&key.field)) (setting.**text).clear();
        }
        return setting;
    }
};

// Who cannot be read may be meant, or not.
void RequireWhole(const std::string& why) {
    if (!why.empty()) throw CommandError(kCannotWrite, why + "; nothing was changed");
}

std::vector<NamedProfile> Find(const CRootPath& root, const ManyProfiles& chosen) {
    std::vector<Condition> conditions;
    for (const std::string& text : chosen.where) conditions.emplace_back(text);
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
        const Setting& setting = named.profile->setting;
        if (std::ranges::all_of(conditions, [&](const Condition& condition) { return condition.Holds(setting); })) {
            found.push_back(named);
        }
    }
    if (found.empty()) throw CommandError(kNotFound, "there is no such profile; nothing was changed");
    return found;
}

std::string Preview(const std::string& name, const CPopProfile& profile, const KeyValues<Setting>& values) {
    Setting after(profile.setting);
    values.Assign(after);
    return name + " (" + ShowText(profile.setting.address) + "):\n" + values.Difference(profile.setting, after);
}

}  // namespace

void ManyProfiles::AddTo(CLI::App& command) {
    command.add_flag("--all", all, "All profiles of the tree");
    command.add_option("--user", user, "All profiles of this user: path (user0) or login name")->type_name("USER");
    command
        .add_option("--where", where,
                    "All profiles with this setting, such as smtpserver=relay.example.net; more than once: with all "
                    "of them")
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false);
    command.add_flag("--yes,-y", yes, "Do not ask before many profiles are changed");
}

int SetMany(const Context& context, const ManyProfiles& chosen, const KeyOptions& keys) {
    EditRequest request(EditKind::Profile, EditVerb::Set, "");
    keys.Fill(request);  // before the tree is read: a file with a password may be the superuser's alone
    const std::string directory = RootDirectory(context.root_option);
    CRootPath root;
    OpenTree(root, directory);
    const KeyValues<Setting> values(request);
    std::vector<EditRequest> requests;
    std::string preview;
    for (const NamedProfile& named : Find(root, chosen)) {
        request.name = ShownName(root, named.profile->path);
        preview += Preview(request.name, *named.profile, values);
        requests.push_back(request);
    }
    const std::string count = ShowCount(static_cast<std::int64_t>(requests.size()), "profile");
    if (!chosen.yes) {
        std::cout << preview << std::flush;
        if (!AskYes("Change " + count + "?")) {
            std::cout << "Nothing was changed.\n";
            return kDone;
        }
    }
    const int code = SubmitAll(directory, requests);
    std::cout << "Changed " << count << ".\n";
    return code;
}

}  // namespace tarvex::host
