// When the schedule of a forwarding address lets it take part in a run.

#include "engine/schedule.h"

#include <algorithm>

#include "platform/os/clock.h"
#include "tarvex/schedule.h"
#include "tarvex/tree.h"

namespace tarvex {
namespace {

// A weekday term whose end lies before its start runs into the following day.
bool WrappedWeekdayMatches(int kind, CTime start, CTime end, CTime moment, int weekday) {
    if (!(moment > start) && !(moment < end)) return false;
    if (moment > end) return weekday == kind;
    // Days run from 1 to 7. The day after a Saturday term is 1, Sunday; that after a Friday term would be 0, which
    // never comes (B32).
    return weekday == (kind + 1) % 7;
}

}  // namespace

bool TermMatches(int kind, CTime start, CTime end, CTime moment) {
    const bool inside = start < moment && moment < end;
    if (kind == TERM_DEFINED_TERM) return inside;
    if (kind == TERM_EVERY_DAY) return start < end ? inside : moment > start || moment < end;
    if (kind < TERM_EVERY_SUN || kind > TERM_EVERY_SAT) return false;
    const int weekday = ToLocalTime(moment).weekday;
    if (start < end) return inside && weekday == kind;
    return WrappedWeekdayMatches(kind, start, end, moment, weekday);
}

}  // namespace tarvex

using namespace tarvex;

int CForwardAddress::JudgeTakePart(CTime moment) const {
    if (setting.status == 0) return 0;
    if (schedule.terms.empty()) return 1;
    return std::ranges::any_of(schedule.terms, [moment](const auto& term) {
        return term->status != 0 && TermMatches(term->kind, GetCTime(term->start), GetCTime(term->end), moment);
    });
}
