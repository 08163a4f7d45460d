// Says why a profile fails since when, what blocks it, what waits, and when it is tried next.

#include "host/commands/look/status_words.h"

#include <algorithm>
#include <optional>
#include <sstream>

#include "host/history/run_words.h"
#include "host/system/display.h"
#include "host/terminal/table.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kWordsWidth = 200;
constexpr std::size_t kIdWidth = 70;

std::string WhenTried(std::optional<CTime> next, CTime now) {
    if (!next) return {};
    return *next <= now ? ", next try now" : ", next try in " + ShowSpan(*next - now);
}

// "3 times since 2026-11-22 10:00:05", and what else helps to judge it.
std::string Failing(const ProfileState& state, CTime now) {
    if (!state.history || state.history->failed_in_a_row == 0) return {};
    const ProfileHistory& history = *state.history;
    const std::string times =
        history.failed_in_a_row == 1 ? "" : std::to_string(history.failed_in_a_row) + " times in a row since ";
    const std::string good =
        history.last_good == 0 ? ", no run was good yet" : ", last good run " + ShowTime(history.last_good);
    std::string text =
        state.name + " failed " + times + ShowTime(history.failing_since) + good + WhenTried(NextTry(state, now), now);
    const auto blocking = WhatBlocks(state, now);
    if (blocking && !blocking->message.empty()) text += ", at message " + OneLine(blocking->message, kIdWidth);
    return text + ": " + OneLine(ReasonOf(history.last.result), kWordsWidth);
}

std::string Remembered(const ProfileState& state, const MatterWords& told, const CString& subject, const Note& note,
                       CTime now) {
    const bool is_id = told.matter == Matter::NotFetched || told.matter == Matter::NotDeleted;
    std::string text = state.name + ": " + (is_id ? "message " : "") + OneLine(subject, kWordsWidth) + told.sentence +
                       ", since " + ShowTime(note.since);
    if (note.next > now) text += ", not tried before " + ShowTime(note.next);
    if (!note.words.empty()) text += ": " + OneLine(note.words, kWordsWidth);
    if (told.matter == Matter::Waiting)
        text += "; `tarvex accept " + state.name + " --send` sends it, `--skip` does not";
    return text;
}

void AddRemembered(const ProfileState& state, CTime now, std::vector<std::string>& remarks) {
    for (const MatterWords& told : ToldMatters()) {
        const auto notes = state.remembered.find(told.matter);
        if (notes == state.remembered.end()) continue;
        for (const auto& [subject, note] : notes->second)
            remarks.push_back(Remembered(state, told, subject, note, now));
    }
}

std::string Held(const ProfileState& state, CTime now) {
    if (state.held.IsEmpty()) return {};
    std::string text = state.name + ": " + ShowHeld(state.held);
    if (state.held.next_try != 0) text += WhenTried(state.held.next_try, now);
    return text + "; `tarvex held list " + state.name + "` shows why";
}

std::string ClockWasWrong(const ProfileState& state, CTime now) {
    if (!state.switched_on || state.last_due <= now || state.next_due <= now) return {};
    return state.name + " was last due at " + ShowTime(state.last_due) +
           ", which is still to come: was the clock wrong? `tarvex profile set " + state.name +
           " --lasttime never` makes it due.";
}

}  // namespace

std::vector<std::string> RemarksOn(const ProfileState& state, CTime now) {
    std::vector<std::string> remarks;
    if (!state.trouble.empty()) remarks.push_back(state.name + ": " + state.trouble);
    remarks.push_back(Failing(state, now));
    remarks.push_back(Held(state, now));
    AddRemembered(state, now, remarks);
    if (!state.wants_login.empty())
        remarks.push_back(state.name + ": waits for `tarvex login " + state.name + "`: " + state.wants_login);
    if (!state.clear_login.empty()) remarks.push_back(state.name + ": " + state.clear_login);
    remarks.push_back(ClockWasWrong(state, now));
    std::erase(remarks, "");
    return remarks;
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
