#pragma once

// What readers were told, in ROOT/.tarvex/alerts.db (SQLite). One process writes it, the holder of the root's lock; it
// belongs to one thread at a time. Losing it costs one alert more. While it cannot be written, all is kept in memory.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/alerts/decision.h"
#include "host/alerts/readers.h"
#include "host/history/root_database.h"

namespace tarvex::host {

// Throws nothing but std::bad_alloc.
class AlertMemory {
public:
    AlertMemory(std::string root, RootDatabaseWriter::Tell tell);

    // Reads what there is, once it can be read, and forgets all readers but these.
    void Begin(const std::set<std::string>& keys);

    // Stays where it is until the next Begin.
    ReaderState& Of(const std::string& key) { return kept_[key].state; }

    // Writes what has changed.
    void Save();

private:
    struct Kept {
        ReaderState state;
        ReaderState on_disk;
    };

    void Load(Database& database);

    bool loaded_ = false;
    std::map<std::string, Kept> kept_;  // by Reader::Key
    std::set<std::string> gone_;        // to be removed on disk
    RootDatabaseWriter database_;
};

// What readers were told, by Reader::Key. Throws DatabaseError when it cannot be read.
std::map<std::string, ReaderState> ReaderStates(const std::string& root);

// An alert that does not go out.
struct FailingAlert {
    int tries = 0;
    CTime since = 0;
    CTime next_try = 0;
    std::string words;
};

// By Reader::Key. Throws DatabaseError when it cannot be read.
std::map<std::string, FailingAlert> FailingAlerts(const std::string& root);

}  // namespace tarvex::host
