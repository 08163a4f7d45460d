// What is written of a run, a message and an edit, and what is read of them.

#include "host/history/history.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <ctime>
#include <utility>

#include "host/language/tr.h"
#include "host/system/command_error.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostWaiting = 1000;  // entries
constexpr std::size_t kMostWaitingMails = 20'000;

// Each brings the schema from the version before it to its own, which is its place counted from 1.
constexpr std::array kSchemas = {
    kRunSchema, kRuledRunSchema, kMailSchema, kMailIndexSchema, kEditSchema, kCounterSchema,
};

constexpr int kVersionWithRules = 2;
constexpr int kVersionWithMails = 4;
constexpr int kVersionWithEdits = 5;
constexpr int kVersionWithCounters = 6;
constexpr CTime kDay = 86400;
constexpr std::int64_t kMillisecondsInSecond = 1000;

constexpr RootDatabase kDatabase{"history", "the history of runs", kSchemas};

// One that could not look leaves what was known to wait.
bool HasLooked(const CRunResult& result) {
    return result.ending == CRunEnding::NothingNew || result.ending == CRunEnding::Delivered ||
           result.messages_fetched > 0;
}

std::int64_t MillisecondsOf(const PastRun& run) {
    return run.milliseconds > 0 ? run.milliseconds : (run.ended - run.started) * kMillisecondsInSecond;
}

}  // namespace

HistoryWriter::HistoryWriter(std::string root, Tell tell, std::chrono::milliseconds retry_after)
    : tell_(tell), database_(kDatabase, std::move(root), std::move(tell), retry_after, [this](Database& database) {
          Restore(database);
      }) {}

// With a file that is as it was left this changes nothing.
void HistoryWriter::Restore(Database& database) {
    database.Run("DELETE FROM profiles WHERE gone AND id NOT IN (SELECT profile FROM runs)");
    WriteProfiles(database, profiles_);
    WriteAtLeast(database, counters_);
    profiles_ = ReadProfiles(database);
    counters_ = ReadCounters(database);
}

void HistoryWriter::Add(const CString& profile_path, PastRun run, std::vector<TracedMail> mails) {
    Entry entry{NameOfProfile(profile_path), std::move(run), std::move(mails), {}};
    CountRun(uncounted_, entry.profile.path, MillisecondsOf(*entry.run), entry.run->result);
    Shorten(entry.run->result);
    Write(std::move(entry));
}

void HistoryWriter::AddMails(const CString& profile_path, std::vector<TracedMail> mails) {
    if (!mails.empty()) Write({NameOfProfile(profile_path), std::nullopt, std::move(mails), {}});
}

void HistoryWriter::AddEdit(MadeEdit edit) { Write({{}, std::nullopt, {}, std::move(edit)}); }

void HistoryWriter::Write(Entry entry) {
    waiting_mails_ += entry.mails.size();
    waiting_.push_back(std::move(entry));
    const auto drop_first = [this] {
        waiting_mails_ -= waiting_.front().mails.size();
        waiting_.pop_front();
    };
    while (waiting_.size() > 1 && (waiting_.size() > kMostWaiting || waiting_mails_ > kMostWaitingMails)) drop_first();
    LookForFile();
    database_.Do([&](Database& database) {
        for (; !waiting_.empty(); drop_first()) Insert(database, waiting_.front());
    });
}

// What was counted goes with the first entry: those that were dropped count, too.
void HistoryWriter::Insert(Database& database, const Entry& entry) {
    std::optional<KnownProfile> known;
    Transaction transaction(database);
    if (entry.edit) InsertEdit(database, *entry.edit);
    if (!entry.profile.path.empty()) {
        const std::int64_t profile =
            AddProfile(database, entry.profile, entry.run ? entry.run->ended : std::time(nullptr));
        if (entry.run) InsertEnded(database, profile, *entry.run);
        if (entry.run && (HasLooked(entry.run->result) || !entry.mails.empty())) ForgetWaiting(database, profile);
        InsertMails(database, profile, entry.mails);
        known = {entry.profile.directory, ReadTotals(database, profile)};
    }
    WriteMore(database, uncounted_);
    transaction.Commit();
    is_tidy_ = false;
    if (known) profiles_[entry.profile.path] = *known;
    AddTo(counters_, uncounted_);
    uncounted_.clear();
}

void HistoryWriter::Open() {
    database_.Do([](Database&) {});
}

void HistoryWriter::LookForFile() {
    if (database_.KeepsItsFile()) return;
    tell_("the history of runs was removed or replaced while it was in use; it is begun anew with its totals");
    Open();
}

void HistoryWriter::Tidy(const std::function<MailLimits()>& limits, CTime now, std::chrono::milliseconds at_most) {
    if (is_tidy_) return;
    const auto until = std::chrono::steady_clock::now() + at_most;
    database_.Do([&](Database& database) {
        const MailLimits most = limits();
        const bool drops_mails = DropOldMails(database, most, now);
        is_tidy_ = !DropOldEdits(database, now - most.days * kDay) && !drops_mails;
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
    return ProfileHistory{ReadTotals(*database_.Get(), *id), ReadLastRun(*database_.Get(), *id)};
}

bool HistoryReader::Has(int version) {
    return database_.Get() && database_.Get()->Number("PRAGMA user_version") >= version;
}

std::optional<FoundMail> HistoryReader::Mail(std::int64_t id) {
    return Has(kVersionWithMails) ? FindMail(*database_.Get(), id) : std::nullopt;
}

std::vector<FoundMail> HistoryReader::Find(const MailSearch& search) {
    if (!Has(kVersionWithMails)) return {};
    if (search.directory.empty()) return FindMails(*database_.Get(), search);
    const std::optional<std::int64_t> id = database_.FindProfile(search.directory);
    return id ? FindMails(*database_.Get(), search, id) : std::vector<FoundMail>();
}

std::vector<MadeEdit> HistoryReader::Edits(const HistorySearch& search) {
    return Has(kVersionWithEdits) ? FindEdits(*database_.Get(), search) : std::vector<MadeEdit>();
}

std::vector<FoundRun> HistoryReader::Runs(const HistorySearch& search) {
    return Has(kVersionWithRules) ? FindRuns(*database_.Get(), search) : std::vector<FoundRun>();
}

Counters HistoryReader::Totals() { return Has(kVersionWithCounters) ? ReadCounters(*database_.Get()) : Counters(); }

KnownProfiles HistoryReader::Profiles() { return database_.Get() ? ReadProfiles(*database_.Get()) : KnownProfiles(); }

bool HistoryReader::HasHadCopies(const CString& profile_path, const CString& address) {
    const std::optional<std::int64_t> id = database_.FindProfile(profile_path);
    if (!id) return false;
    Statement row = database_.Get()->Prepare(
        "SELECT 1 FROM copies JOIN runs ON runs.id = copies.run"
        " WHERE runs.profile = ? AND copies.address = ? AND copies.copies > 0");
    return row.With(*id, address).Next();
}

void ThrowUnreadable(const DatabaseError& error) {
    throw CommandError(kCannotWrite, Tr("the history cannot be read: {0}", error.what()));
}

}  // namespace tarvex::host
