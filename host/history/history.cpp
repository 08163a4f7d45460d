// The history's tables, what is written of a run, and what is read of a profile.
//
// A profile is known by its path in the tree and by which directory that is: one that was removed and made again under
// the same path begins anew. When the root itself is another directory than last time, the whole tree was moved or
// restored: then each path is taken for what it was.

#include "host/history/history.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>
#include <vector>

#include "host/history/run_words.h"
#include "host/system/display.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr auto kLockPatience = 1000ms;
constexpr std::size_t kMostWaiting = 1000;    // entries
constexpr std::size_t kMostNotFetched = 100;  // of a run that are kept
constexpr std::size_t kMostNotFetchedBytes = 20'000;
constexpr std::size_t kMostTextBytes = 1000;  // of one text of a server or a mail
constexpr std::uintmax_t kMostLogBytes = 400 * 1024;
constexpr CTime kDay = 86400;

// Each brings the schema from the version before it to its own, which is its place counted from 1.
constexpr std::array kSchemas = {
    R"(
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
)",
};

constexpr const char* kFolder = "\\.tarvex";  // below the root
constexpr const char* kFile = "\\.tarvex\\history.db";
constexpr const char* kLog = "-wal";  // SQLite's write-ahead log, beside the file
constexpr const char* kDamagedFile = "\\.tarvex\\history-damaged.db";

// A path of the tree below its root: a profile is two levels down.
std::string ProfileKey(const CString& path) {
    const std::size_t last = path.rfind('\\');
    const std::size_t first = last == CString::npos || last == 0 ? CString::npos : path.rfind('\\', last - 1);
    if (first == CString::npos) return path;
    return path.substr(first + 1, last - first - 1) + '/' + path.substr(last + 1);
}

bool IsQuiet(const CRunResult& result) {
    return (result.ending == CRunEnding::NothingNew || result.ending == CRunEnding::NobodyTakesPart) &&
           result.messages_not_fetched == 0 && result.lists != CSaved::Failed && result.log != CSaved::Failed &&
           result.settings != CSaved::Failed;
}

void Cut(CString& text) {
    if (text.size() <= kMostTextBytes) return;
    text.resize(kMostTextBytes);
    text.shrink_to_fit();
}

// Long answers to many commands, over many runs, must fill neither the disk nor the memory of those that wait for it.
void Shorten(CRunResult& result) {
    for (CRunFailure* const why : {&result.mailbox, &result.delivery}) {
        for (CString* const text : {&why->reply, &why->reason, &why->uidl, &why->sender, &why->recipient}) Cut(*text);
    }
    std::size_t kept = 0;
    std::size_t bytes = 0;
    for (CNotFetchedMail& mail : result.not_fetched) {
        for (CString* const text : {&mail.uidl, &mail.reply, &mail.reason}) {
            Cut(*text);
            bytes += text->size();
        }
        if (bytes > kMostNotFetchedBytes || kept == kMostNotFetched) break;
        ++kept;
    }
    result.not_fetched.resize(kept);
    result.not_fetched.shrink_to_fit();
}

// Refuses what a newer program has written.
std::int64_t SchemaVersion(Database& database) {
    const std::int64_t version = database.Number("PRAGMA user_version");
    if (version > static_cast<std::int64_t>(kSchemas.size())) {
        throw DatabaseError(0, "a newer tarvex has written it");
    }
    return version;
}

void BringUpToDate(Database& database) {
    const std::int64_t version = SchemaVersion(database);
    if (version == static_cast<std::int64_t>(kSchemas.size())) return;
    Transaction transaction(database);
    for (auto i = static_cast<std::size_t>(version); i < kSchemas.size(); ++i) database.Run(kSchemas[i]);
    database.Run(("PRAGMA user_version = " + std::to_string(kSchemas.size())).c_str());
    transaction.Commit();
}

std::vector<std::string> TablesOf(Database& database) {
    std::vector<std::string> tables;
    Statement made = database.Prepare("SELECT sql FROM sqlite_schema WHERE sql IS NOT NULL");
    while (made.Next()) tables.push_back(made.Text(0));
    return tables;
}

// Whether no statement of ours can fit the file: it lacks tables, or is another program's.
bool HasOtherTables(const std::string& utf8_path) {
    try {
        Database found(utf8_path, Database::Use::Read, kLockPatience);
        const std::vector<std::string> tables = TablesOf(found);
        const std::int64_t version = SchemaVersion(found);
        if (version == 0) return !tables.empty();  // ours gets its tables and its version at once
        Database expected(":memory:", Database::Use::Write, kLockPatience);
        for (std::int64_t i = 0; i < version; ++i) expected.Run(kSchemas[static_cast<std::size_t>(i)]);
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
    if (!error && type != fs::file_type::regular) throw DatabaseError(0, "history.db is no regular file");
    return true;  // or may be there: SQLite says why it cannot be opened
}

// A process that ends leaves its log to the next one, which only adds to it: somebody must begin it anew.
void EmptyLongLog(Database& database, const std::string& root) {
    std::error_code error;
    const std::uintmax_t bytes = fs::file_size(NativePath(root + kFile + kLog), error);
    if (!error && bytes > kMostLogBytes) database.Run("PRAGMA wal_checkpoint(TRUNCATE)");
}

// For its owner alone; what SQLite puts beside it gets the same permissions.
void MakeFile(const std::string& root) {
    if (const std::error_code error = MakeOwnDirectories(root + kFolder)) throw DatabaseError(0, error.message());
    const fs::path file = NativePath(root + kFile);
    std::error_code ignored;
    if (IsThere(file)) return;
    { const std::ofstream made(file, std::ios::app); }
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write, ignored);
}

}  // namespace

HistoryWriter::HistoryWriter(std::string root, Tell tell, std::chrono::milliseconds retry_after)
    : root_(std::move(root)), tell_(std::move(tell)), retry_after_(retry_after) {}

void HistoryWriter::Add(const CString& profile_path, PastRun run) {
    Shorten(run.result);
    waiting_.push_back({ProfileKey(profile_path), DirectoryIdentity(profile_path), std::move(run)});
    if (waiting_.size() > kMostWaiting) waiting_.pop_front();
    if (failing_ && std::chrono::steady_clock::now() < next_try_) return;
    Write();
}

void HistoryWriter::Write() {
    std::optional<DatabaseError> error = TryToWrite();
    if (error && IsUseless(*error) && SetAside()) {
        tell_("the history of runs was damaged (" + std::string(error->what()) + "); it was set aside as " +
              ShowPath(root_ + kDamagedFile) + ", and a new one is begun");
        error = TryToWrite();
    }
    if (error) next_try_ = std::chrono::steady_clock::now() + retry_after_;
    if (std::exchange(failing_, error.has_value()) == failing_) return;
    tell_(error ? "the history of runs cannot be written (" + std::string(error->what()) +
                      "); mail is forwarded all the same"
                : "the history of runs is written again");
}

// Whether the file itself is to blame, and not what is around it.
bool HistoryWriter::IsUseless(const DatabaseError& error) const {
    return error.IsDamage() || (error.IsOfStatement() && HasOtherTables(PathAsUtf8(root_ + kFile)));
}

std::optional<DatabaseError> HistoryWriter::TryToWrite() {
    try {
        if (!database_) Open();
        for (; !waiting_.empty(); waiting_.pop_front()) {
            Transaction transaction(*database_);
            Insert(waiting_.front());
            transaction.Commit();
        }
        return std::nullopt;
    } catch (const DatabaseError& error) {
        database_.reset();
        return error;
    }
}

void HistoryWriter::Open() {
    MakeFile(root_);
    Database database(PathAsUtf8(root_ + kFile), Database::Use::Write, kLockPatience);
    // After a power failure it may lack the last runs, and is whole.
    database.Run("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = ON");
    EmptyLongLog(database, root_);
    BringUpToDate(database);
    Transaction transaction(database);
    const std::string directory = DirectoryIdentity(root_);
    if (database.Prepare("SELECT 1 FROM root WHERE directory <> ?").With(directory).Next()) {
        database.Run("UPDATE profiles SET directory = ''");
        database.Prepare("UPDATE root SET directory = ?").With(directory).Run();
    }
    database.Run("DELETE FROM profiles WHERE gone AND id NOT IN (SELECT profile FROM runs)");
    transaction.Commit();
    database_ = std::move(database);
}

void HistoryWriter::Insert(const Entry& entry) {
    const std::int64_t profile = ProfileId(entry);
    const PastRun& run = entry.run;
    database_
        ->Prepare(
            "UPDATE profiles SET runs = runs + 1, failed = failed + ?2,"
            " failed_in_a_row = iif(?2, failed_in_a_row + 1, 0),"
            " failing_since = iif(?2, iif(failed_in_a_row, failing_since, ?3), 0),"
            " last_good = iif(?2, last_good, ?3), fetched = fetched + ?4, not_fetched = not_fetched + ?5,"
            " delivered = delivered + ?6, copies = copies + ?7, bytes_received = bytes_received + ?8,"
            " bytes_sent = bytes_sent + ?9 WHERE id = ?1")
        .With(profile, IsFailure(run.result.ending), run.started, run.result.messages_fetched,
              run.result.messages_not_fetched, run.result.messages_delivered, run.result.copies,
              run.result.bytes_received, run.result.bytes_sent)
        .Run();
    InsertRun(profile, run);
    DropOld(profile, run.ended);
}

std::int64_t HistoryWriter::ProfileId(const Entry& entry) {
    Statement known = database_->Prepare("SELECT id, directory FROM profiles WHERE path = ? AND gone IS NULL");
    if (known.With(entry.profile).Next()) {
        const std::int64_t id = known.Number(0);
        const std::string directory = known.Text(1);
        if (directory == entry.directory) return id;
        if (directory.empty()) {
            database_->Prepare("UPDATE profiles SET directory = ? WHERE id = ?").With(entry.directory, id).Run();
            return id;
        }
        database_->Prepare("UPDATE profiles SET gone = ? WHERE id = ?").With(entry.run.ended, id).Run();
    }
    database_->Prepare("INSERT INTO profiles (path, directory) VALUES (?, ?)")
        .With(entry.profile, entry.directory)
        .Run();
    return database_->LastId();
}

void HistoryWriter::InsertRun(std::int64_t profile, const PastRun& run) {
    const CRunResult& result = run.result;
    if (IsQuiet(result)) {
        database_->Prepare("DELETE FROM runs WHERE quiet AND id = (SELECT max(id) FROM runs WHERE profile = ?)")
            .With(profile)
            .Run();
    }
    database_
        ->Prepare(
            "INSERT INTO runs (profile, started, ended, ending, quiet, listed, fetched, not_fetched, delivered,"
            " copies, bytes_received, bytes_sent, lists, log, settings, exception)"
            " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
        .With(profile, run.started, run.ended, Word(result.ending), IsQuiet(result), result.messages_listed,
              result.messages_fetched, result.messages_not_fetched, result.messages_delivered, result.copies,
              result.bytes_received, result.bytes_sent, Word(result.lists), Word(result.log), Word(result.settings),
              result.exception)
        .Run();
    InsertDetails(database_->LastId(), result);
}

void HistoryWriter::InsertDetails(std::int64_t run, const CRunResult& result) {
    Statement failure = database_->Prepare("INSERT INTO failures VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    for (const auto& [conversation, why] : {std::pair("mailbox", &result.mailbox), {"delivery", &result.delivery}}) {
        if (why->failure_class == CFailureClass::None) continue;
        failure
            .With(run, conversation, Word(why->stage), Word(why->failure_class), why->reply, why->reason, why->uidl,
                  why->sender, why->recipient)
            .Run();
    }
    Statement mail = database_->Prepare("INSERT INTO not_fetched VALUES (?, ?, ?, ?, ?, ?)");
    for (std::size_t i = 0; i < result.not_fetched.size(); ++i) {
        const CNotFetchedMail& lost = result.not_fetched[i];
        mail.With(run, i, lost.uidl, Word(lost.failure_class), lost.reply, lost.reason).Run();
    }
    Statement copies = database_->Prepare("INSERT INTO copies VALUES (?, ?, ?, ?, ?, ?)");
    for (std::size_t i = 0; i < result.addresses.size(); ++i) {
        const CAddressResult& address = result.addresses[i];
        if (address.copies == 0 && address.list != CSaved::Failed) continue;
        copies.With(run, i, address.path, address.address, address.copies, Word(address.list)).Run();
    }
}

// In small steps, so that no run waits long. The last run of a profile stays, however old.
void HistoryWriter::DropOld(std::int64_t profile, CTime now) {
    constexpr std::int64_t kAtOnce = 50;
    database_
        ->Prepare(
            "DELETE FROM runs WHERE id <="
            " (SELECT id FROM runs WHERE profile = ?1 ORDER BY id DESC LIMIT 1 OFFSET ?2) AND profile = ?1")
        .With(profile, kKeptRuns)
        .Run();
    database_
        ->Prepare(
            "DELETE FROM runs WHERE id IN (SELECT id FROM runs AS old WHERE ended < ? AND"
            " (EXISTS (SELECT 1 FROM runs WHERE profile = old.profile AND id > old.id) OR"
            " (SELECT gone FROM profiles WHERE id = old.profile)) ORDER BY ended LIMIT ?)")
        .With(now - kKeptDays * kDay, kAtOnce)
        .Run();
}

// The damaged file is kept for inspection, until another one is set aside.
bool HistoryWriter::SetAside() {
    std::error_code error;
    for (const char* const part : {kLog, "-shm", ""}) {
        std::error_code ignored;
        fs::remove(NativePath(root_ + kDamagedFile + part), ignored);
        fs::rename(NativePath(root_ + kFile + part), NativePath(root_ + kDamagedFile + part), error);
    }
    return !error;  // for the file itself, which comes last
}

HistoryReader::HistoryReader(const std::string& root) {
    if (!IsThere(NativePath(root + kFile))) return;
    Database database(PathAsUtf8(root + kFile), Database::Use::Read, kLockPatience);
    database.Run("BEGIN");  // the numbers of one moment
    if (SchemaVersion(database) == 0) return;
    was_moved_ = database.Prepare("SELECT 1 FROM root WHERE directory <> ?").With(DirectoryIdentity(root)).Next();
    database_ = std::move(database);
}

std::optional<ProfileHistory> HistoryReader::Of(const CString& profile_path) {
    if (!database_) return std::nullopt;
    Statement row = database_->Prepare(
        "SELECT id, runs, failed, failed_in_a_row, failing_since, last_good, fetched, not_fetched, delivered, copies,"
        " bytes_received, bytes_sent FROM profiles WHERE path = ?1 AND (?3 OR directory IN (?2, '')) AND gone IS NULL");
    if (!row.With(ProfileKey(profile_path), DirectoryIdentity(profile_path), was_moved_).Next()) return std::nullopt;
    ProfileHistory history;
    int column = 0;
    const std::int64_t id = row.Number(column);
    for (std::int64_t* const number : {&history.runs, &history.failed, &history.failed_in_a_row, &history.failing_since,
                                       &history.last_good, &history.fetched, &history.not_fetched, &history.delivered,
                                       &history.copies, &history.bytes_received, &history.bytes_sent}) {
        *number = row.Number(++column);
    }
    ReadLast(id, history.last);
    return history;
}

void HistoryReader::ReadLast(std::int64_t profile, PastRun& run) {
    Statement row = database_->Prepare(
        "SELECT id, listed, fetched, not_fetched, delivered, copies, started, ended, bytes_received, bytes_sent,"
        " ending, lists, log, settings, exception FROM runs WHERE profile = ? ORDER BY id DESC LIMIT 1");
    if (!row.With(profile).Next()) return;
    CRunResult& result = run.result;
    int column = 0;
    for (int* const number : {&result.messages_listed, &result.messages_fetched, &result.messages_not_fetched,
                              &result.messages_delivered, &result.copies}) {
        *number = static_cast<int>(row.Number(++column));
    }
    for (std::int64_t* const number : {&run.started, &run.ended, &result.bytes_received, &result.bytes_sent}) {
        *number = row.Number(++column);
    }
    result.ending = ValueOf<CRunEnding>(row.Text(++column));
    for (CSaved* const saved : {&result.lists, &result.log, &result.settings}) {
        *saved = ValueOf<CSaved>(row.Text(++column));
    }
    result.exception = row.Text(++column);
    ReadDetails(row.Number(0), result);
}

void HistoryReader::ReadDetails(std::int64_t run, CRunResult& result) {
    Statement failure = database_->Prepare(
        "SELECT conversation, stage, class, reply, reason, uidl, sender, recipient FROM failures WHERE run = ?");
    for (failure.With(run); failure.Next();) {
        CRunFailure& why = failure.Text(0) == "mailbox" ? result.mailbox : result.delivery;
        why.stage = ValueOf<CRunStage>(failure.Text(1));
        why.failure_class = ValueOf<CFailureClass>(failure.Text(2));
        int column = 2;
        for (CString* const text : {&why.reply, &why.reason, &why.uidl, &why.sender, &why.recipient}) {
            *text = failure.Text(++column);
        }
    }
    Statement mail =
        database_->Prepare("SELECT uidl, class, reply, reason FROM not_fetched WHERE run = ? ORDER BY place");
    for (mail.With(run); mail.Next();) {
        result.not_fetched.push_back({mail.Text(0), ValueOf<CFailureClass>(mail.Text(1)), mail.Text(2), mail.Text(3)});
    }
    Statement address =
        database_->Prepare("SELECT path, address, copies, list FROM copies WHERE run = ? ORDER BY place");
    for (address.With(run); address.Next();) {
        result.addresses.push_back(
            {address.Text(0), address.Text(1), static_cast<int>(address.Number(2)), ValueOf<CSaved>(address.Text(3))});
    }
}

}  // namespace tarvex::host
