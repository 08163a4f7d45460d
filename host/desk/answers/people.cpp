// What a removal takes along, for whoever is asked before it; and what administrators may not do to themselves.

#include <algorithm>

#include "host/desk/rights.h"
#include "host/desk/visit.h"
#include "host/held/held_work.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/system/display.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostNamed = 50;

template <class Object>
Json Removal(const Object& object, const std::string& title, const HeldCount& held) {
    return {{"title", title}, {"expected", WhatGoes(object)}, {"held", ShowHeld(held)}, {"goes", Json::array()}};
}

// The addresses of what is below; how many there are is said in "expected".
template <class Objects>
Json Named(const Objects& objects) {
    Json named = Json::array();
    for (const auto& object : objects) {
        const bool is_last = named.size() == kMostNamed;
        named.push_back(is_last ? "…" : ShowText(object->setting.address));
        if (is_last) break;
    }
    return named;
}

Json RemovalOf(const CUser& user) {
    Json json = Removal(user, ShowText(user.setting.loginname), CountHeld(user));
    json["goes"] = Named(user.profiles);
    return json;
}

Json RemovalOf(const CPopProfile& profile) {
    Json json = Removal(profile, ShowText(profile.setting.address), CountHeld(profile));
    json["goes"] = Named(profile.forward_addresses);
    return json;
}

// Throws Refusal when the user may not remove it.
void RequireRightToRemove(const Visit& visit, EditKind kind) {
    const EditRequest request(kind, EditVerb::Remove, visit.Text("name"));
    if (RightTo(request, visit.IsAdministrator()) != Right::May)
        throw Refusal{"forbidden", Tr("Only an administrator may change that.")};
    RequireNotOneself(visit, request);
}

}  // namespace

// Whoever is left without rights could not take that back.
void RequireNotOneself(const Visit& visit, const EditRequest& request) {
    if (request.kind != EditKind::User || request.name != visit.WhoPath()) return;
    const bool takes_away = std::ranges::any_of(request.values, [](const auto& entry) {
        return (entry.first == "administrator" || entry.first == "status") && entry.second != "on";
    });
    if (request.verb == EditVerb::Remove || takes_away)
        throw Refusal{"refused", Tr("Nobody takes that from himself here: another administrator can do it.")};
}

// Of a user, a profile or an address, by its name.
Json AnswerRemoval(Visit& visit) {
    const std::string name = visit.Text("name");
    Json answer = visit.Ok();
    switch (std::ranges::count(name, '/')) {
        case 0: {
            const CUser& user = visit.UserCalled(name);
            RequireRightToRemove(visit, EditKind::User);
            answer["removal"] = RemovalOf(user);
            break;
        }
        case 1: {
            const CPopProfile& profile = *visit.ProfileCalled(name).profile;
            RequireRightToRemove(visit, EditKind::Profile);
            answer["removal"] = RemovalOf(profile);
            break;
        }
        default: {
            const NamedForward named = visit.ForwardCalled(name);
            RequireRightToRemove(visit, EditKind::Forward);
            const std::string title = ShowText(named.forward->setting.address);
            answer["removal"] = Removal(*named.forward, title, CountHeld(*named.profile, *named.forward));
        }
    }
    return answer;
}

// For the form of a new profile: whose it will be, and what it gets where the form says nothing.
Json AnswerNewProfile(Visit& visit) {
    const CUser& user = visit.UserCalled(visit.Text("name"));
    const HostRules rules = RulesOfUser(visit.Root().path, user.path).value_or(HostRules());
    Json answer = visit.Ok();
    answer["name"] = ShowText(user.setting.loginname);
    if (!rules.smtpserver.empty()) answer["shared"] = ShowText(rules.smtpserver) + ':' + std::to_string(rules.smtpport);
    return answer;
}

}  // namespace tarvex::host
