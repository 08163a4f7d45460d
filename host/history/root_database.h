#pragma once

// A database that the host keeps beside a tree: ROOT/.tarvex/NAME.db. One process writes it, the holder of the root's
// lock; others may read meanwhile. Losing it loses no mail, and nothing that goes wrong with it keeps a run from
// anything.
//
// A profile is known by its path in the tree and by which directory that is: one that was removed and made again under
// the same path begins anew. When the root itself is another directory than last time, the whole tree was moved or
// restored: then each path is taken for what it was. So every such database has these tables:
//
//     root (directory), with one row
//     profiles (id, path, directory, gone), and what else is wanted of a profile

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/history/database.h"
#include "tarvex/text.h"

namespace tarvex::host {

struct RootDatabase {
    std::string_view name;      // of the file, without ".db"
    std::string_view contents;  // in words: "the history of runs"
    // Each brings the tables from the version before it to its own, which is its place counted from 1.
    std::span<const char* const> schemas;
};

struct ProfileName {
    std::string path;       // below the root: user0/from0
    std::string directory;  // which directory that is; empty: not known

    auto operator<=>(const ProfileName&) const = default;  // NOLINT(modernize-use-nullptr): there is none
};

ProfileName NameOfProfile(const CString& profile_path);

// Works on such a database for as long as it lives. Belongs to one thread at a time. Throws nothing but
// std::bad_alloc.
class RootDatabaseWriter {
public:
    using Tell = std::function<void(const std::string& sentence)>;
    using Work = std::function<void(Database& database)>;

    // Opens nothing yet. `tell` hears once that something is wrong, and once that it is over. `opened` is done whenever
    // the database was opened, in one transaction with what that takes.
    RootDatabaseWriter(const RootDatabase& kind, std::string root, Tell tell, std::chrono::milliseconds retry_after,
                       Work opened);

    // Opens the database where that is needed and does the work. A damaged file is set aside, and the work is done
    // once more with a new one. False when it could not be done; then nothing is tried again for a while.
    bool Do(const Work& work);

    // The same for work that writes nothing: it can be done as long as the database is open.
    bool Look(const Work& work);

    // False once when the file that is open is not the one below the root any more, while the root is the same: the
    // next work opens what is there, or begins anew.
    bool KeepsItsFile();

private:
    std::optional<DatabaseError> Try(const Work& work);
    void Open();
    bool IsUseless(const DatabaseError& error) const;
    bool SetAside();
    void Say(const std::string& what) const;
    std::string Path(std::string_view suffix) const;

    const RootDatabase kind_;
    const std::string root_;
    const Tell tell_;
    const std::chrono::milliseconds retry_after_;
    const Work opened_;
    std::optional<Database> database_;
    std::string root_identity_;  // when it was opened
    std::string file_identity_;
    std::string log_identity_;
    bool failing_ = false;
    std::chrono::steady_clock::time_point next_try_{};
};

// The number of a profile, which is added when it is not known yet.
std::int64_t AddProfile(Database& database, const ProfileName& name, CTime now);

// Reads such a database, as it is at one moment. Throws DatabaseError.
class RootDatabaseReader {
public:
    // A root without one has an empty one.
    RootDatabaseReader(const RootDatabase& kind, const std::string& root);

    Database* Get() { return database_ ? &*database_ : nullptr; }  // null where nothing was written

    // Nothing when nothing is known of it.
    std::optional<std::int64_t> FindProfile(const CString& profile_path);

private:
    std::optional<Database> database_;
    bool was_moved_ = false;  // the root, since the database was written last
};

}  // namespace tarvex::host
