// The lists of keys.

#include "host/desk/rights.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tarvex::host {
namespace {

using std::string_view_literals::operator""sv;

constexpr std::array kOfTheMachine = {"tls_authority"sv, "token_command"sv, "alert_command"sv};
constexpr std::array kOfOwnProfile = {"nickname"sv, "status"sv, "deletemail"sv, "replacefrom"sv, "replaceto"sv};
constexpr std::array kOwnSecrets = {"poppassword"sv, "smtppassword"sv};

template <class List>
bool AreAll(const std::map<std::string, std::string>& given, const List& list) {
    return std::ranges::all_of(given,
                               [&](const auto& entry) { return std::ranges::find(list, entry.first) != list.end(); });
}

template <class List>
bool IsAny(const std::map<std::string, std::string>& given, const List& list) {
    return std::ranges::any_of(given,
                               [&](const auto& entry) { return std::ranges::find(list, entry.first) != list.end(); });
}

bool MayUser(const EditRequest& request) {
    if (!request.rules.empty()) return false;
    switch (request.kind) {
        case EditKind::Forward:
        case EditKind::Schedule:
            return true;
        case EditKind::Profile:
            if (request.verb == EditVerb::Set)
                return AreAll(request.values, kOfOwnProfile) && AreAll(request.secrets, kOwnSecrets);
            return request.verb == EditVerb::Accept || request.verb == EditVerb::CatchUp ||
                   request.verb == EditVerb::Resend;
        default:
            return false;
    }
}

}  // namespace

Right RightTo(const EditRequest& request, bool is_administrator) {
    // The passwords of users have questions of their own, which end sessions.
    const bool of_login = request.kind == EditKind::User && request.verb == EditVerb::Set && !request.secrets.empty();
    const bool of_machine = request.kind == EditKind::Rules && IsAny(request.values, kOfTheMachine);
    if (of_machine || IsAny(request.rules, kOfTheMachine) || of_login) return Right::OnlyOnTheMachine;
    return is_administrator || MayUser(request) ? Right::May : Right::OnlyAdministrators;
}

}  // namespace tarvex::host
