#pragma once

// The tables of the history that hold messages, and how they are searched. All throw DatabaseError and std::bad_alloc.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/history/database.h"
#include "host/history/mail_trace.h"

namespace tarvex::host {

inline constexpr const char* kMailSchema = R"(
CREATE TABLE mails (
  id INTEGER PRIMARY KEY AUTOINCREMENT,       -- never used again: the index knows them
  profile INTEGER NOT NULL REFERENCES profiles ON DELETE CASCADE,
  waits INTEGER NOT NULL,                     -- its copies are for a later run; replaced after that
  uidl TEXT NOT NULL,                         -- texts of servers and mails are bytes, as they came
  header TEXT NOT NULL,                       -- From, Subject, Message-ID
  bytes INTEGER NOT NULL,
  fetched INTEGER NOT NULL,                   -- these moments are milliseconds since 1970
  ended INTEGER NOT NULL);
CREATE INDEX waiting_mails ON mails (profile) WHERE waits;
CREATE TABLE mail_copies (
  mail INTEGER NOT NULL REFERENCES mails ON DELETE CASCADE,
  place INTEGER NOT NULL,
  address TEXT NOT NULL,
  fate TEXT NOT NULL,
  offered INTEGER NOT NULL,
  ended INTEGER NOT NULL,
  words TEXT NOT NULL,
  PRIMARY KEY (mail, place)) WITHOUT ROWID;
CREATE TABLE mails_indexed (up_to INTEGER NOT NULL);
INSERT INTO mails_indexed VALUES (0);
)";

inline constexpr const char* kMailIndexSchema = "CREATE VIRTUAL TABLE mail_words USING fts5(words, content = '')";

// What is settled stays; what waits is replaced by what waits in the next run that has ended.
void InsertMails(Database& database, std::int64_t profile, std::span<const TracedMail> mails);
void ForgetWaiting(Database& database, std::int64_t profile);

// Makes a few more messages quick to find. False when all are.
bool IndexMails(Database& database);

struct MailLimits {
    std::int64_t days = 90;
    std::int64_t bytes = 500'000'000;  // of the database
};

// Removes a few of the oldest messages that are over the limits. False when there are none.
bool DropOldMails(Database& database, const MailLimits& limits, CTime now);

struct FoundMail {
    std::string profile;  // user0/from0
    TracedMail mail;
    bool waits = false;
    std::int64_t id = 0;  // never that of another one in this database
};

// By which a person names a message: "M12". Nothing for text that is none.
std::string HandleOf(const FoundMail& found);
std::optional<std::int64_t> IdInHandle(std::string_view handle);

// Nothing for one that is remembered no more: what waits is replaced after each run.
std::optional<FoundMail> FindMail(Database& database, std::int64_t id);

struct MailSearch {
    std::vector<std::string> words;  // UTF-8; each must be somewhere: in From, Subject, an id, an address, an answer
    std::string profile;             // empty: of all
    CTime since = 0;
    std::size_t most = 20;
    CString directory{};  // only of the profile that is there now, not of one that has had its name
};

// The newest first: one more than `most` when there are more. Throws CommandError for a word without letter or digit.
// `of_profile`: only of the profile with this id.
std::vector<FoundMail> FindMails(Database& database, const MailSearch& search,
                                 std::optional<std::int64_t> of_profile = std::nullopt);

}  // namespace tarvex::host
