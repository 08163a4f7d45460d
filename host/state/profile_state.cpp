// Puts together what is known of the profiles of a tree. What cannot be read is told, and the rest is worth knowing.

#include "host/state/profile_state.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/tokens/profile_tokens.h"
#include "host/tree/account_text.h"
#include "host/tree/clear_login.h"
#include "host/tree/log_reader.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/tree_rules.h"

namespace tarvex::host {
namespace {

constexpr std::array kTold = {
    MatterWords{Matter::Waiting, "waiting", Marked("waits, because its ids cannot be trusted")},
    MatterWords{Matter::Parked, "parked", Marked("{0} is parked, its recipient was refused")},
    MatterWords{Matter::Bouncing, "bouncing", Marked("{0} bounces, delivery reports come for it")},
    MatterWords{Matter::NotFetched, "not_fetched", Marked("message {0} cannot be fetched")},
    MatterWords{Matter::NotDeleted, "not_deleted", Marked("message {0} cannot be deleted on the server")},
    MatterWords{Matter::Blocked, "refused_in_a_row",
                Marked("{0} was the answer to one message after the other; nothing is set aside for it until one is "
                       "taken")},
    MatterWords{Matter::Login, "login_failing", Marked("its logins fail")},
    MatterWords{Matter::Left, "left_on_server",
                Marked("reports or mail of loops stay on the server, there is no room in held/")},
    MatterWords{Matter::SmtpLogin, "smtp_login_failing", Marked("its logins at the SMTP server fail")},
};

std::string WhyWantsLogin(const CRootPath& root, const CPopProfile& profile) {
    try {
        const std::optional<HostRules> rules = RulesOf(profile);
        return rules ? WhyNoToken(AccessTokens(root.path), *rules, profile) : "";
    } catch (const CommandError&) {
        return {};  // that the rules cannot be read is said elsewhere
    }
}

ProfileState StateOf(const CRootPath& root, const CUser& user, const CPopProfile& profile) {
    ProfileState state;
    state.name = ShownName(root, profile.path);
    state.address = ShowText(profile.setting.address);
    state.switched_on = IsSwitchedOn(user, profile);
    state.has_log = profile.setting.logmode != 0;
    state.last_due = profile.setting.lasttime;
    state.next_due = profile.NextDue();
    state.held = CountHeld(profile);
    state.sends_through = JsonOfAccount(profile);
    if (!WhereAccountIsSet(profile).empty()) state.shared_server = ShowAccount(profile);
    state.clear_login = NoteOnClearLogin(profile, state.name);
    state.wants_login = WhyWantsLogin(root, profile);
    if (const std::string why = WhyUnreadable(profile); !why.empty()) state.trouble = Tr("left out, {0}", why);
    return state;
}

void AddHistory(const std::string& directory, const std::vector<NamedProfile>& profiles, TreeState& tree) {
    try {
        HistoryReader reader(directory);
        for (std::size_t i = 0; i < profiles.size(); ++i)
            tree.profiles[i].history = reader.Of(profiles[i].profile->path);
    } catch (const DatabaseError& error) {
        tree.trouble = Tr("the history of runs cannot be read: {0}", error.what());
    }
    for (std::size_t i = 0; i < profiles.size(); ++i) {
        ProfileState& state = tree.profiles[i];
        state.ran_unrecorded = !state.history && ReadLog(profiles[i].profile->path).has_value();
        if (state.trouble.empty() && state.history) state.trouble = WhatIsNotSaved(state.history->last.result);
    }
}

void AddRemembered(const std::string& directory, const std::vector<NamedProfile>& profiles, TreeState& tree) {
    const CTime now = std::time(nullptr);
    try {
        RuleMemoryReader reader(directory);
        for (std::size_t i = 0; i < profiles.size(); ++i) {
            NotesByMatter notes = reader.Notes(profiles[i].profile->path);
            NotesByMatter& remembered = tree.profiles[i].remembered;
            for (const MatterWords& told : kTold) remembered[told.matter] = std::move(notes[told.matter]);
            std::erase_if(remembered[Matter::Bouncing],
                          [now](const auto& one) { return one.second.last + kBouncesKept < now; });
        }
    } catch (const DatabaseError& error) {
        tree.trouble +=
            (tree.trouble.empty() ? "" : "; ") + Tr("what the rules remember cannot be read: {0}", error.what());
    }
}

// Until when its logins wait.
CTime LoginsWaitUntil(const ProfileState& state) {
    CTime until = 0;
    for (const Matter matter : {Matter::Login, Matter::SmtpLogin}) {
        const auto notes = state.remembered.find(matter);
        if (notes == state.remembered.end()) continue;
        for (const auto& [subject, note] : notes->second) until = std::max(until, note.next);
    }
    return until;
}

bool WaitsForAnAnswer(const ProfileState& state) {
    const auto waiting = state.remembered.find(Matter::Waiting);
    return waiting != state.remembered.end() && !waiting->second.empty();
}

}  // namespace

std::span<const MatterWords> ToldMatters() { return kTold; }

TreeState StateOf(const CRootPath& root, const std::vector<NamedProfile>& profiles, const std::string& directory) {
    TreeState tree;
    const OneReadingOfRules once;
    for (const NamedProfile& named : profiles) tree.profiles.push_back(StateOf(root, *named.user, *named.profile));
    AddHistory(directory, profiles, tree);
    if (HasRules(root.path)) AddRemembered(directory, profiles, tree);
    return tree;
}

std::optional<Blocking> WhatBlocks(const ProfileState& state, CTime now) {
    if (WaitsForAnAnswer(state)) return Blocking{"floodguard", {}, 0};
    if (!state.wants_login.empty()) return Blocking{"token", {}, 0};
    const CTime until = LoginsWaitUntil(state);
    if (until > now) return Blocking{"backoff", {}, until};
    const CRunFailure* const failure = state.history ? FailureOf(state.history->last.result) : nullptr;
    if (failure && !failure->uidl.empty()) return Blocking{{}, failure->uidl, 0};
    return std::nullopt;
}

std::optional<CTime> NextTry(const ProfileState& state, CTime now) {
    if (!state.switched_on || WaitsForAnAnswer(state) || !state.wants_login.empty()) return std::nullopt;
    return std::max({state.next_due, LoginsWaitUntil(state), now});
}

bool WantsAPerson(const ProfileState& state) {
    return !state.wants_login.empty() || std::ranges::any_of(state.remembered, [](const auto& of) {
        return (of.first == Matter::Waiting || of.first == Matter::Parked) && !of.second.empty();
    });
}

}  // namespace tarvex::host
