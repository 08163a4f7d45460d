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
