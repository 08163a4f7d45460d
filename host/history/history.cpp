// The history's tables, what is written of a run, and what is read of a profile.

#include "host/history/history.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <ctime>
#include <utility>

#include "host/history/run_words.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostWaiting = 1000;  // entries
constexpr std::size_t kMostWaitingMails = 20'000;
constexpr std::size_t kMostNotFetched = 100;  // of a run that are kept
constexpr std::size_t kMostNotFetchedBytes = 20'000;
constexpr std::size_t kMostTextBytes = 1000;  // of one text of a server or a mail
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
    R"(
ALTER TABLE runs ADD COLUMN put_off INTEGER NOT NULL DEFAULT 0;   -- messages that a rule left for a later run
ALTER TABLE runs ADD COLUMN set_aside INTEGER NOT NULL DEFAULT 0; -- copies
)",
    kMailSchema,
    kMailIndexSchema,
};

constexpr int kVersionWithMails = 4;

constexpr RootDatabase kDatabase{"history", "the history of runs", kSchemas};

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

void InsertDetails(Database& database, std::int64_t run, const CRunResult& result) {
    Statement failure = database.Prepare("INSERT INTO failures VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    for (const auto& [conversation, why] : {std::pair("mailbox", &result.mailbox), {"delivery", &result.delivery}}) {
        if (why->failure_class == CFailureClass::None) continue;
        failure
            .With(run, conversation, Word(why->stage), Word(why->failure_class), why->reply, why->reason, why->uidl,
                  why->sender, why->recipient)
            .Run();
    }
    Statement mail = database.Prepare("INSERT INTO not_fetched VALUES (?, ?, ?, ?, ?, ?)");
    for (std::size_t i = 0; i < result.not_fetched.size(); ++i) {
        const CNotFetchedMail& lost = result.not_fetched[i];
        mail.With(run, i, lost.uidl, Word(lost.failure_class), lost.reply, lost.reason).Run();
    }
    Statement copies = database.Prepare("INSERT INTO copies VALUES (?, ?, ?, ?, ?, ?)");
    for (std::size_t i = 0; i < result.addresses.size(); ++i) {
        const CAddressResult& address = result.addresses[i];
        if (address.copies == 0 && address.list != CSaved::Failed) continue;
        copies.With(run, i, address.path, address.address, address.copies, Word(address.list)).Run();
    }
}

void InsertRun(Database& database, std::int64_t profile, const PastRun& run) {
    const CRunResult& result = run.result;
    if (IsQuiet(result)) {
        database.Prepare("DELETE FROM runs WHERE quiet AND id = (SELECT max(id) FROM runs WHERE profile = ?)")
            .With(profile)
            .Run();
    }
    database
        .Prepare(
            "INSERT INTO runs (profile, started, ended, ending, quiet, listed, fetched, not_fetched, delivered,"
            " copies, bytes_received, bytes_sent, lists, log, settings, exception, put_off, set_aside)"
            " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
        .With(profile, run.started, run.ended, Word(result.ending), IsQuiet(result), result.messages_listed,
              result.messages_fetched, result.messages_not_fetched, result.messages_delivered, result.copies,
              result.bytes_received, result.bytes_sent, Word(result.lists), Word(result.log), Word(result.settings),
              result.exception, result.messages_put_off, result.copies_set_aside)
        .Run();
    InsertDetails(database, database.LastId(), result);
}

// In small steps, so that no run waits long. The last run of a profile stays, however old.
void DropOld(Database& database, std::int64_t profile, CTime now) {
    constexpr std::int64_t kAtOnce = 50;
    database
        .Prepare(
            "DELETE FROM runs WHERE id <="
            " (SELECT id FROM runs WHERE profile = ?1 ORDER BY id DESC LIMIT 1 OFFSET ?2) AND profile = ?1")
        .With(profile, kKeptRuns)
        .Run();
    database
        .Prepare(
            "DELETE FROM runs WHERE id IN (SELECT id FROM runs AS old WHERE ended < ? AND"
            " (EXISTS (SELECT 1 FROM runs WHERE profile = old.profile AND id > old.id) OR"
            " (SELECT gone FROM profiles WHERE id = old.profile)) ORDER BY ended LIMIT ?)")
        .With(now - kKeptDays * kDay, kAtOnce)
        .Run();
}

void InsertEnded(Database& database, std::int64_t profile, const PastRun& run) {
    database
        .Prepare(
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
    InsertRun(database, profile, run);
    DropOld(database, profile, run.ended);
}

// One that could not look leaves what was known to wait.
bool HasLooked(const CRunResult& result) {
    return result.ending == CRunEnding::NothingNew || result.ending == CRunEnding::Delivered ||
           result.messages_fetched > 0;
}

void Insert(Database& database, const ProfileName& name, const std::optional<PastRun>& run,
            std::span<const TracedMail> mails) {
    const std::int64_t profile = AddProfile(database, name, run ? run->ended : std::time(nullptr));
    if (run) InsertEnded(database, profile, *run);
    if (run && (HasLooked(run->result) || !mails.empty())) ForgetWaiting(database, profile);
    InsertMails(database, profile, mails);
}

}  // namespace

HistoryWriter::HistoryWriter(std::string root, Tell tell, std::chrono::milliseconds retry_after)
    : database_(kDatabase, std::move(root), std::move(tell), retry_after, [](Database& database) {
          database.Run("DELETE FROM profiles WHERE gone AND id NOT IN (SELECT profile FROM runs)");
      }) {}

void HistoryWriter::Add(const CString& profile_path, PastRun run, std::vector<TracedMail> mails) {
    Shorten(run.result);
    Write({NameOfProfile(profile_path), std::move(run), std::move(mails)});
}

void HistoryWriter::AddMails(const CString& profile_path, std::vector<TracedMail> mails) {
    if (!mails.empty()) Write({NameOfProfile(profile_path), std::nullopt, std::move(mails)});
}

void HistoryWriter::Write(Entry entry) {
    waiting_mails_ += entry.mails.size();
    waiting_.push_back(std::move(entry));
    const auto drop_first = [this] {
        waiting_mails_ -= waiting_.front().mails.size();
        waiting_.pop_front();
    };
    while (waiting_.size() > 1 && (waiting_.size() > kMostWaiting || waiting_mails_ > kMostWaitingMails)) drop_first();
    database_.Do([&](Database& database) {
        for (; !waiting_.empty(); drop_first()) {
            Transaction transaction(database);
            Insert(database, waiting_.front().profile, waiting_.front().run, waiting_.front().mails);
            transaction.Commit();
            is_tidy_ = false;
        }
    });
}

void HistoryWriter::Tidy(const std::function<MailLimits()>& limits, CTime now, std::chrono::milliseconds at_most) {
    if (is_tidy_) return;
    const auto until = std::chrono::steady_clock::now() + at_most;
    database_.Do([&](Database& database) {
        is_tidy_ = !DropOldMails(database, limits(), now);
        while (IndexMails(database)) {
            if (std::chrono::steady_clock::now() < until) continue;
            is_tidy_ = false;
            break;
        }
    });
}

HistoryReader::HistoryReader(const std::string& root) : database_(kDatabase, root) {}

std::optional<ProfileHistory> HistoryReader::Of(const CString& profile_path) {
    const std::optional<std::int64_t> id = database_.FindProfile(profile_path);
    if (!id) return std::nullopt;
    Statement row = database_.Get()->Prepare(
        "SELECT runs, failed, failed_in_a_row, failing_since, last_good, fetched, not_fetched, delivered, copies,"
        " bytes_received, bytes_sent FROM profiles WHERE id = ?");
    if (!row.With(*id).Next()) return std::nullopt;
    ProfileHistory history;
    int column = 0;
    for (std::int64_t* const number : {&history.runs, &history.failed, &history.failed_in_a_row, &history.failing_since,
                                       &history.last_good, &history.fetched, &history.not_fetched, &history.delivered,
                                       &history.copies, &history.bytes_received, &history.bytes_sent}) {
        *number = row.Number(column++);
    }
    ReadLast(*id, history.last);
    return history;
}

std::vector<FoundMail> HistoryReader::Find(const MailSearch& search) {
    const bool has_mails = database_.Get() && database_.Get()->Number("PRAGMA user_version") >= kVersionWithMails;
    return has_mails ? FindMails(*database_.Get(), search) : std::vector<FoundMail>();
}

bool HistoryReader::HasHadCopies(const CString& profile_path, const CString& address) {
    const std::optional<std::int64_t> id = database_.FindProfile(profile_path);
    if (!id) return false;
    Statement row = database_.Get()->Prepare(
        "SELECT 1 FROM copies JOIN runs ON runs.id = copies.run"
        " WHERE runs.profile = ? AND copies.address = ? AND copies.copies > 0");
    return row.With(*id, address).Next();
}

void HistoryReader::ReadLast(std::int64_t profile, PastRun& run) {
    const bool is_old = database_.Get()->Number("PRAGMA user_version") < 2;  // until the next run is written
    const std::string by_rules = is_old ? "0, 0" : "put_off, set_aside";
    Statement row = database_.Get()->Prepare(
        "SELECT id, listed, fetched, not_fetched, delivered, copies, " + by_rules +
        ", started, ended, bytes_received, bytes_sent,"
        " ending, lists, log, settings, exception FROM runs WHERE profile = ? ORDER BY id DESC LIMIT 1");
    if (!row.With(profile).Next()) return;
    CRunResult& result = run.result;
    int column = 0;
    for (int* const number :
         {&result.messages_listed, &result.messages_fetched, &result.messages_not_fetched, &result.messages_delivered,
          &result.copies, &result.messages_put_off, &result.copies_set_aside}) {
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
    Statement failure = database_.Get()->Prepare(
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
        database_.Get()->Prepare("SELECT uidl, class, reply, reason FROM not_fetched WHERE run = ? ORDER BY place");
    for (mail.With(run); mail.Next();) {
        result.not_fetched.push_back({mail.Text(0), ValueOf<CFailureClass>(mail.Text(1)), mail.Text(2), mail.Text(3)});
    }
    Statement address =
        database_.Get()->Prepare("SELECT path, address, copies, list FROM copies WHERE run = ? ORDER BY place");
    for (address.With(run); address.Next();) {
        result.addresses.push_back(
            {address.Text(0), address.Text(1), static_cast<int>(address.Number(2)), ValueOf<CSaved>(address.Text(3))});
    }
}

}  // namespace tarvex::host
