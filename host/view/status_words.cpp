// Says why a profile fails since when, what blocks it, what waits, and when it is tried next.

#include "host/view/status_words.h"

#include <algorithm>
#include <optional>
#include <sstream>

#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/terminal/table.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kWordsWidth = 200;
constexpr std::size_t kIdWidth = 70;
constexpr std::size_t kReasonWidth = 60;

std::string WhenTried(std::optional<CTime> next, CTime now) {
    if (!next) return {};
    return *next <= now ? Tr(", next try now") : Tr(", next try in {0}", ShowSpan(*next - now));
}

// What else helps to judge a failure.
std::string AboutFailure(const ProfileState& state, CTime now) {
    const ProfileHistory& history = *state.history;
    std::string text =
        history.last_good == 0 ? Tr(", no run was good yet") : Tr(", last good run {0}", ShowTime(history.last_good));
    text += WhenTried(NextTry(state, now), now);
    const auto blocking = WhatBlocks(state, now);
    if (blocking && !blocking->message.empty()) text += Tr(", at message {0}", OneLine(blocking->message, kIdWidth));
    return text + ": " + ShowReason(history.last.result, kWordsWidth);
}

bool Fails(const ProfileState& state) { return state.history && state.history->failed_in_a_row > 0; }

// "3 times since 2026-11-22 10:00:05"
std::string Failing(const ProfileState& state, CTime now) {
    if (!Fails(state)) return {};
    const std::int64_t times = state.history->failed_in_a_row;
    const std::string since = ShowTime(state.history->failing_since);
    const std::string text = times == 1 ? Tr("{0} failed {1}", state.name, since)
                                        : Tr("{0} failed {1} times in a row since {2}", state.name, times, since);
    return text + AboutFailure(state, now);
}

std::string Remembered(const MatterWords& told, const CString& subject, const Note& note, CTime now) {
    std::string text = Tr(told.sentence, OneLine(subject, kWordsWidth)) + Tr(", since {0}", ShowTime(note.since));
    if (note.next > now) text += Tr(", not tried before {0}", ShowTime(note.next));
    if (!note.words.empty()) text += ": " + OneLine(note.words, kWordsWidth);
    return text;
}

// `say` makes a remark of what is said of a matter.
template <class Say>
void AddRemembered(const ProfileState& state, CTime now, std::vector<std::string>& remarks, const Say& say) {
    for (const MatterWords& told : ToldMatters()) {
        const auto notes = state.remembered.find(told.matter);
        if (notes == state.remembered.end()) continue;
        for (const auto& [subject, note] : notes->second)
            remarks.push_back(say(told.matter, Remembered(told, subject, note, now)));
    }
}

std::string Held(const ProfileState& state, CTime now) {
    if (state.held.IsEmpty()) return {};
    std::string text = state.name + ": " + ShowHeld(state.held);
    if (state.held.next_try != 0) text += WhenTried(state.held.next_try, now);
    return text + Tr("; `tarvex held list {0}` shows why", state.name);
}

bool WasClockWrong(const ProfileState& state, CTime now) {
    return state.switched_on && state.last_due > now && state.next_due > now;
}

std::string ClockWasWrong(const ProfileState& state, CTime now) {
    if (!WasClockWrong(state, now)) return {};
    return Tr(
        "{0} was last due at {1}, which is still to come: was the clock wrong? `tarvex profile set {0} --lasttime "
        "never` makes it due.",
        state.name, ShowTime(state.last_due));
}

}  // namespace

std::string HowTheLastRunEnded(const ProfileState& status) {
    if (!status.trouble.empty()) return Tr("see below");
    if (!status.history) return status.ran_unrecorded ? Tr("no record yet") : "";
    return HowItEnded(status.history->last.result, status.history->failed_in_a_row, kReasonWidth);
}

std::string LastRun(const ProfileState& status) {
    if (status.history) return ShowTime(status.history->last.started);
    return status.ran_unrecorded ? ShowTime(status.last_due) : Tr("never");
}

std::string NextDue(const ProfileState& status, CTime now) {
    if (status.running) {
        const RunNow& run = *status.running;
        return Tr("running: fetched {0} of {1}, delivered {2}", run.messages_fetched, run.messages_to_fetch,
                  run.messages_delivered);
    }
    if (!status.switched_on) return Tr("switched off");
    return status.next_due <= now ? Tr("now") : Tr("in {0}", ShowSpan(status.next_due - now));
}

std::vector<std::string> RemarksOn(const ProfileState& state, CTime now) {
    std::vector<std::string> remarks;
    if (!state.trouble.empty()) remarks.push_back(state.name + ": " + state.trouble);
    remarks.push_back(Failing(state, now));
    remarks.push_back(Held(state, now));
    AddRemembered(state, now, remarks, [&state](Matter matter, const std::string& text) {
        const bool waits = matter == Matter::Waiting;
        return state.name + ": " + text +
               (waits ? Tr("; `tarvex accept {0} --send` sends it, `--skip` does not", state.name) : "");
    });
    if (!state.wants_login.empty())
        remarks.push_back(Tr("{0}: waits for `tarvex login {0}`: {1}", state.name, state.wants_login));
    if (!state.clear_login.empty()) remarks.push_back(state.name + ": " + state.clear_login);
    remarks.push_back(ClockWasWrong(state, now));
    std::erase(remarks, "");
    return remarks;
}

std::vector<std::string> NotesOn(const ProfileState& state, CTime now) {
    std::vector<std::string> notes{state.trouble};
    if (Fails(state)) {
        const std::string since = ShowTime(state.history->failing_since);
        const std::int64_t times = state.history->failed_in_a_row;
        notes.push_back(
            (times == 1 ? Tr("Failed {0}", since) : Tr("Failed {0} times in a row since {1}", times, since)) +
            AboutFailure(state, now));
    }
    AddRemembered(state, now, notes, [](Matter, const std::string& text) { return text; });
    if (!state.wants_login.empty())
        notes.push_back(
            Tr("An administrator must log it in at its provider again, on the machine itself: {0}", state.wants_login));
    if (!state.clear_login.empty()) notes.push_back(Tr("The POP3 password goes over the network in clear."));
    if (WasClockWrong(state, now))
        notes.push_back(Tr("It was last due at {0}, which is still to come: was the clock of the machine wrong?",
                           ShowTime(state.last_due)));
    std::erase(notes, "");
    return notes;
}

// What has no blank to break it at, the id of a message perhaps, loses its middle.
std::string WrappedBehindIndent(std::string_view text, std::size_t columns) {
    constexpr std::size_t kIndent = 4;
    const std::size_t room = columns - std::min(columns, kIndent);
    std::istringstream lines(Wrapped(text, room));
    std::string wrapped;
    for (std::string line; std::getline(lines, line);) {
        if (!wrapped.empty()) wrapped.append("\n").append(kIndent, ' ');
        wrapped += CutInTheMiddle(line, room);
    }
    return wrapped;
}

}  // namespace tarvex::host
