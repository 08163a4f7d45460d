#pragma once

// The tables of the history that hold who changed what in the tree. All throw DatabaseError and std::bad_alloc.

#include <cstdint>
#include <string>
#include <vector>

#include "host/history/database.h"
#include "tarvex/text.h"

namespace tarvex::host {

inline constexpr const char* kEditSchema = R"(
CREATE TABLE edits (
  id INTEGER PRIMARY KEY,
  made INTEGER NOT NULL,                      -- seconds since 1970
  uid INTEGER NOT NULL,                       -- as whom, by the system; -1: not known
  user TEXT NOT NULL,                         -- that one's name
  caller TEXT NOT NULL,                       -- who had that done by the command, where it is another
  command TEXT NOT NULL,                      -- profile set
  name TEXT NOT NULL);                        -- of what: user0/from0; empty: of the tree
CREATE TABLE edit_changes (
  edit INTEGER NOT NULL REFERENCES edits ON DELETE CASCADE,
  place INTEGER NOT NULL,
  key TEXT NOT NULL,
  before TEXT NOT NULL,
  after TEXT NOT NULL,
  PRIMARY KEY (edit, place)) WITHOUT ROWID;
)";

// Of whom the system says that it changes something, and who that is done for.
struct EditedBy {
    std::int64_t uid = -1;  // -1: not known
    std::string user;       // UTF-8, as the two below
    std::string caller;     // by the command's own words; empty where it is the same
};

struct EditedKey {
    std::string key;
    std::string before;  // as a person reads it, in UTF-8; of a secret nothing
    std::string after;

    bool operator==(const EditedKey&) const = default;
};

struct MadeEdit {
    CTime made = 0;
    EditedBy by;
    std::string command;  // "profile set"
    std::string name;     // user0/from0; empty: the tree
    std::vector<EditedKey> keys;
};

void InsertEdit(Database& database, const MadeEdit& edit);

// Removes a few of the oldest that are older than `oldest`. False when there are none.
bool DropOldEdits(Database& database, CTime oldest);

struct HistorySearch {
    std::string name;  // user0, user0/from0 or user0/from0/forwardto0: also what is below; empty: all
    CTime since = 0;
    std::size_t most = 20;
};

// The newest first, `most` at most.
std::vector<MadeEdit> FindEdits(Database& database, const HistorySearch& search);

}  // namespace tarvex::host
