#pragma once

// SQLite, as far as the history needs it: a connection, statements with values bound to them, transactions. What fails
// throws DatabaseError. A database belongs to one thread.

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace tarvex::host {

class DatabaseError : public std::runtime_error {
public:
    DatabaseError(int code, const std::string& what) : std::runtime_error(what), code_(code) {}

    bool IsDamage() const;       // the file is no database, or is not whole
    bool IsWantOfRoom() const;   // on the disk
    bool IsOfStatement() const;  // it cannot be carried out, for one because it does not fit the tables

private:
    int code_;  // of SQLite
};

// One SQL statement. Its rows are read one after the other; text is valid until the next row.
class Statement {
public:
    // Binds the values to the statement's question marks, in their order, and starts it anew.
    template <class... Values>
    Statement& With(const Values&... values) {
        Reset();
        int place = 0;
        (Bind(++place, values), ...);
        return *this;
    }

    bool Next();  // false when there is no further row
    void Run() {
        while (Next()) {
        }
    }

    std::int64_t Number(int column) const;                   // counted from 0; 0 for NULL
    std::string Text(int column) const;                      // empty for NULL
    std::span<const unsigned char> Bytes(int column) const;  // valid until the next row

    // Ends what was started, so that nothing of the database is held any more.
    void Reset();

private:
    friend class Database;
    explicit Statement(sqlite3_stmt* statement) : statement_(statement) {}

    void Bind(int place, std::int64_t number);
    void Bind(int place, std::string_view text);
    void Bind(int place, std::span<const unsigned char> bytes);

    struct Finalize {
        void operator()(sqlite3_stmt* statement) const;
    };
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

class Database {
public:
    enum class Use { Read, Write };

    struct Return {
        void operator()(Statement* statement) const { statement->Reset(); }
    };
    using Kept = std::unique_ptr<Statement, Return>;

    // Writing makes a file that is missing. Waits up to `patience` for another process each time that one has it.
    Database(const std::string& utf8_path, Use use, std::chrono::milliseconds patience);

    void Run(const char* sql);  // any number of statements
    Statement Prepare(std::string_view sql);

    // A statement that is prepared once and lent until the result goes. `sql` is a literal: it is known by its address.
    Kept Lend(const char* sql);

    bool IsInTransaction() const;
    std::int64_t Number(std::string_view sql);  // the first column of the first row, 0 without one
    std::int64_t LastId() const;                // of the row that was inserted last

    // All of it at one moment, as the bytes of a file, after a change that is made in the copy alone. Writers need not
    // wait.
    std::string Snapshot(const std::function<void(Database& copy)>& change = {});

private:
    struct Close {
        void operator()(sqlite3* database) const;
    };
    std::unique_ptr<sqlite3, Close> database_;
    std::map<const char*, Statement> kept_;
};

// What is done until Commit counts as a whole, or not at all.
class Transaction {
public:
    explicit Transaction(Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void Commit();

private:
    Database* database_;  // null once it is committed
};

}  // namespace tarvex::host
