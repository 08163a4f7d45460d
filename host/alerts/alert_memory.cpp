// Keeps what readers were told.

#include "host/alerts/alert_memory.h"

#include <array>
#include <chrono>
#include <utility>

namespace tarvex::host {
namespace {

constexpr std::array kSchemas = {R"(
CREATE TABLE root (directory TEXT NOT NULL);
INSERT INTO root VALUES ('');
CREATE TABLE profiles (                        -- as every database beside a tree has it; problems are known by name
  id INTEGER PRIMARY KEY,
  path TEXT NOT NULL,
  directory TEXT NOT NULL,
  gone INTEGER);
CREATE TABLE readers (
  key TEXT PRIMARY KEY,                        -- who, and by what way
  last_alert INTEGER NOT NULL,                 -- moments are seconds since 1970
  last_news INTEGER NOT NULL,
  tries INTEGER NOT NULL,                      -- of an alert that does not go out
  failing_since INTEGER NOT NULL,
  next_try INTEGER NOT NULL,
  words TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE told (
  reader TEXT NOT NULL REFERENCES readers ON DELETE CASCADE,
  profile TEXT NOT NULL,
  problem INTEGER NOT NULL,                    -- Problem
  subject TEXT NOT NULL,
  since INTEGER NOT NULL,
  PRIMARY KEY (reader, profile, problem, subject)) WITHOUT ROWID;
)"};

constexpr RootDatabase kKind{"alerts", "the memory of alerts", kSchemas};

void Write(Database& database, const std::string& key, const ReaderState& state) {
    database.Prepare("DELETE FROM readers WHERE key = ?").With(key).Run();
    database.Prepare("INSERT INTO readers VALUES (?, ?, ?, ?, ?, ?, ?)")
        .With(key, state.last_alert, state.last_news, std::int64_t{state.tries}, state.failing_since, state.next_try,
              state.words)
        .Run();
    Statement told = database.Prepare("INSERT INTO told VALUES (?, ?, ?, ?, ?)");
    for (const auto& [about, since] : state.told) {
        told.With(key, about.profile, static_cast<std::int64_t>(about.problem), about.subject, since).Run();
    }
}

std::map<std::string, ReaderState> StatesIn(Database& database) {
    std::map<std::string, ReaderState> found;
    Statement rows =
        database.Prepare("SELECT key, last_alert, last_news, tries, failing_since, next_try, words FROM readers");
    while (rows.Next()) {
        ReaderState& state = found[rows.Text(0)];
        state.last_alert = rows.Number(1);
        state.last_news = rows.Number(2);
        state.tries = static_cast<int>(rows.Number(3));
        state.failing_since = rows.Number(4);
        state.next_try = rows.Number(5);
        state.words = rows.Text(6);
    }
    Statement told = database.Prepare("SELECT reader, profile, problem, subject, since FROM told");
    while (told.Next()) {
        const std::int64_t problem = told.Number(2);
        if (problem < 0 || problem >= static_cast<std::int64_t>(kProblemWords.size())) continue;
        found[told.Text(0)].told[{told.Text(1), static_cast<Problem>(problem), told.Text(3)}] = told.Number(4);
    }
    return found;
}

}  // namespace

AlertMemory::AlertMemory(std::string root, RootDatabaseWriter::Tell tell)
    : database_(kKind, std::move(root), std::move(tell), std::chrono::seconds(30), [](Database&) {}) {}

void AlertMemory::Load(Database& database) {
    for (auto& [key, state] : StatesIn(database)) {
        kept_.try_emplace(key, Kept{state, {}}).first->second.on_disk = state;
    }
}

void AlertMemory::Begin(const std::set<std::string>& keys) {
    if (!loaded_) loaded_ = database_.Do([this](Database& database) { Load(database); });
    for (const auto& [key, kept] : kept_) {
        if (!keys.contains(key)) gone_.insert(key);
    }
    for (const std::string& key : gone_) kept_.erase(key);
    for (const std::string& key : keys) gone_.erase(key);
}

void AlertMemory::Save() {
    std::vector<std::pair<const std::string, Kept>*> changed;
    for (auto& kept : kept_) {
        if (kept.second.state != kept.second.on_disk) changed.push_back(&kept);
    }
    if (changed.empty() && gone_.empty()) return;
    const bool done = database_.Do([&](Database& database) {
        Transaction transaction(database);
        for (const std::string& key : gone_) database.Prepare("DELETE FROM readers WHERE key = ?").With(key).Run();
        for (const auto* const kept : changed) Write(database, kept->first, kept->second.state);
        transaction.Commit();
    });
    if (!done) return;
    gone_.clear();
    for (auto* const kept : changed) kept->second.on_disk = kept->second.state;
}

std::map<std::string, ReaderState> ReaderStates(const std::string& root) {
    RootDatabaseReader reader(kKind, root);
    return reader.Get() ? StatesIn(*reader.Get()) : std::map<std::string, ReaderState>();
}

std::map<std::string, FailingAlert> FailingAlerts(const std::string& root) {
    std::map<std::string, FailingAlert> failing;
    for (const auto& [key, state] : ReaderStates(root)) {
        if (state.tries > 0) failing[key] = {state.tries, state.failing_since, state.next_try, state.words};
    }
    return failing;
}

}  // namespace tarvex::host
