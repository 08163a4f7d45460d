// Decides what a reader is told, and when.

#include "host/alerts/decision.h"

#include <algorithm>

namespace tarvex::host {
namespace {

// Moments of the future show that the clock was set back.
bool HasPassed(CTime since, CTime span, CTime now) { return now >= since + span || now < since; }

bool IsPutOff(const ReaderState& state, CTime now) {
    return state.next_try > now && state.next_try <= now + kLongestRetry_s;
}

void ForgetProfilesThatAreGone(const Situation& situation, ReaderState& state) {
    if (!situation.whole) return;
    std::erase_if(state.told, [&](const auto& told) {
        return !told.first.profile.empty() && !situation.known.contains(told.first.profile);
    });
}

Alert Compare(const Situation& situation, const ReaderState& state) {
    Alert alert;
    if (situation.whole) alert.over = state.told;
    for (const FoundProblem& found : situation.wrong) {
        (state.told.contains(found.key) ? alert.lasting : alert.news).push_back(found);
        alert.over.erase(found.key);
    }
    return alert;
}

// Whether no more is coming.
bool IsGathered(const Alert& alert, Gathering& gathering, CTime quiet_s, CTime now) {
    Gathering seen;
    for (const FoundProblem& found : alert.news) seen.wrong.insert(found.key);
    for (const auto& [key, since] : alert.over) seen.right.insert(key);
    const auto more = [](const auto& all, const auto& before) {
        return std::ranges::any_of(all, [&](const auto& one) { return !before.contains(one); });
    };
    const bool goes_on = !gathering.wrong.empty() || !gathering.right.empty();
    seen.first = goes_on ? gathering.first : now;
    const bool is_more = more(seen.wrong, gathering.wrong) || more(seen.right, gathering.right);
    seen.last = is_more ? now : gathering.last;
    gathering = seen;
    return HasPassed(seen.last, quiet_s, now) || HasPassed(seen.first, kLongestGathering_s, now);
}

bool IsDue(const Alert& alert, const ReaderState& state, CTime now) {
    if (!alert.news.empty()) return HasPassed(state.last_news, kBetweenNews_s, now);
    if (!alert.over.empty()) return HasPassed(state.last_alert, kBeforeGoodAgain_s, now);
    return !alert.lasting.empty() && HasPassed(state.last_alert, kReminder_s, now);
}

}  // namespace

std::optional<Alert> AlertFor(const Situation& situation, ReaderState& state, Gathering& gathering, CTime now) {
    ForgetProfilesThatAreGone(situation, state);
    Alert alert = Compare(situation, state);
    const bool is_change = !alert.news.empty() || !alert.over.empty();
    if (!is_change) {
        gathering = {};
    } else if (!IsGathered(alert, gathering, situation.quiet_s, now)) {
        return std::nullopt;
    }
    const bool has_nothing = !is_change && alert.lasting.empty();
    if (has_nothing && state.tries > 0) WasSent(alert, state, state.last_alert);  // there is nothing left to send
    if (!IsDue(alert, state, now) || IsPutOff(state, now)) return std::nullopt;
    return alert;
}

void WasSent(const Alert& alert, ReaderState& state, CTime now) {
    for (const auto& [key, since] : alert.over) state.told.erase(key);
    for (const FoundProblem& found : alert.news) state.told[found.key] = found.since;
    state.last_alert = now;
    if (!alert.news.empty()) state.last_news = now;
    state.tries = 0;
    state.failing_since = state.next_try = 0;
    state.words.clear();
}

void WasNotSent(const std::string& why, ReaderState& state, CTime now) {
    if (state.tries == 0) state.failing_since = now;
    constexpr int kMostDoublings = 6;
    state.next_try = now + std::min(kFirstRetry_s << std::min(state.tries, kMostDoublings), kLongestRetry_s);
    ++state.tries;
    state.words = why;
}

}  // namespace tarvex::host
