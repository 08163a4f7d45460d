// What the console shows of users and of the rules, to administrators.

#include "host/desk/answers/parts.h"
#include "host/settings/host_setting.h"
#include "host/system/display.h"

namespace tarvex::host {

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

namespace {

// By key, what would hold without the file of a user or a profile: set so, a rule leaves the file. An account is no
// such matter, for it is kept whole.
Json JsonOfAbove(const HostRules& above) {
    Json json = Json::object();
    for (const Key<HostRules>& key : Keys<HostRules>())
        if (*key.server == 0 && !key.is_of_root && key.type != KeyType::Password)
            json[key.name] = ShowValue(above, key);
    return json;
}

}  // namespace

// Of the tree, or of what "name" names.
Json AnswerRules(Visit& visit) {
    const auto of_root = RulesOf(visit.Root().path);
    if (!of_root) throw NoRules();
    const std::string name = visit.Text("name");
    HostRules rules = *of_root, above = *of_root;
    if (name.find('/') != std::string::npos) {
        const NamedProfile named = visit.ProfileCalled(name);
        rules = RulesOf(visit.Root().path, named.profile->path).value_or(rules);
        above = RulesOfUser(visit.Root().path, named.user->path).value_or(above);
    } else if (!name.empty()) {
        rules = RulesOfUser(visit.Root().path, visit.UserCalled(name).path).value_or(rules);
    }
    Json answer = visit.Ok();
    answer["name"] = name;
    answer["keys"] = JsonOfKeys(rules);
    if (!name.empty()) answer["above"] = JsonOfAbove(above);
    return answer;
}

}  // namespace tarvex::host
