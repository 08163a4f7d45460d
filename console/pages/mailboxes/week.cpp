// A week in words, as a picture, and as a form.

#include "console/pages/mailboxes/week.h"

#include <algorithm>
#include <string_view>

#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Marked;
using host::Tr;

constexpr std::size_t kSlots = 48;
constexpr std::size_t kSlotsBetweenHeads = 12;
constexpr std::array<std::size_t, 7> kFromMonday = {1, 2, 3, 4, 5, 6, 0};
constexpr std::array kShortDays{Marked("Sun"), Marked("Mon"), Marked("Tue"), Marked("Wed"),
                                Marked("Thu"), Marked("Fri"), Marked("Sat")};
constexpr std::array kDays{Marked("Sunday"),   Marked("Monday"), Marked("Tuesday"), Marked("Wednesday"),
                           Marked("Thursday"), Marked("Friday"), Marked("Saturday")};

struct UsualWeek {
    std::string_view name;
    const char* text;
    std::string_view days;  // of them, Sunday first
    std::size_t first, last;
};
constexpr std::array kUsualWeeks{
    UsualWeek{"always", Marked("Always"), "1111111", 0, kSlots},
    UsualWeek{"office", Marked("Mon-Fri 9:00-18:00"), "0111110", 18, 36},
    UsualWeek{"workdays", Marked("Mon-Fri all day"), "0111110", 0, kSlots},
    UsualWeek{"waking", Marked("Daily 7:00-22:00"), "1111111", 14, 44},
};

std::string Clock(std::size_t slot) { return std::to_string(slot / 2) + (slot % 2 ? ":30" : ":00"); }

struct Span {
    std::size_t first, last;
};

// Where a day is on.
std::vector<Span> SpansOf(const std::string& day) {
    std::vector<Span> spans;
    for (std::size_t slot = 0; slot < kSlots; ++slot) {
        if (day[slot] != '1') continue;
        const std::size_t first = slot;
        while (slot < kSlots && day[slot] == '1') ++slot;
        spans.push_back({first, slot});
    }
    return spans;
}

std::string Joined(const std::vector<std::string>& words, const std::string& between) {
    std::string all;
    for (const std::string& word : words) all += (all.empty() ? "" : between) + word;
    return all;
}

std::string DayInWords(const std::string& day) {
    std::vector<std::string> words;
    for (const auto& [first, last] : SpansOf(day)) {
        if (last - first == kSlots) return Tr("all day");
        words.push_back(Tr("{0}-{1}", Clock(first), Clock(last)));
    }
    return Joined(words, Tr(", "));
}

std::string DaysInWords(std::size_t from, std::size_t to) {
    if (to - from == kFromMonday.size()) return Tr("every day");
    const std::string first = Tr(kShortDays[kFromMonday[from]]);
    return to - from == 1 ? first : Tr("{0}-{1}", first, Tr(kShortDays[kFromMonday[to - 1]]));
}

Html Slot(std::size_t day, std::size_t slot, bool is_on) {
    return El("td", {},
              {El("input", {{"type", "checkbox"},
                            {"name", "slot"},
                            {"value", std::to_string(day) + '-' + std::to_string(slot)},
                            {"checked", is_on},
                            {"aria-label", Tr(kDays[day]) + ' ' + Clock(slot)}})});
}

WeekDays EmptyWeek() {
    WeekDays week;
    week.fill(std::string(kSlots, '0'));
    return week;
}

}  // namespace

std::optional<WeekDays> WeekIn(const Json& days) {
    WeekDays week;
    if (!days.is_array() || days.size() != week.size()) return std::nullopt;
    for (std::size_t i = 0; i < week.size(); ++i) {
        if (!days[i].is_string()) return std::nullopt;
        week[i] = days[i].get<std::string>();
        if (week[i].size() != kSlots) return std::nullopt;
    }
    return week;
}

std::string WeekInWords(const WeekDays& week) {
    std::vector<std::string> words;
    for (std::size_t from = 0; from < kFromMonday.size();) {
        const std::string& day = week[kFromMonday[from]];
        std::size_t to = from + 1;
        while (to < kFromMonday.size() && week[kFromMonday[to]] == day) ++to;
        if (to - from == kFromMonday.size() && day == std::string(kSlots, '1')) return Tr("always");
        if (const std::string times = DayInWords(day); !times.empty())
            words.push_back(Tr("{0} {1}", DaysInWords(from, to), times));
        from = to;
    }
    return words.empty() ? Tr("at no time of the week") : Joined(words, Tr("; "));
}

Html WeekPicture(const WeekDays& week) {
    Html picture;
    for (std::size_t row = 0; row < kFromMonday.size(); ++row) {
        picture += El("rect", {{"class", "day"}, {"x", 0}, {"y", row * 10}, {"width", kSlots * 2}, {"height", 8}});
        for (const auto& [first, last] : SpansOf(week[kFromMonday[row]]))
            picture +=
                El("rect",
                   {{"class", "on"}, {"x", first * 2}, {"y", row * 10}, {"width", (last - first) * 2}, {"height", 8}});
    }
    for (const std::size_t hour : {6, 12, 18})
        picture += El("rect", {{"class", "hour"}, {"x", hour * 4}, {"y", 0}, {"width", "0.3"}, {"height", 68}});
    return El("svg",
              {{"class", "week"},
               {"viewbox", "0 0 96 68"},
               {"preserveaspectratio", "none"},
               {"role", "img"},
               {"aria-label", WeekInWords(week)}},
              {picture});
}

Html WeekGrid(const WeekDays& week) {
    Html days = El("th", {{"scope", "col"}}, {Tr("Time")});
    for (const std::size_t day : kFromMonday)
        days += El("th", {{"scope", "col"}}, {El("abbr", {{"title", Tr(kDays[day])}}, {Tr(kShortDays[day])})});
    days = El("tr", {{"class", "days"}}, {days});
    Html rows;
    for (std::size_t slot = 0; slot < kSlots; ++slot) {
        if (slot > 0 && slot % kSlotsBetweenHeads == 0) rows += days;  // the days stay in sight on a small screen
        Html cells = El("th", {{"scope", "row"}}, {Clock(slot)});
        for (const std::size_t day : kFromMonday) cells += Slot(day, slot, week[day][slot] == '1');
        rows += El("tr", {{"class", slot % 2 ? "half" : "full"}}, {cells});
    }
    return El("table", {{"class", "grid"}, {"data-grid", ""}}, {El("thead", {}, {days}), El("tbody", {}, {rows})});
}

WeekDays WeekOfForm(const HttpRequest& request) {
    WeekDays week = EmptyWeek();
    const auto* const usual = std::ranges::find(kUsualWeeks, request.Form("usual"), &UsualWeek::name);
    if (usual != kUsualWeeks.end()) {
        for (std::size_t day = 0; day < week.size(); ++day)
            if (usual->days[day] == '1')
                week[day].replace(usual->first, usual->last - usual->first, usual->last - usual->first, '1');
        return week;
    }
    for (const std::string_view slot : AllOf(request.form, "slot")) {
        constexpr std::size_t kDash = 1;
        if (slot.size() < 3 || slot[kDash] != '-') continue;
        const auto day = static_cast<std::size_t>(NumberIn(slot.substr(0, kDash), -1));
        const auto number = static_cast<std::size_t>(NumberIn(slot.substr(kDash + 1), -1));
        if (day < week.size() && number < kSlots) week[day][number] = '1';
    }
    return week;
}

Html UsualWeeks() {
    Html buttons;
    for (const UsualWeek& usual : kUsualWeeks)
        buttons += El("button", {{"name", "usual"}, {"value", usual.name}}, {Tr(usual.text)});
    return El("p", {{"class", "row"}}, {buttons});
}

}  // namespace tarvex::console
