#pragma once

// The terms of a schedule as people write them, and what a stored term will do, in words.

#include <array>
#include <bitset>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarvex/schedule.h"

namespace tarvex::host {

// "mon-fri 9:00-17:30", "sat,sun 10:00-12:00", "daily 22:00-6:00", "2026-12-24 18:00 .. 2026-12-26 9:00". One term for
// each day of the week that is named, switched on. Throws CommandError that says how to write it.
std::vector<CTerm> ParseTerms(std::string_view text);

// How the term would be written, "?" for one that cannot be written so.
std::string WriteTerm(const CTerm& term);

// When the term lets its address take part, in a sentence that also tells the surprising cases.
std::string DescribeTerm(const CTerm& term);

// A week by half hours, from Sunday 0:00.
inline constexpr std::size_t kSlotsADay = 48;
using Week = std::array<std::bitset<kSlotsADay>, 7>;

// What the terms without dates say that are switched on; a half hour counts when a part of it does. Nothing where one
// of them has no simple words.
std::optional<Week> WeekOf(const CScheduleSetting& schedule);

// Whether the week says all that they do: they begin and end at half hours.
bool IsWholeWeek(const CScheduleSetting& schedule);

// The terms that say the same, none for a week without a gap.
std::vector<CTerm> TermsOfWeek(const Week& week);

}  // namespace tarvex::host
