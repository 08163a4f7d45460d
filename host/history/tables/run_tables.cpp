// A row for each run, with its failures and copies beside it, and a row of sums for each profile.

#include "host/history/tables/run_tables.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "host/history/run_words.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostNotFetched = 100;  // of a run that are kept
constexpr std::size_t kMostNotFetchedBytes = 20'000;
constexpr std::size_t kMostTextBytes = 1000;  // of one text of a server or a mail
constexpr CTime kDay = 86400;
constexpr int kVersionWithRules = 2;

void ReadNumbers(const Statement& row, int column, ProfileTotals& totals) {
    for (std::int64_t* const number : {&totals.runs, &totals.failed, &totals.failed_in_a_row, &totals.failing_since,
                                       &totals.last_good, &totals.fetched, &totals.not_fetched, &totals.delivered,
                                       &totals.copies, &totals.bytes_received, &totals.bytes_sent}) {
        *number = row.Number(column++);
    }
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

void InsertDetails(Database& database, std::int64_t run, const CRunResult& result) {
    const Database::Kept failure = database.Lend("INSERT INTO failures VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    for (const auto& [conversation, why] : {std::pair("mailbox", &result.mailbox), {"delivery", &result.delivery}}) {
        if (why->failure_class == CFailureClass::None) continue;
        failure
            ->With(run, conversation, Word(why->stage), Word(why->failure_class), why->reply, why->reason, why->uidl,
                   why->sender, why->recipient)
            .Run();
    }
    const Database::Kept mail = database.Lend("INSERT INTO not_fetched VALUES (?, ?, ?, ?, ?, ?)");
    for (std::size_t i = 0; i < result.not_fetched.size(); ++i) {
        const CNotFetchedMail& lost = result.not_fetched[i];
        mail->With(run, i, lost.uidl, Word(lost.failure_class), lost.reply, lost.reason).Run();
    }
    const Database::Kept copies = database.Lend("INSERT INTO copies VALUES (?, ?, ?, ?, ?, ?)");
    for (std::size_t i = 0; i < result.addresses.size(); ++i) {
        const CAddressResult& address = result.addresses[i];
        if (address.copies == 0 && address.list != CSaved::Failed) continue;
        copies->With(run, i, address.path, address.address, address.copies, Word(address.list)).Run();
    }
}

void InsertRun(Database& database, std::int64_t profile, const PastRun& run) {
    const CRunResult& result = run.result;
    if (IsQuiet(result)) {
        database.Lend("DELETE FROM runs WHERE quiet AND id = (SELECT max(id) FROM runs WHERE profile = ?)")
            ->With(profile)
            .Run();
    }
    database
        .Lend(
            "INSERT INTO runs (profile, started, ended, ending, quiet, listed, fetched, not_fetched, delivered,"
            " copies, bytes_received, bytes_sent, lists, log, settings, exception, put_off, set_aside)"
            " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
        ->With(profile, run.started, run.ended, Word(result.ending), IsQuiet(result), result.messages_listed,
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
        .Lend(
            "DELETE FROM runs WHERE id <="
            " (SELECT id FROM runs WHERE profile = ?1 ORDER BY id DESC LIMIT 1 OFFSET ?2) AND profile = ?1")
        ->With(profile, kKeptRuns)
        .Run();
    database
        .Lend(
            "DELETE FROM runs WHERE id IN (SELECT id FROM runs AS old WHERE ended < ? AND"
            " (EXISTS (SELECT 1 FROM runs WHERE profile = old.profile AND id > old.id) OR"
            " (SELECT gone FROM profiles WHERE id = old.profile)) ORDER BY ended LIMIT ?)")
        ->With(now - kKeptDays * kDay, kAtOnce)
        .Run();
}

constexpr const char* kRunColumns =
    "runs.id, listed, fetched, not_fetched, delivered, copies, put_off, set_aside, started, ended, bytes_received,"
    " bytes_sent, ending, lists, log, settings, exception";
constexpr const char* kOldRunColumns =  // until the next run is written
    "runs.id, listed, fetched, not_fetched, delivered, copies, 0, 0, started, ended, bytes_received, bytes_sent,"
    " ending, lists, log, settings, exception";

constexpr int kPathColumn = 17;  // behind them

void ReadDetails(Database& database, std::int64_t run, CRunResult& result) {
    const Database::Kept failure = database.Lend(
        "SELECT conversation, stage, class, reply, reason, uidl, sender, recipient FROM failures WHERE run = ?");
    for (failure->With(run); failure->Next();) {
        CRunFailure& why = failure->Text(0) == "mailbox" ? result.mailbox : result.delivery;
        why.stage = ValueOf<CRunStage>(failure->Text(1));
        why.failure_class = ValueOf<CFailureClass>(failure->Text(2));
        int column = 2;
        for (CString* const text : {&why.reply, &why.reason, &why.uidl, &why.sender, &why.recipient}) {
            *text = failure->Text(++column);
        }
    }
    const Database::Kept mail =
        database.Lend("SELECT uidl, class, reply, reason FROM not_fetched WHERE run = ? ORDER BY place");
    for (mail->With(run); mail->Next();) {
        result.not_fetched.push_back(
            {mail->Text(0), ValueOf<CFailureClass>(mail->Text(1)), mail->Text(2), mail->Text(3)});
    }
    const Database::Kept address =
        database.Lend("SELECT path, address, copies, list FROM copies WHERE run = ? ORDER BY place");
    for (address->With(run); address->Next();) {
        result.addresses.push_back({address->Text(0), address->Text(1), static_cast<int>(address->Number(2)),
                                    ValueOf<CSaved>(address->Text(3))});
    }
}

PastRun ReadRun(Database& database, const Statement& row) {
    PastRun run;
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
    ReadDetails(database, row.Number(0), result);
    return run;
}

}  // namespace

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

void InsertEnded(Database& database, std::int64_t profile, const PastRun& run) {
    database
        .Lend(
            "UPDATE profiles SET runs = runs + 1, failed = failed + ?2,"
            " failed_in_a_row = iif(?2, failed_in_a_row + 1, 0),"
            " failing_since = iif(?2, iif(failed_in_a_row, failing_since, ?3), 0),"
            " last_good = iif(?2, last_good, ?3), fetched = fetched + ?4, not_fetched = not_fetched + ?5,"
            " delivered = delivered + ?6, copies = copies + ?7, bytes_received = bytes_received + ?8,"
            " bytes_sent = bytes_sent + ?9 WHERE id = ?1")
        ->With(profile, IsFailure(run.result.ending), run.started, run.result.messages_fetched,
               run.result.messages_not_fetched, run.result.messages_delivered, run.result.copies,
               run.result.bytes_received, run.result.bytes_sent)
        .Run();
    InsertRun(database, profile, run);
    DropOld(database, profile, run.ended);
}

ProfileTotals ReadTotals(Database& database, std::int64_t profile) {
    ProfileTotals totals;
    const Database::Kept row = database.Lend(
        "SELECT runs, failed, failed_in_a_row, failing_since, last_good, fetched, not_fetched, delivered, copies,"
        " bytes_received, bytes_sent FROM profiles WHERE id = ?");
    if (row->With(profile).Next()) ReadNumbers(*row, 0, totals);
    return totals;
}

PastRun ReadLastRun(Database& database, std::int64_t profile) {
    static constexpr auto query = [](const char* columns) {
        return std::string("SELECT ") + columns + " FROM runs WHERE profile = ? ORDER BY id DESC LIMIT 1";
    };
    static const std::string of_old = query(kOldRunColumns);
    static const std::string of_new = query(kRunColumns);
    const Database::Kept version = database.Lend("PRAGMA user_version");
    const bool is_old = version->Next() && version->Number(0) < kVersionWithRules;
    const Database::Kept row = database.Lend(is_old ? of_old.c_str() : of_new.c_str());
    return row->With(profile).Next() ? ReadRun(database, *row) : PastRun();
}

KnownProfiles ReadProfiles(Database& database) {
    KnownProfiles profiles;
    Statement row = database.Prepare(
        "SELECT path, directory, runs, failed, failed_in_a_row, failing_since, last_good, fetched, not_fetched,"
        " delivered, copies, bytes_received, bytes_sent FROM profiles WHERE gone IS NULL");
    while (row.Next()) {
        KnownProfile& profile = profiles[row.Text(0)];
        profile.directory = row.Text(1);
        ReadNumbers(row, 2, profile.totals);
    }
    return profiles;
}

void WriteProfiles(Database& database, const KnownProfiles& profiles) {
    for (const auto& [path, known] : profiles) {
        const ProfileTotals& of = known.totals;
        database
            .Lend(
                "INSERT INTO profiles (path, directory, runs, failed, failed_in_a_row, failing_since, last_good,"
                " fetched, not_fetched, delivered, copies, bytes_received, bytes_sent)"
                " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT (path) WHERE gone IS NULL DO UPDATE SET"
                " directory = excluded.directory, runs = excluded.runs, failed = excluded.failed,"
                " failed_in_a_row = excluded.failed_in_a_row, failing_since = excluded.failing_since,"
                " last_good = excluded.last_good, fetched = excluded.fetched, not_fetched = excluded.not_fetched,"
                " delivered = excluded.delivered, copies = excluded.copies, bytes_received = excluded.bytes_received,"
                " bytes_sent = excluded.bytes_sent")
            ->With(path, known.directory, of.runs, of.failed, of.failed_in_a_row, of.failing_since, of.last_good,
                   of.fetched, of.not_fetched, of.delivered, of.copies, of.bytes_received, of.bytes_sent)
            .Run();
    }
}

std::vector<FoundRun> FindRuns(Database& database, const HistorySearch& search) {
    std::vector<FoundRun> found;
    Statement row = database.Prepare(
        std::string("SELECT ") + kRunColumns +
        ", (SELECT path FROM profiles WHERE profiles.id = profile) FROM runs WHERE NOT quiet AND ended >= ?1"
        " AND profile IN (SELECT id FROM profiles WHERE gone IS NULL"
        " AND (?2 = '' OR path = ?2 OR substr(path, 1, length(?2) + 1) = ?2 || '/')) ORDER BY id DESC LIMIT ?3");
    for (row.With(search.since, search.name, search.most); row.Next();)
        found.push_back({row.Text(kPathColumn), ReadRun(database, row)});
    return found;
}

}  // namespace tarvex::host
