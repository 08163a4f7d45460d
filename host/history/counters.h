#pragma once

// Totals of what the runs of a root did: of each profile by its path, and of the whole tree. They only grow. A profile
// that is removed leaves what it did in the tree's totals, and one that is made under its path goes on from there.

#include <compare>
#include <cstdint>
#include <map>
#include <string>

#include "host/history/database.h"
#include "tarvex/result.h"

namespace tarvex::host {

inline constexpr const char* kCounterSchema = R"(
CREATE TABLE counters (
  profile TEXT NOT NULL,                      -- user0/from0; empty: the whole tree
  name TEXT NOT NULL,
  label TEXT NOT NULL,
  value INTEGER NOT NULL,
  PRIMARY KEY (profile, name, label)) WITHOUT ROWID
)";

struct CounterName {
    std::string profile;  // user0/from0; empty: the whole tree
    std::string name;     // see CountRun
    std::string label;    // of a kind of its own for each name; empty where there is but one

    auto operator<=>(const CounterName&) const = default;  // NOLINT(modernize-use-nullptr): there is none
};

using Counters = std::map<CounterName, std::int64_t>;

// What a run adds, for its profile and for the tree:
//
//     runs                 by their ending, as Word says it
//     refusals             by stage and class: "RCPT TO/permanent"
//     messages_fetched, messages_not_fetched, messages_delivered, copies, copies_set_aside,
//     bytes_received, bytes_sent
//     run_seconds          runs of the tree by the shortest of kRunSeconds that they did not exceed
//     run_milliseconds     that they took all together, of the tree
void CountRun(Counters& counters, const std::string& profile, std::int64_t milliseconds, const CRunResult& result);

inline constexpr double kRunSeconds[] = {0.1, 0.25, 0.5, 1, 2.5, 5, 10, 30, 60, 300, 1800};
std::string RunSecondsLabel(double seconds);  // "0.25"
inline constexpr const char* kLongerRuns = "+Inf";

void AddTo(Counters& sum, const Counters& counters);

// No counter stays below what it was.
void KeepAtLeast(Counters& counters, const Counters& before);

// All that the database holds. Throws DatabaseError.
Counters ReadCounters(Database& database);

// Adds to what it holds, or lets it hold at least so much. Throw DatabaseError.
void WriteMore(Database& database, const Counters& more);
void WriteAtLeast(Database& database, const Counters& counters);

}  // namespace tarvex::host
