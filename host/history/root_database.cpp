// The file of a database beside a tree: how it is made, opened, brought up to date and set aside, and how a profile is
// found in it.

#include "host/history/root_database.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>
#include <vector>

#include "host/system/display.h"
#include "host/system/error_words.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr auto kLockPatience = 1000ms;
constexpr std::uintmax_t kMostLogBytes = 400 * 1024;

constexpr const char* kFolder = "\\.tarvex";  // below the root
constexpr const char* kFile = ".db";
constexpr const char* kLog = ".db-wal";  // SQLite's write-ahead log
constexpr const char* kIndex = ".db-shm";
constexpr const char* kDamagedFile = "-damaged.db";

std::string PathOf(const RootDatabase& kind, const std::string& root, std::string_view suffix) {
    return root + kFolder + '\\' + std::string(kind.name) + std::string(suffix);
}

// Refuses what a newer program has written.
std::int64_t SchemaVersion(Database& database, const RootDatabase& kind) {
    const std::int64_t version = database.Number("PRAGMA user_version");
    if (version > static_cast<std::int64_t>(kind.schemas.size())) {
        throw DatabaseError(0, "a newer tarvex has written it");
    }
    return version;
}

// Belongs into a transaction.
void BringUpToDate(Database& database, const RootDatabase& kind) {
    const std::int64_t version = SchemaVersion(database, kind);
    if (version == static_cast<std::int64_t>(kind.schemas.size())) return;
    for (const char* const schema : kind.schemas.subspan(static_cast<std::size_t>(version))) database.Run(schema);
    database.Run(("PRAGMA user_version = " + std::to_string(kind.schemas.size())).c_str());
}

std::vector<std::string> TablesOf(Database& database) {
    std::vector<std::string> tables;
    Statement made = database.Prepare("SELECT sql FROM sqlite_schema WHERE sql IS NOT NULL");
    while (made.Next()) tables.push_back(made.Text(0));
    return tables;
}

// Whether no statement of ours can fit the file: it lacks tables, or is another program's.
bool HasOtherTables(const std::string& utf8_path, const RootDatabase& kind) {
    try {
        Database found(utf8_path, Database::Use::Read, kLockPatience);
        const std::vector<std::string> tables = TablesOf(found);
        const std::int64_t version = SchemaVersion(found, kind);
        if (version == 0) return !tables.empty();  // ours gets its tables and its version at once
        Database expected(":memory:", Database::Use::Write, kLockPatience);
        for (const char* const schema : kind.schemas.first(static_cast<std::size_t>(version))) expected.Run(schema);
        const auto is_there = [&](const std::string& table) { return std::ranges::count(tables, table) != 0; };
        return !std::ranges::all_of(TablesOf(expected), is_there);
    } catch (const DatabaseError&) {
        return false;
    }
}

// SQLite would wait for whoever opens the other end of a pipe.
bool IsThere(const fs::path& file) {
    std::error_code error;
    const fs::file_type type = fs::status(file, error).type();
    if (type == fs::file_type::not_found) return false;
    if (!error && type != fs::file_type::regular)
        throw DatabaseError(0, file.filename().string() + " is no regular file");
    return true;  // or may be there: SQLite says why it cannot be opened
}

// A process that ends leaves its log to the next one, which only adds to it: somebody must begin it anew.
void EmptyLongLog(Database& database, const std::string& log) {
    std::error_code error;
    const std::uintmax_t bytes = fs::file_size(NativePath(log), error);
    if (!error && bytes > kMostLogBytes) database.Run("PRAGMA wal_checkpoint(TRUNCATE)");
}

// For its owner alone; what SQLite puts beside it gets the same permissions.
void MakeFile(const std::string& root, const std::string& path) {
    if (const std::error_code error = MakeOwnDirectories(root + kFolder)) throw DatabaseError(0, WordsOf(error));
    const fs::path file = NativePath(path);
    std::error_code ignored;
    if (IsThere(file)) return;
    { const std::ofstream made(file, std::ios::app); }
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write, ignored);
}

bool WasMoved(Database& database, const std::string& root_directory) {
    return database.Prepare("SELECT 1 FROM root WHERE directory <> ?").With(root_directory).Next();
}

void NoteRoot(Database& database, const std::string& root) {
    const std::string directory = DirectoryIdentity(root);
    if (!WasMoved(database, directory)) return;
    database.Run("UPDATE profiles SET directory = ''");
    database.Prepare("UPDATE root SET directory = ?").With(directory).Run();
}

}  // namespace

// A profile is two levels below the root.
ProfileName NameOfProfile(const CString& profile_path) {
    ProfileName name{profile_path, DirectoryIdentity(profile_path)};
    const std::size_t last = profile_path.rfind('\\');
    const std::size_t first = last == CString::npos || last == 0 ? CString::npos : profile_path.rfind('\\', last - 1);
    if (first != CString::npos) {
        name.path = profile_path.substr(first + 1, last - first - 1) + '/' + profile_path.substr(last + 1);
    }
    return name;
}

RootDatabaseWriter::RootDatabaseWriter(const RootDatabase& kind, std::string root, Tell tell,
                                       std::chrono::milliseconds retry_after, Work opened)
    : kind_(kind),
      root_(std::move(root)),
      tell_(std::move(tell)),
      retry_after_(retry_after),
      opened_(std::move(opened)) {}

bool RootDatabaseWriter::Do(const Work& work) {
    if (failing_ && std::chrono::steady_clock::now() < next_try_) return false;
    std::optional<DatabaseError> error = Try(work);
    if (error && IsUseless(*error) && SetAside()) {
        Say(" was damaged (" + std::string(error->what()) + "); it was set aside as " + ShowPath(Path(kDamagedFile)) +
            ", and a new one is begun");
        error = Try(work);
    }
    if (error) next_try_ = std::chrono::steady_clock::now() + retry_after_;
    if (std::exchange(failing_, error.has_value()) != failing_) {
        Say(error ? " cannot be written (" + std::string(error->what()) + "); mail is forwarded all the same"
                  : " is written again");
    }
    return !error;
}

void RootDatabaseWriter::Say(const std::string& what) const { tell_(std::string(kind_.contents) + what); }

std::optional<DatabaseError> RootDatabaseWriter::Try(const Work& work) {
    try {
        if (!database_) Open();
        work(*database_);
        return std::nullopt;
    } catch (const DatabaseError& error) {
        if (!error.IsWantOfRoom()) database_.reset();  // else what is there can be read further on
        return error;
    }
}

bool RootDatabaseWriter::Look(const Work& work) { return database_ ? !Try(work) : Do(work); }

void RootDatabaseWriter::Open() {
    MakeFile(root_, Path(kFile));
    Database database(PathAsUtf8(Path(kFile)), Database::Use::Write, kLockPatience);
    // After a power failure it may lack what was written last, and is whole.
    database.Run("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = ON");
    EmptyLongLog(database, Path(kLog));
    Transaction transaction(database);
    BringUpToDate(database, kind_);
    NoteRoot(database, root_);
    opened_(database);
    transaction.Commit();
    database_ = std::move(database);
    root_identity_ = DirectoryIdentity(root_);
    file_identity_ = DirectoryIdentity(Path(kFile));
    log_identity_ = DirectoryIdentity(Path(kLog));
}

bool RootDatabaseWriter::KeepsItsFile() {
    if (!database_ || DirectoryIdentity(Path(kFile)) == file_identity_) return true;
    if (DirectoryIdentity(root_) != root_identity_) return true;  // all has gone: that is told elsewhere
    database_.reset();
    // The log is of the file that has gone, and must not be taken for that of the new one.
    std::error_code ignored;
    if (DirectoryIdentity(Path(kLog)) == log_identity_) {
        for (const char* const part : {kLog, kIndex}) fs::remove(NativePath(Path(part)), ignored);
    }
    return false;
}

// Whether the file itself is to blame, and not what is around it.
bool RootDatabaseWriter::IsUseless(const DatabaseError& error) const {
    return error.IsDamage() || (error.IsOfStatement() && HasOtherTables(PathAsUtf8(Path(kFile)), kind_));
}

// The damaged file is kept for inspection, until another one is set aside.
bool RootDatabaseWriter::SetAside() {
    std::error_code error;
    for (const char* const part : {"-wal", "-shm", ""}) {
        std::error_code ignored;
        fs::remove(NativePath(Path(kDamagedFile) + part), ignored);
        fs::rename(NativePath(Path(kFile) + part), NativePath(Path(kDamagedFile) + part), error);
    }
    return !error;  // for the file itself, which comes last
}

std::string RootDatabaseWriter::Path(std::string_view suffix) const { return PathOf(kind_, root_, suffix); }

std::int64_t AddProfile(Database& database, const ProfileName& name, CTime now) {
    const Database::Kept known = database.Lend("SELECT id, directory FROM profiles WHERE path = ? AND gone IS NULL");
    if (known->With(name.path).Next()) {
        const std::int64_t id = known->Number(0);
        const std::string directory = known->Text(1);
        if (directory == name.directory || name.directory.empty()) return id;
        if (directory.empty()) {
            database.Prepare("UPDATE profiles SET directory = ? WHERE id = ?").With(name.directory, id).Run();
            return id;
        }
        database.Prepare("UPDATE profiles SET gone = ? WHERE id = ?").With(now, id).Run();
    }
    database.Prepare("INSERT INTO profiles (path, directory) VALUES (?, ?)").With(name.path, name.directory).Run();
    return database.LastId();
}

RootDatabaseReader::RootDatabaseReader(const RootDatabase& kind, const std::string& root) {
    const std::string path = PathOf(kind, root, kFile);
    if (!IsThere(NativePath(path))) return;
    Database database(PathAsUtf8(path), Database::Use::Read, kLockPatience);
    database.Run("BEGIN");  // what it held at one moment
    if (SchemaVersion(database, kind) == 0) return;
    was_moved_ = WasMoved(database, DirectoryIdentity(root));
    database_ = std::move(database);
}

std::optional<std::int64_t> RootDatabaseReader::FindProfile(const CString& profile_path) {
    if (!database_) return std::nullopt;
    const ProfileName name = NameOfProfile(profile_path);
    const Database::Kept row =
        database_->Lend("SELECT id FROM profiles WHERE path = ?1 AND (?3 OR directory IN (?2, '')) AND gone IS NULL");
    if (!row->With(name.path, name.directory, was_moved_).Next()) return std::nullopt;
    return row->Number(0);
}

}  // namespace tarvex::host
