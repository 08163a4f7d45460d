// Who is told when something is wrong, and of what: alerts as docs/alerts.md describes them.

#include <map>
#include <set>

#include "host/alerts/alert_memory.h"
#include "host/alerts/alert_text.h"
#include "host/alerts/readers.h"
#include "host/desk/answers/parts.h"
#include "host/desk/visit.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

struct Told {
    Reader reader;
    std::set<std::string> profiles;  // of those that are shown, by name
    bool of_tree = false;
};
using AllTold = std::map<std::string, Told>;  // by Reader::Key

// What the question is about: one profile, those of a user, all that one may see.
std::vector<NamedProfile> ProfilesAsked(const Visit& visit, const std::string& name) {
    if (name.empty()) return visit.Visible();
    if (name.find('/') != std::string::npos) return {visit.ProfileCalled(name)};
    std::vector<NamedProfile> profiles;
    CUser& user = visit.UserCalled(name);
    for (const auto& profile : user.profiles) profiles.push_back({&user, profile.get()});
    return profiles;
}

// Rules that cannot be read are told of elsewhere.
template <class RulesOfIt>
std::vector<Reader> ReadersIn(const RulesOfIt& rules_of) {
    try {
        return ReadersOf(rules_of().value_or(HostRules()));
    } catch (const CommandError&) {
        return {};
    }
}

AllTold FindTold(const Visit& visit, const std::string& name) {
    AllTold all;
    const OneReadingOfRules once;
    for (const NamedProfile& named : ProfilesAsked(visit, name)) {
        for (const Reader& reader : ReadersIn([&] { return RulesOf(*named.profile); })) {
            Told& told = all[reader.Key()];
            told.reader = reader;
            told.profiles.insert(ShownName(visit.Root(), named.profile->path));
        }
    }
    const bool is_of_tree = name.empty() && visit.IsAdministrator();
    for (const Reader& reader : ReadersIn([&] { return RulesOf(visit.Root().path); })) {
        if (!is_of_tree && !all.contains(reader.Key())) continue;
        Told& told = all[reader.Key()];
        told.reader = reader;
        told.of_tree = true;
    }
    return all;
}

Json JsonOfOpen(const ReaderState& state, const Told& told, bool with_tree) {
    Json open = Json::array();
    for (const auto& [key, since] : state.told) {
        if (key.profile.empty() ? !with_tree : !told.profiles.contains(key.profile)) continue;
        open.push_back(
            {{"name", key.profile}, {"matter", Headline(key)}, {"since", since == 0 ? Json() : Json(ShowTime(since))}});
    }
    return open;
}

Json JsonOfTrouble(const ReaderState& state, bool is_administrator) {
    if (state.tries == 0) return nullptr;
    return {{"since", ShowTime(state.failing_since)},
            {"next", ShowTime(state.next_try)},
            {"tries", state.tries},
            {"words", is_administrator ? state.words : ""}};
}

// Whom the administrators have named is no business of users, nor is what that one is told of others.
Json JsonOfTold(const Visit& visit, const Told& told, const ReaderState& state, bool with_tree) {
    const bool is_administrator = visit.IsAdministrator();
    const bool is_shown = is_administrator || !told.of_tree;
    const std::string server = ShowText(told.reader.server);
    return {{"name", is_shown ? told.reader.Name() : ""},
            {"through", server.empty() || !is_administrator ? "" : server + ':' + std::to_string(told.reader.port)},
            {"program", told.reader.IsCommand()},
            {"language", LanguageCode(told.reader.language)},
            {"last", state.last_alert == 0 || !is_shown ? Json() : Json(ShowTime(state.last_alert))},
            {"open", JsonOfOpen(state, told, with_tree)},
            {"trouble", JsonOfTrouble(state, is_administrator)}};
}

std::map<std::string, ReaderState> StatesOf(const std::string& directory, std::string& trouble) {
    try {
        return ReaderStates(directory);
    } catch (const DatabaseError& error) {
        trouble = Tr("what was told cannot be read: {0}", error.what());
        return {};
    }
}

HostRules RulesAsked(const Visit& visit, const std::string& name) {
    const auto of_root = RulesOf(visit.Root().path);
    if (!of_root) throw NoRules();
    if (name.empty()) return *of_root;
    const bool is_profile = name.find('/') != std::string::npos;
    return (is_profile ? RulesOf(*visit.ProfileCalled(name).profile)
                       : RulesOfUser(visit.Root().path, visit.UserCalled(name).path))
        .value_or(*of_root);
}

}  // namespace

// Of the tree, or of the user or profile that "name" names.
Json AnswerAlerts(Visit& visit) {
    const std::string name = visit.Text("name");
    const AllTold all = FindTold(visit, name);
    Json answer = visit.Ok();
    std::string trouble;
    auto states = StatesOf(visit.Directory(), trouble);
    answer["name"] = name;
    answer["trouble"] = trouble;
    answer["readers"] = Json::array();
    for (const auto& [key, told] : all)
        answer["readers"].push_back(
            JsonOfTold(visit, told, states[key], told.of_tree && name.empty() && visit.IsAdministrator()));
    if (visit.IsAdministrator()) answer["keys"] = JsonOfKeys(RulesAsked(visit, name));
    return answer;
}

// To everybody who is told of the tree, or of one profile.
Json AnswerTestAlert(Visit& visit) {
    const std::string name = visit.Text("name");
    std::vector<std::string> command = {"alert", "test"};
    if (!name.empty()) command.push_back(ShownName(visit.Root(), visit.ProfileCalled(name).profile->path));
    return AnswerCommand(visit, "alert test", name, command);
}

}  // namespace tarvex::host
