#pragma once

// Which of what is wrong a reader is told now. One alert tells of all there is at that moment:
//
//     wrong     not told yet     waits until a minute brings nothing more, a quarter of an hour at most, and until an
//                                hour has passed since the last alert with something new
//     right     told             "good again"; waits likewise, but ten minutes after any alert will do
//     wrong     told             once a day
//     right     not told         nothing
//
// So a storm is one alert, and what comes and goes all day is one an hour at most.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/alerts/problems.h"

namespace tarvex::host {

inline constexpr CTime kQuiet_s = 60;
inline constexpr CTime kLongestGathering_s = CTime{15} * 60;
inline constexpr CTime kBetweenNews_s = CTime{60} * 60;
inline constexpr CTime kBeforeGoodAgain_s = CTime{10} * 60;
inline constexpr CTime kReminder_s = CTime{24} * 60 * 60;
inline constexpr CTime kFirstRetry_s = 60;
inline constexpr CTime kLongestRetry_s = CTime{60} * 60;

// What is remembered of a reader, also after a restart.
struct ReaderState {
    std::map<ProblemKey, CTime> told;  // since when it is wrong
    CTime last_alert = 0;              // 0: none yet
    CTime last_news = 0;               // the last alert with something new
    // Of an alert that does not go out.
    int tries = 0;
    CTime failing_since = 0;
    CTime next_try = 0;
    std::string words;  // why

    bool operator==(const ReaderState&) const = default;
};

// What a process has seen coming, and has not told yet. Losing it makes an alert a minute late.
struct Gathering {
    std::set<ProblemKey> wrong;
    std::set<ProblemKey> right;
    CTime first = 0;
    CTime last = 0;
};

struct Alert {
    std::vector<FoundProblem> news;
    std::vector<FoundProblem> lasting;  // told before
    std::map<ProblemKey, CTime> over;   // since when it was wrong
};

// `known`: the profiles that there are; what was told of others is forgotten. `whole`: whether all there is could be
// looked at; else nothing counts as good again. `quiet_s`: for how long nothing more must come before something is
// told; 0: at once, for there is no next time soon.
struct Situation {
    std::vector<FoundProblem> wrong;
    std::set<std::string> known;
    bool whole = true;
    CTime quiet_s = kQuiet_s;
};

std::optional<Alert> AlertFor(const Situation& situation, ReaderState& state, Gathering& gathering, CTime now);

// What follows from its having been sent, or not (`why`).
void WasSent(const Alert& alert, ReaderState& state, CTime now);
void WasNotSent(const std::string& why, ReaderState& state, CTime now);

}  // namespace tarvex::host
