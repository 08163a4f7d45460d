// Adds, removes and switches the terms of a schedule.

#include "host/edit/schedule_edit.h"

#include <algorithm>
#include <sstream>

#include "host/language/tr.h"
#include "host/settings/schedule_text.h"
#include "host/system/command_error.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

// What one might not expect of a schedule without a term that counts.
std::string WhatRemains(const CScheduleSetting& schedule) {
    if (schedule.terms.empty()) return Tr("The schedule is empty: the address always takes part.") + '\n';
    const auto is_off = [](const auto& term) { return term->status == 0; };
    if (!std::ranges::all_of(schedule.terms, is_off)) return "";
    return Tr("Every term is switched off: the address takes part in no run. Without any term it always would.") + '\n';
}

std::string Line(std::size_t number, const CTerm& term) {
    return "  " + std::to_string(number) + "  " + DescribeTerm(term) + '\n';
}

// The one that the request names by its number; null for all of them.
CTerm* ChosenTerm(const CScheduleSetting& schedule, const EditRequest& request) {
    if (!request.term_number) return nullptr;
    const std::size_t number = *request.term_number;
    if (number >= 1 && number <= schedule.terms.size()) return schedule.terms[number - 1].get();
    const std::size_t count = schedule.terms.size();
    throw CommandError(
        kNotFound, count == 0
                       ? Tr("there is no term {0}; the schedule has no terms (see `tarvex schedule list`)", number)
                       : Tr("there is no term {0}; the last one is {1} (see `tarvex schedule list`)", number, count));
}

std::string AddTerms(CScheduleSetting& schedule, const std::string& terms) {
    std::string said = Tr("Added:") + '\n';
    for (const CTerm& term : ParseTerms(terms)) {
        if (schedule.AddNewTerm(&term) < 0) throw CommandError(kBroken, Tr("not enough memory"));
        said += Line(schedule.terms.size(), term);
    }
    return said + Tr("Times are in {0}.", ShowZone()) + '\n';
}

std::string RemoveTerms(CScheduleSetting& schedule, const EditRequest& request) {
    if (const CTerm* const term = ChosenTerm(schedule, request)) {
        schedule.DeleteTerm(term);
    } else {
        schedule.Reset();
    }
    return Tr("Removed.") + '\n' + WhatRemains(schedule);
}

std::string SwitchTerms(CScheduleSetting& schedule, const EditRequest& request) {
    const bool on = request.verb == EditVerb::SwitchOn;
    const CTerm* const chosen = ChosenTerm(schedule, request);
    std::string said = (on ? Tr("Switched on:") : Tr("Switched off:")) + '\n';
    std::size_t number = 0;
    for (const auto& term : schedule.terms) {
        ++number;
        if (chosen && term.get() != chosen) continue;
        term->status = on ? 1 : 0;
        said += Line(number, *term);
    }
    return said + WhatRemains(schedule);
}

// In the place of the terms that come again, line by line. Those with dates stay.
std::string SetWeek(CScheduleSetting& schedule, const std::string& lines) {
    std::istringstream stream(lines);
    CScheduleSetting after;
    const auto add = [&after](const CTerm& term) {
        if (after.AddNewTerm(&term) < 0) throw CommandError(kBroken, Tr("not enough memory"));
    };
    for (std::string line; std::getline(stream, line);) {
        for (const CTerm& term : ParseTerms(line)) add(term);
    }
    for (const auto& term : schedule.terms) {
        if (term->kind == TERM_DEFINED_TERM) add(*term);
    }
    schedule = after;
    std::string said;
    for (std::size_t i = 0; i < schedule.terms.size(); ++i) said += Line(i + 1, *schedule.terms[i]);
    return said + WhatRemains(schedule);
}

std::string Change(CScheduleSetting& schedule, const EditRequest& request) {
    switch (request.verb) {
        case EditVerb::Add:
            return AddTerms(schedule, request.terms);
        case EditVerb::Set:
            return SetWeek(schedule, request.terms);
        case EditVerb::Remove:
            return RemoveTerms(schedule, request);
        case EditVerb::SwitchOn:
        case EditVerb::SwitchOff:
            return SwitchTerms(schedule, request);
        default:
            break;
    }
    throw CommandError(kBadUsage, Tr("there is no edit \"{0}\"", EditName(request)));
}

}  // namespace

std::string EditSchedule(CForwardAddress& forward, const EditRequest& request, Saved& saved) {
    CScheduleSetting changed(forward.schedule);
    std::string said = Change(changed, request);
    // The file has one number for "on", but each other than 0 counts as that.
    for (const auto& term : changed.terms) term->status = term->status != 0 ? 1 : 0;
    saved = Save(changed, forward.path);
    if (saved != Saved::No) forward.schedule = changed;
    return said;
}

}  // namespace tarvex::host
