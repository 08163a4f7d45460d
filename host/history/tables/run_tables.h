#pragma once

// The tables of the history that hold the runs of each profile, and its totals. All throw DatabaseError and
// std::bad_alloc.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/history/database.h"
#include "host/history/tables/edit_tables.h"
#include "tarvex/result.h"
#include "tarvex/text.h"

namespace tarvex::host {

inline constexpr const char* kRunSchema = R"(
CREATE TABLE root (directory TEXT NOT NULL);
INSERT INTO root VALUES ('');
CREATE TABLE profiles (
  id INTEGER PRIMARY KEY,
  path TEXT NOT NULL,                         -- user0/from0
  directory TEXT NOT NULL,                    -- which directory that is; empty: not known
  gone INTEGER,                               -- when another had taken its place
  runs INTEGER NOT NULL DEFAULT 0,
  failed INTEGER NOT NULL DEFAULT 0,
  failed_in_a_row INTEGER NOT NULL DEFAULT 0,
  failing_since INTEGER NOT NULL DEFAULT 0,   -- moments are seconds since 1970
  last_good INTEGER NOT NULL DEFAULT 0,
  fetched INTEGER NOT NULL DEFAULT 0,
  not_fetched INTEGER NOT NULL DEFAULT 0,
  delivered INTEGER NOT NULL DEFAULT 0,
  copies INTEGER NOT NULL DEFAULT 0,
  bytes_received INTEGER NOT NULL DEFAULT 0,
  bytes_sent INTEGER NOT NULL DEFAULT 0);
CREATE UNIQUE INDEX profiles_by_path ON profiles (path) WHERE gone IS NULL;
CREATE TABLE runs (
  id INTEGER PRIMARY KEY,
  profile INTEGER NOT NULL REFERENCES profiles ON DELETE CASCADE,
  started INTEGER NOT NULL,
  ended INTEGER NOT NULL,
  ending TEXT NOT NULL,
  quiet INTEGER NOT NULL,                     -- nothing happened, and nothing went wrong
  listed INTEGER NOT NULL,
  fetched INTEGER NOT NULL,
  not_fetched INTEGER NOT NULL,
  delivered INTEGER NOT NULL,
  copies INTEGER NOT NULL,
  bytes_received INTEGER NOT NULL,
  bytes_sent INTEGER NOT NULL,
  lists TEXT NOT NULL,                        -- how far they were saved
  log TEXT NOT NULL,
  settings TEXT NOT NULL,
  exception TEXT NOT NULL);
CREATE INDEX runs_by_profile ON runs (profile);
CREATE INDEX runs_by_end ON runs (ended);
CREATE TABLE failures (                       -- texts of servers are bytes, as they came
  run INTEGER NOT NULL REFERENCES runs ON DELETE CASCADE,
  conversation TEXT NOT NULL,                 -- mailbox or delivery
  stage TEXT NOT NULL,
  class TEXT NOT NULL,
  reply TEXT NOT NULL,
  reason TEXT NOT NULL,
  uidl TEXT NOT NULL,
  sender TEXT NOT NULL,
  recipient TEXT NOT NULL,
  PRIMARY KEY (run, conversation)) WITHOUT ROWID;
CREATE TABLE not_fetched (
  run INTEGER NOT NULL REFERENCES runs ON DELETE CASCADE,
  place INTEGER NOT NULL,
  uidl TEXT NOT NULL,
  class TEXT NOT NULL,
  reply TEXT NOT NULL,
  reason TEXT NOT NULL,
  PRIMARY KEY (run, place)) WITHOUT ROWID;
CREATE TABLE copies (                         -- of the addresses that got some, or whose list could not be saved
  run INTEGER NOT NULL REFERENCES runs ON DELETE CASCADE,
  place INTEGER NOT NULL,
  path TEXT NOT NULL,
  address TEXT NOT NULL,
  copies INTEGER NOT NULL,
  list TEXT NOT NULL,
  PRIMARY KEY (run, place)) WITHOUT ROWID;
)";

inline constexpr const char* kRuledRunSchema = R"(
ALTER TABLE runs ADD COLUMN put_off INTEGER NOT NULL DEFAULT 0;   -- messages that a rule left for a later run
ALTER TABLE runs ADD COLUMN set_aside INTEGER NOT NULL DEFAULT 0; -- copies
)";

struct PastRun {
    CTime started = 0;
    CTime ended = 0;
    CRunResult result;
    std::int64_t milliseconds = 0;  // that it took; 0: not known more exactly. Not stored
};

// What the runs of a profile did since it was made.
struct ProfileTotals {
    std::int64_t runs = 0;
    std::int64_t failed = 0;
    std::int64_t failed_in_a_row = 0;
    CTime failing_since = 0;  // start of the first of them; 0 when the last run did not fail
    CTime last_good = 0;      // start of the last run that did not fail; 0 for none
    std::int64_t fetched = 0;
    std::int64_t not_fetched = 0;
    std::int64_t delivered = 0;  // messages, to all their addresses
    std::int64_t copies = 0;
    std::int64_t bytes_received = 0;
    std::int64_t bytes_sent = 0;
};

struct KnownProfile {
    std::string directory;  // which directory it was
    ProfileTotals totals;
};
using KnownProfiles = std::map<std::string, KnownProfile>;  // by path: user0/from0

inline constexpr int kKeptRuns = 1000;
inline constexpr int kKeptDays = 90;

// Long answers to many commands, over many runs, must fill neither the disk nor the memory of those that wait for it.
void Shorten(CRunResult& result);

void InsertEnded(Database& database, std::int64_t profile, const PastRun& run);

ProfileTotals ReadTotals(Database& database, std::int64_t profile);
PastRun ReadLastRun(Database& database, std::int64_t profile);

// Those that are there, and not in the place of another.
KnownProfiles ReadProfiles(Database& database);
void WriteProfiles(Database& database, const KnownProfiles& profiles);

struct FoundRun {
    std::string profile;
    PastRun run;
};

// Of those that are kept the newest first, `most` at most; without the quiet ones.
std::vector<FoundRun> FindRuns(Database& database, const HistorySearch& search);

}  // namespace tarvex::host
