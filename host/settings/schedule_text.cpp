// Terms of a schedule: from the words people write, and into words that say what a term does.

#include "host/settings/schedule_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <optional>
#include <tuple>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/typed_word.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr std::array<std::string_view, 7> kDays = {Marked("Sunday"),    Marked("Monday"),   Marked("Tuesday"),
                                                   Marked("Wednesday"), Marked("Thursday"), Marked("Friday"),
                                                   Marked("Saturday")};
constexpr int kDaysAWeek = 7;
constexpr int kDayMinutes = 24 * 60;

// A moment as a term has it; without a date in a term that comes again.
struct Moment {
    int year = 0, month = 0, day = 0, minute = 0;  // the minutes since midnight, up to 24:00

    bool HasDate() const { return year != 0; }
    bool operator==(const Moment&) const = default;
    bool operator<(const Moment& other) const {
        return std::tie(year, month, day, minute) < std::tie(other.year, other.month, other.day, other.minute);
    }
};

[[noreturn]] void Refuse(std::string_view text, const std::string& why) {
    throw CommandError(kBadUsage, Tr("{0} is not a term: {1}; write it like \"mon-fri 9:00-17:30\", \"daily "
                                     "22:00-6:00\" or \"2026-12-24 18:00 .. 2026-12-26 9:00\"",
                                     Quoted(text), why));
}

std::string_view Trim(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    while (text.ends_with(' ')) text.remove_suffix(1);
    return text;
}

std::optional<int> Number(std::string_view text) {
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (text.empty() || error != std::errc() || rest != end || number < 0 || text.front() == '-') return std::nullopt;
    return number;
}

// ---- reading

// "9:00"; 24:00 ends a day.
std::optional<int> TimeOfDay(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || text.size() - colon != 3) return std::nullopt;
    const std::optional<int> hour = Number(text.substr(0, colon));
    const std::optional<int> minute = Number(text.substr(colon + 1));
    if (!hour || !minute || *minute > 59) return std::nullopt;
    const int minutes = *hour * 60 + *minute;
    return *hour <= 24 && minutes <= kDayMinutes ? std::optional(minutes) : std::nullopt;
}

// "2026-12-24"
std::optional<Moment> Date(std::string_view text) {
    if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
    const std::optional<int> year = Number(text.substr(0, 4));
    const std::optional<int> month = Number(text.substr(5, 2));
    const std::optional<int> day = Number(text.substr(8));
    if (!year || !month || !day || *year == 0) return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year(*year), std::chrono::month(static_cast<unsigned>(*month)),
                                           std::chrono::day(static_cast<unsigned>(*day))};
    return date.ok() ? std::optional(Moment{*year, *month, *day, 0}) : std::nullopt;
}

// A date, a time, or both; the date that is left out is that of `base`, the time the minute of `base`.
std::optional<Moment> DateAndTime(std::string_view text, const Moment& base) {
    const std::size_t blank = text.find(' ');
    if (blank == std::string_view::npos) {
        if (const auto date = Date(text)) return Moment{date->year, date->month, date->day, base.minute};
        const auto minute = TimeOfDay(text);
        return minute && base.HasDate() ? std::optional(Moment{base.year, base.month, base.day, *minute})
                                        : std::nullopt;
    }
    const auto date = Date(text.substr(0, blank));
    const auto minute = TimeOfDay(Trim(text.substr(blank)));
    return date && minute ? std::optional(Moment{date->year, date->month, date->day, *minute}) : std::nullopt;
}

// 0 = Sunday; nothing for a word that is no day.
std::optional<int> Day(std::string_view word) {
    for (int day = 0; day < kDaysAWeek; ++day) {
        const std::string name = Lower(kDays[static_cast<std::size_t>(day)]);
        if (word.size() >= 3 && name.starts_with(word)) return day;
    }
    return std::nullopt;
}

// The kinds of the terms for "mon-fri,sun"; empty for a word that says no days.
std::vector<int> Kinds(std::string_view word) {
    if (word == "daily") return {TERM_EVERY_DAY};
    if (word == "weekdays") word = "mon-fri";
    if (word == "weekends") word = "sat,sun";
    std::vector<int> kinds;
    while (!word.empty()) {
        const std::string_view range = word.substr(0, word.find(','));
        word.remove_prefix(std::min(word.size(), range.size() + 1));
        const std::size_t hyphen = range.find('-');
        const std::optional<int> first = Day(range.substr(0, hyphen));
        const std::optional<int> last = hyphen == std::string_view::npos ? first : Day(range.substr(hyphen + 1));
        if (!first || !last) return {};
        for (int day = *first;; day = (day + 1) % kDaysAWeek) {
            const int kind = TERM_EVERY_SUN + day;
            if (std::ranges::find(kinds, kind) == kinds.end()) kinds.push_back(kind);
            if (day == *last) break;
        }
    }
    return kinds;
}

// ---- the text in the file

std::string FileText(const Moment& moment) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%d,%d,%d,%d,%d,0", moment.year, moment.month, moment.day,
                  moment.minute / 60, moment.minute % 60);
    return text.data();
}

// Nothing for a text that this program would not write: it may be read in ways that have no simple words.
std::optional<Moment> FromFileText(std::string_view text) {
    std::array<int, 6> parts{};
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const std::size_t comma = text.find(',');
        if ((comma == std::string_view::npos) != (i + 1 == parts.size())) return std::nullopt;
        const std::optional<int> part = Number(text.substr(0, comma));
        if (!part) return std::nullopt;
        parts[i] = *part;
        text.remove_prefix(std::min(text.size(), comma == std::string_view::npos ? text.size() : comma + 1));
    }
    const auto [year, month, day, hour, minute, second] = parts;
    const bool no_date = year == 0 && month == 0 && day == 0;
    const bool whole_date = year != 0 && month >= 1 && month <= 12 && day >= 1 && day <= 31;
    if (minute > 59 || hour > 24 || hour * 60 + minute > kDayMinutes || !(no_date || whole_date)) return std::nullopt;
    return Moment{year, month, day, hour * 60 + minute};
}

std::string Clock(int minute) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%d:%02d", minute / 60, minute % 60);
    return text.data();
}

std::string DateText(const Moment& moment) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %s", moment.year, moment.month, moment.day,
                  Clock(moment.minute).c_str());
    return text.data();
}

struct Span {
    Moment start, end;
};

// The span of a term that this program could have written.
std::optional<Span> SpanOf(const CTerm& term) {
    const std::optional<Moment> start = FromFileText(term.start);
    const std::optional<Moment> end = FromFileText(term.end);
    if (!start || !end) return std::nullopt;
    const bool dated = term.kind == TERM_DEFINED_TERM;
    if (start->HasDate() != dated || end->HasDate() != dated) return std::nullopt;
    return Span{*start, *end};
}

bool IsWeekday(int kind) { return kind >= TERM_EVERY_SUN && kind <= TERM_EVERY_SAT; }

std::string DayName(int kind) { return std::string(kDays[static_cast<std::size_t>(kind - TERM_EVERY_SUN)]); }
std::string DayAfter(int kind) { return DayName(kind == TERM_EVERY_SAT ? TERM_EVERY_SUN : kind + 1); }
std::string ShortDay(const std::string& name) { return Lower(name).substr(0, 3); }

// ---- words

std::string DescribeDaily(int start, int end) {
    if (start == end || end - start == kDayMinutes) return Tr("always");
    if (start < end) return Tr("every day from {0} to {1}", Clock(start), Clock(end));
    if (end == 0) return Tr("every day from {0} to midnight", Clock(start));
    return Tr("every day from {0} over midnight to {1}", Clock(start), Clock(end));
}

std::string DescribeWeekday(int kind, int start, int end) {
    const std::string day = Tr(DayName(kind).c_str());
    if (end - start == kDayMinutes) return Tr("every {0}, all day", day);
    if (start < end) return Tr("every {0} from {1} to {2}", day, Clock(start), Clock(end));
    if (end == 0) return Tr("every {0} from {1} to midnight", day, Clock(start));
    if (kind == TERM_EVERY_FRI) {
        return Tr(
            "every {0} from {1} to midnight, and not on Saturday: a Friday term ends at midnight, whatever its end "
            "says. For the rest add \"sat 0:00-{2}\"",
            day, Clock(start), Clock(end));
    }
    return Tr("every {0} from {1} to midnight, and every {2} from midnight to {3}", day, Clock(start),
              Tr(DayAfter(kind).c_str()), Clock(end));
}

std::string DescribeOn(const CTerm& term) {
    if (term.kind != TERM_EVERY_DAY && term.kind != TERM_DEFINED_TERM && !IsWeekday(term.kind))
        return Tr("never: its kind is unknown");
    const std::optional<Span> span = SpanOf(term);
    if (!span) {
        return Tr("in an unusual form (start {0}, end {1}), which has no simple words; add it anew",
                  ShowText(term.start), ShowText(term.end));
    }
    const auto& [start, end] = *span;
    if (term.kind == TERM_EVERY_DAY) return DescribeDaily(start.minute, end.minute);
    if (IsWeekday(term.kind)) return DescribeWeekday(term.kind, start.minute, end.minute);
    if (!(start < end)) return Tr("never: it ends before it begins");
    return Tr("once, from {0} to {1}", DateText(start), DateText(end));
}

constexpr int kSlot_minutes = kDayMinutes / static_cast<int>(kSlotsADay);

CTerm MadeTerm(int kind, const Moment& start, const Moment& end) {
    CTerm term;
    term.status = 1;
    term.kind = kind;
    term.start = FileText(start);
    term.end = FileText(end);
    return term;
}

bool CountsForWeek(const CTerm& term) {
    return term.status != 0 && (term.kind == TERM_EVERY_DAY || IsWeekday(term.kind));
}

void Mark(Week& week, int day, int start, int end) {
    for (int slot = start / kSlot_minutes; slot * kSlot_minutes < end; ++slot)
        week[static_cast<std::size_t>(day % kDaysAWeek)].set(static_cast<std::size_t>(slot));
}

void MarkTerm(Week& week, int kind, int start, int end) {
    if (kind == TERM_EVERY_DAY) {
        for (int day = 0; day < kDaysAWeek; ++day) {
            if (start == end) Mark(week, day, 0, kDayMinutes);
            Mark(week, day, start < end ? start : 0, end);
            if (start > end) Mark(week, day, start, kDayMinutes);
        }
        return;
    }
    const int day = kind - TERM_EVERY_SUN;
    if (start < end) return Mark(week, day, start, end);
    Mark(week, day, start, kDayMinutes);
    if (kind != TERM_EVERY_FRI) Mark(week, day + 1, 0, end);  // see DescribeWeekday
}

// The spans of a day, by their first and last slots.
std::vector<std::pair<int, int>> SpansOf(const std::bitset<kSlotsADay>& day) {
    std::vector<std::pair<int, int>> spans;
    for (std::size_t slot = 0; slot < kSlotsADay; ++slot) {
        if (!day.test(slot)) continue;
        const std::size_t first = slot;
        while (slot < kSlotsADay && day.test(slot)) ++slot;
        spans.emplace_back(static_cast<int>(first), static_cast<int>(slot));
    }
    return spans;
}

}  // namespace

std::optional<Week> WeekOf(const CScheduleSetting& schedule) {
    Week week;
    for (const auto& term : schedule.terms) {
        if (!CountsForWeek(*term)) continue;
        const auto span = SpanOf(*term);
        if (!span) return std::nullopt;
        MarkTerm(week, term->kind, span->start.minute, span->end.minute);
    }
    if (schedule.terms.empty()) week.fill(std::bitset<kSlotsADay>().set());
    return week;
}

bool IsWholeWeek(const CScheduleSetting& schedule) {
    return std::ranges::all_of(schedule.terms, [](const auto& term) {
        if (!CountsForWeek(*term)) return true;
        const auto span = SpanOf(*term);
        return span && span->start.minute % kSlot_minutes == 0 && span->end.minute % kSlot_minutes == 0;
    });
}

std::vector<CTerm> TermsOfWeek(const Week& week) {
    std::vector<CTerm> terms;
    const bool is_daily = std::ranges::all_of(week, [&](const auto& day) { return day == week.front(); });
    if (is_daily && week.front().all()) return terms;
    for (int day = 0; day < (is_daily ? 1 : kDaysAWeek); ++day) {
        for (const auto& [first, last] : SpansOf(week[static_cast<std::size_t>(day)])) {
            terms.push_back(MadeTerm(is_daily ? TERM_EVERY_DAY : TERM_EVERY_SUN + day,
                                     Moment{0, 0, 0, first * kSlot_minutes}, Moment{0, 0, 0, last * kSlot_minutes}));
        }
    }
    return terms;
}

std::vector<CTerm> ParseTerms(std::string_view text) {
    const std::string lower = Lower(Trim(text));
    const std::string_view view = lower;
    if (const std::size_t dots = view.find(".."); dots != std::string_view::npos) {
        const auto start = DateAndTime(Trim(view.substr(0, dots)), Moment{});
        if (!start) Refuse(text, Tr("it does not begin with a date"));
        const auto end =
            DateAndTime(Trim(view.substr(dots + 2)), Moment{start->year, start->month, start->day, kDayMinutes});
        if (!end) Refuse(text, Tr("it does not end with a date or a time"));
        if (!(*start < *end)) Refuse(text, Tr("it ends before it begins, and would never hold"));
        return {MadeTerm(TERM_DEFINED_TERM, *start, *end)};
    }

    const std::string_view days = view.substr(0, view.find(' '));
    const std::vector<int> kinds = Kinds(days);
    if (kinds.empty()) Refuse(text, Tr("it does not begin with days"));
    std::string times(Trim(view.substr(days.size())));
    std::erase(times, ' ');
    if (times.empty()) times = "0:00-24:00";
    const std::size_t hyphen = times.find('-');
    const auto start = TimeOfDay(std::string_view(times).substr(0, hyphen));
    const auto end = hyphen == std::string::npos ? std::nullopt : TimeOfDay(std::string_view(times).substr(hyphen + 1));
    if (!start || *start == kDayMinutes) Refuse(text, Tr("no time to begin at"));
    if (!end) Refuse(text, Tr("no time to end at"));

    std::vector<CTerm> terms;
    terms.reserve(kinds.size());
    for (const int kind : kinds) terms.push_back(MadeTerm(kind, Moment{0, 0, 0, *start}, Moment{0, 0, 0, *end}));
    return terms;
}

std::string WriteTerm(const CTerm& term) {
    const std::optional<Span> span = SpanOf(term);
    if (!span) return "?";
    if (term.kind == TERM_DEFINED_TERM) return DateText(span->start) + " .. " + DateText(span->end);
    const std::string times = ' ' + Clock(span->start.minute) + '-' + Clock(span->end.minute);
    if (term.kind == TERM_EVERY_DAY) return "daily" + times;
    return IsWeekday(term.kind) ? ShortDay(DayName(term.kind)) + times : "?";
}

std::string DescribeTerm(const CTerm& term) {
    return term.status == 0 ? Tr("(switched off) {0}", DescribeOn(term)) : DescribeOn(term);
}

}  // namespace tarvex::host
