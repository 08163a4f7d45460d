// The calls of SQLite's C interface, and what their results mean.

#include "host/history/database.h"

#include <sqlite3.h>

#include <exception>

namespace tarvex::host {
namespace {

constexpr int kLogPages = 100;  // of 4 KiB; the first use of a database reads as much

DatabaseError Failure(sqlite3* database) {
    // Without a connection there was no memory for one.
    if (!database) return {SQLITE_NOMEM, "not enough memory"};
    return {sqlite3_extended_errcode(database), sqlite3_errmsg(database)};
}

void Require(int result, sqlite3* database) {
    if (result != SQLITE_OK) throw Failure(database);
}

}  // namespace

bool DatabaseError::IsDamage() const {
    const int kind = code_ & 0xFF;
    return kind == SQLITE_CORRUPT || kind == SQLITE_NOTADB;
}

bool DatabaseError::IsWantOfRoom() const { return code_ == SQLITE_FULL || code_ == SQLITE_IOERR_WRITE; }

bool DatabaseError::IsOfStatement() const { return (code_ & 0xFF) == SQLITE_ERROR; }

void Statement::Finalize::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

// What the statement returned was told when it did.
void Statement::Reset() {
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
}

void Statement::Bind(int place, std::int64_t number) {
    Require(sqlite3_bind_int64(statement_.get(), place, number), sqlite3_db_handle(statement_.get()));
}

void Statement::Bind(int place, std::string_view text) {
    Require(sqlite3_bind_text64(statement_.get(), place, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8),
            sqlite3_db_handle(statement_.get()));
}

void Statement::Bind(int place, std::span<const unsigned char> bytes) {
    const void* const data = bytes.empty() ? "" : static_cast<const void*>(bytes.data());  // a null pointer means NULL
    Require(sqlite3_bind_blob64(statement_.get(), place, data, bytes.size(), SQLITE_TRANSIENT),
            sqlite3_db_handle(statement_.get()));
}

bool Statement::Next() {
    const int result = sqlite3_step(statement_.get());
    if (result == SQLITE_ROW) return true;
    if (result != SQLITE_DONE) throw Failure(sqlite3_db_handle(statement_.get()));
    return false;
}

std::int64_t Statement::Number(int column) const { return sqlite3_column_int64(statement_.get(), column); }

std::string Statement::Text(int column) const {
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    return text ? std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))) : "";
}

std::span<const unsigned char> Statement::Bytes(int column) const {
    const auto* const bytes = static_cast<const unsigned char*>(sqlite3_column_blob(statement_.get(), column));
    return {bytes, bytes ? static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column)) : 0};
}

void Database::Close::operator()(sqlite3* database) const { sqlite3_close(database); }

Database::Database(const std::string& utf8_path, Use use, std::chrono::milliseconds patience) {
    const int flags = use == Use::Write ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
    // Nobody asks how much memory is in use, and to count it takes a lock at every allocation.
    static const int counting_is_off = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    static_cast<void>(counting_is_off);
    sqlite3* opened = nullptr;
    const int result = sqlite3_open_v2(utf8_path.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    database_.reset(opened);  // also after a failure
    Require(result, opened);
    sqlite3_busy_timeout(opened, static_cast<int>(patience.count()));
    // A file from elsewhere must not do anything when it is read.
    sqlite3_db_config(opened, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(opened, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    // What is in the log goes into the file now and then, not at the end of each command that has added a little.
    sqlite3_db_config(opened, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_wal_autocheckpoint(opened, kLogPages);
}

void Database::Run(const char* sql) {
    Require(sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr), database_.get());
}

Statement Database::Prepare(std::string_view sql) {
    sqlite3_stmt* statement = nullptr;
    Require(sqlite3_prepare_v2(database_.get(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr),
            database_.get());
    return Statement(statement);
}

Database::Kept Database::Lend(const char* sql) {
    auto found = kept_.find(sql);
    if (found == kept_.end()) found = kept_.emplace(sql, Prepare(sql)).first;
    return Kept(&found->second);
}

bool Database::IsInTransaction() const { return sqlite3_get_autocommit(database_.get()) == 0; }

std::int64_t Database::Number(std::string_view sql) {
    Statement statement = Prepare(sql);
    return statement.Next() ? statement.Number(0) : 0;
}

std::string Database::Snapshot(const std::function<void(Database& copy)>& change) {
    Database copy(":memory:", Use::Write, {});
    sqlite3_backup* const backup = sqlite3_backup_init(copy.database_.get(), "main", database_.get(), "main");
    if (!backup) throw Failure(copy.database_.get());
    sqlite3_backup_step(backup, -1);
    Require(sqlite3_backup_finish(backup), copy.database_.get());  // tells also of the step
    if (change) change(copy);
    sqlite3_int64 bytes = 0;
    const std::unique_ptr<unsigned char, decltype(&sqlite3_free)> content(
        sqlite3_serialize(copy.database_.get(), "main", &bytes, 0), sqlite3_free);
    if (!content) throw DatabaseError(SQLITE_NOMEM, "not enough memory");
    return {reinterpret_cast<const char*>(content.get()), static_cast<std::size_t>(bytes)};
}

std::int64_t Database::LastId() const { return sqlite3_last_insert_rowid(database_.get()); }

Transaction::Transaction(Database& database) : database_(&database) { database.Run("BEGIN IMMEDIATE"); }

Transaction::~Transaction() {
    if (!database_) return;
    try {
        database_->Run("ROLLBACK");
    } catch (const std::exception&) {
        // SQLite has rolled back by itself.
    }
}

void Transaction::Commit() {
    database_->Run("COMMIT");
    database_ = nullptr;
}

}  // namespace tarvex::host
