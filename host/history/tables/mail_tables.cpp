// Messages are written as they come, a row each; the index that finds them by their words is brought up to date later,
// when there is time. What is not in it yet is looked through one by one.

#include "host/history/tables/mail_tables.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <functional>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/history/mail_words.h"
#include "host/system/command_error.h"
#include "host/system/display.h"

namespace tarvex::host {
namespace {

using namespace std::literals;

constexpr std::int64_t kAtOnce = 200;
constexpr CTime kDay = 86400;
constexpr CTime kSecond = 1000;  // in milliseconds

constexpr std::array<std::pair<CopyFate, std::string_view>, 7> kFates = {{
    {CopyFate::Waits, "waits"sv},
    {CopyFate::Sent, "sent"sv},
    {CopyFate::HadAlready, "had already"sv},
    {CopyFate::Refused, "refused"sv},
    {CopyFate::Parked, "parked"sv},
    {CopyFate::Report, "report"sv},
    {CopyFate::Loop, "loop"sv},
}};

void InsertMail(Database& database, std::int64_t profile, const TracedMail& mail, bool waits) {
    const auto belongs = [waits](const TracedCopy& copy) { return (copy.fate == CopyFate::Waits) == waits; };
    if (std::ranges::none_of(mail.copies, belongs)) return;
    database
        .Lend("INSERT INTO mails (profile, waits, uidl, header, bytes, fetched, ended) VALUES (?, ?, ?, ?, ?, ?, ?)")
        ->With(profile, waits, mail.uidl, mail.header, mail.bytes, mail.fetched,
               std::ranges::max(mail.copies, {}, &TracedCopy::ended).ended)
        .Run();
    const std::int64_t id = database.LastId();
    std::int64_t place = 0;
    for (const TracedCopy& copy : mail.copies) {
        if (!belongs(copy)) continue;
        database.Lend("INSERT INTO mail_copies VALUES (?, ?, ?, ?, ?, ?, ?)")
            ->With(id, place++, copy.address, Word(copy.fate), copy.offered, copy.ended, copy.words)
            .Run();
    }
}

TracedMail ReadMail(Database& database, std::int64_t id) {
    TracedMail mail;
    {
        const Database::Kept row = database.Lend("SELECT uidl, header, bytes, fetched FROM mails WHERE id = ?");
        if (row->With(id).Next()) mail = {row->Text(0), row->Text(1), row->Number(2), row->Number(3), {}};
    }
    const Database::Kept copy =
        database.Lend("SELECT address, fate, offered, ended, words FROM mail_copies WHERE mail = ? ORDER BY place");
    for (copy->With(id); copy->Next();) {
        mail.copies.push_back({copy->Text(0), FateOf(copy->Text(1)), copy->Number(2), copy->Number(3), copy->Text(4)});
    }
    return mail;
}

std::int64_t IndexedUpTo(Database& database) { return database.Number("SELECT up_to FROM mails_indexed"); }

std::vector<std::int64_t> Ids(Statement& statement) {
    std::vector<std::int64_t> ids;
    while (statement.Next()) ids.push_back(statement.Number(0));
    return ids;
}

void Index(Database& index, std::int64_t id, const TracedMail& mail) {
    index.Lend("INSERT INTO mail_words (rowid, words) VALUES (?, ?)")->With(id, SearchWords(mail)).Run();
}

// An index without the texts must be told what stands in it.
void DropMail(Database& database, std::int64_t id, std::int64_t indexed_up_to) {
    if (id <= indexed_up_to) {
        database.Lend("INSERT INTO mail_words (mail_words, rowid, words) VALUES ('delete', ?, ?)")
            ->With(id, SearchWords(ReadMail(database, id)))
            .Run();
    }
    database.Lend("DELETE FROM mails WHERE id = ?")->With(id).Run();
}

bool IsOver(Database& database, const MailLimits& limits) {
    const std::int64_t pages = database.Number("PRAGMA page_count") - database.Number("PRAGMA freelist_count");
    return pages * database.Number("PRAGMA page_size") > limits.bytes;
}

std::string QueryFor(const MailSearch& search) {
    std::string query;
    for (const std::string& word : search.words) {
        const std::string phrase = SearchPhrase(word);
        if (phrase.empty())
            throw CommandError(kBadUsage, "\"" + ShowUtf8Text(word) + "\" has no letter and no digit to search for");
        query += (query.empty() ? "" : " AND ") + phrase;
    }
    return query;
}

// What the index does not have: the newest, and what waits.
std::vector<std::int64_t> FindUnindexed(Database& database, const std::string& query) {
    Database index(":memory:", Database::Use::Write, 0ms);
    index.Run(kMailIndexSchema);
    Statement mails =
        database.Prepare("SELECT id FROM mails WHERE id > ? AND NOT waits UNION ALL SELECT id FROM mails WHERE waits");
    Transaction transaction(index);
    for (const std::int64_t id : Ids(mails.With(IndexedUpTo(database)))) Index(index, id, ReadMail(database, id));
    transaction.Commit();
    Statement found = index.Prepare("SELECT rowid FROM mail_words WHERE mail_words MATCH ?");
    return Ids(found.With(query));
}

}  // namespace

std::string_view Word(CopyFate fate) {
    return std::ranges::find(kFates, fate, &decltype(kFates)::value_type::first)->second;
}

CopyFate FateOf(std::string_view word) {
    const auto* const found = std::ranges::find(kFates, word, &decltype(kFates)::value_type::second);
    return found == kFates.end() ? CopyFate::Waits : found->first;
}

void InsertMails(Database& database, std::int64_t profile, std::span<const TracedMail> mails) {
    for (const TracedMail& mail : mails) {
        InsertMail(database, profile, mail, false);
        InsertMail(database, profile, mail, true);
    }
}

void ForgetWaiting(Database& database, std::int64_t profile) {
    database.Lend("DELETE FROM mails WHERE profile = ? AND waits")->With(profile).Run();
}

bool IndexMails(Database& database) {
    const std::int64_t up_to = IndexedUpTo(database);
    Statement next = database.Prepare("SELECT id FROM mails WHERE id > ? AND NOT waits ORDER BY id LIMIT ?");
    const std::vector<std::int64_t> ids = Ids(next.With(up_to, kAtOnce));
    if (ids.empty()) return false;
    Transaction transaction(database);
    for (const std::int64_t id : ids) Index(database, id, ReadMail(database, id));
    database.Prepare("UPDATE mails_indexed SET up_to = ?").With(ids.back()).Run();
    transaction.Commit();
    return true;
}

bool DropOldMails(Database& database, const MailLimits& limits, CTime now) {
    const Milliseconds oldest = (now - limits.days * kDay) * kSecond;
    const Milliseconds older = IsOver(database, limits) ? std::numeric_limits<Milliseconds>::max() : oldest;
    Statement old = database.Prepare("SELECT id, ended FROM mails WHERE NOT waits ORDER BY id LIMIT ?");
    std::vector<std::int64_t> ids;
    for (old.With(kAtOnce); old.Next() && old.Number(1) < older;) ids.push_back(old.Number(0));
    old.Reset();
    if (ids.empty()) return false;
    const std::int64_t up_to = IndexedUpTo(database);
    Transaction transaction(database);
    for (const std::int64_t id : ids) DropMail(database, id, up_to);
    transaction.Commit();
    return true;
}

std::string HandleOf(const FoundMail& found) { return 'M' + std::to_string(found.id); }

std::optional<std::int64_t> IdInHandle(std::string_view handle) {
    if (!handle.starts_with('M') && !handle.starts_with('m')) return {};
    std::int64_t id = 0;
    const char* const end = handle.data() + handle.size();
    const auto [last, error] = std::from_chars(handle.data() + 1, end, id);
    return error == std::errc() && last == end && id > 0 ? std::optional(id) : std::nullopt;
}

std::optional<FoundMail> FindMail(Database& database, std::int64_t id) {
    const Database::Kept row =
        database.Lend("SELECT path, waits FROM mails JOIN profiles ON profiles.id = profile WHERE mails.id = ?");
    if (!row->With(id).Next()) return {};
    return FoundMail{row->Text(0), ReadMail(database, id), row->Number(1) != 0, id};
}

std::vector<FoundMail> FindMails(Database& database, const MailSearch& search, std::optional<std::int64_t> of_profile) {
    const std::string query = QueryFor(search);
    std::vector<std::int64_t> newest = query.empty() ? std::vector<std::int64_t>() : FindUnindexed(database, query);
    std::ranges::sort(newest, std::greater());
    std::vector<FoundMail> found;
    const auto take = [&](std::int64_t id) {
        const Database::Kept row = database.Lend(
            "SELECT path, waits, mails.ended, profile FROM mails JOIN profiles ON profiles.id = profile WHERE mails.id "
            "= ?");
        if (!row->With(id).Next() || row->Number(2) < search.since * kSecond) return;
        if (of_profile && row->Number(3) != *of_profile) return;
        if (search.profile.empty() || row->Text(0) == search.profile)
            found.push_back({row->Text(0), ReadMail(database, id), row->Number(1) != 0, id});
    };
    for (const std::int64_t id : newest) {
        if (found.size() > search.most) return found;
        take(id);
    }
    Statement older =
        database.Prepare(query.empty() ? "SELECT id FROM mails WHERE ?1 = '' ORDER BY id DESC"
                                       : "SELECT rowid FROM mail_words WHERE mail_words MATCH ?1 ORDER BY rowid DESC");
    for (older.With(query); found.size() <= search.most && older.Next();) take(older.Number(0));
    return found;
}

}  // namespace tarvex::host
