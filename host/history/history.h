#pragma once

// What the runs of a root did and what became of each message, remembered across restarts in ROOT/.tarvex/history.db
// (SQLite). One process writes it, the holder of the root's lock; others may read meanwhile. Losing it loses no mail,
// and nothing that goes wrong with it keeps a run from anything.

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/history/counters.h"
#include "host/history/root_database.h"
#include "host/history/tables/edit_tables.h"
#include "host/history/tables/mail_tables.h"
#include "host/history/tables/run_tables.h"
#include "tarvex/text.h"

namespace tarvex::host {

// A profile's runs since it was made. The numbers only grow: they outlive the single runs, of which the newest
// kKeptRuns of the last kKeptDays are kept, and of quiet ones in a row (nothing new) the last. Of what a server can
// make long only a beginning is kept.
struct ProfileHistory : ProfileTotals {
    PastRun last;
};

// The totals outlive the file where it is removed, replaced or damaged while a writer has it: the writer remembers them
// and begins a new file with them.
class HistoryWriter {
public:
    using Tell = RootDatabaseWriter::Tell;

    // Opens nothing yet. `tell` hears once that something is wrong, and once that it is over; what is wrong is tried
    // again after a while.
    HistoryWriter(std::string root, Tell tell, std::chrono::milliseconds retry_after = std::chrono::seconds(30));

    // A run that has ended, and its messages: those that wait for a later run take the place of those that waited
    // before. What cannot be written is kept in memory, within limits, and written later. These throw nothing but
    // std::bad_alloc.
    void Add(const CString& profile_path, PastRun run, std::vector<TracedMail> mails = {});

    // Messages of a run that goes on, or of none.
    void AddMails(const CString& profile_path, std::vector<TracedMail> mails);

    void AddEdit(MadeEdit edit);

    // Opens the file now rather than for the first entry, so that its totals are remembered from now on.
    void Open();

    // Begins the file anew where it was removed or replaced meanwhile. To be called now and then.
    void LookForFile();

    // Removes what is over the limits and keeps what is new quick to find, for about so long at most. To be called
    // when there is time; `limits` is asked only where there is something to do.
    void Tidy(const std::function<MailLimits()>& limits, CTime now, std::chrono::milliseconds at_most);

private:
    struct Entry {
        ProfileName profile;
        std::optional<PastRun> run;
        std::vector<TracedMail> mails;
        std::optional<MadeEdit> edit;
    };

    void Write(Entry entry);
    void Insert(Database& database, const Entry& entry);
    void Restore(Database& database);

    bool is_tidy_ = true;
    std::deque<Entry> waiting_;
    std::size_t waiting_mails_ = 0;
    Counters uncounted_;      // what is to be added to the file's
    Counters counters_;       // what the file holds, and these profiles
    KnownProfiles profiles_;  // for a new one
    const Tell tell_;
    RootDatabaseWriter database_;
};

class HistoryReader {
public:
    // A root without a history has an empty one. Throws DatabaseError when it cannot be read.
    explicit HistoryReader(const std::string& root);

    // Nothing when no run of it is known. Throws DatabaseError.
    std::optional<ProfileHistory> Of(const CString& profile_path);

    // Throws DatabaseError, and CommandError for a word that cannot be searched for.
    std::vector<FoundMail> Find(const MailSearch& search);

    // Throws DatabaseError.
    std::optional<FoundMail> Mail(std::int64_t id);

    // Who changed what, and the runs that did something or failed: of a user, a profile or a forwarding address, the
    // newest first. Throw DatabaseError.
    std::vector<MadeEdit> Edits(const HistorySearch& search);
    std::vector<FoundRun> Runs(const HistorySearch& search);

    // Of every profile, and of the tree. Throw DatabaseError.
    Counters Totals();
    KnownProfiles Profiles();

    // Whether one of the runs that are kept has sent it something. Throws DatabaseError.
    bool HasHadCopies(const CString& profile_path, const CString& address);

private:
    bool Has(int version);

    RootDatabaseReader database_;
};

// Ends a command, or a question at the desk.
[[noreturn]] void ThrowUnreadable(const DatabaseError& error);  // CommandError

// What `look` reads in the history of the root; throws CommandError where that cannot be read.
template <class Look>
auto FromHistory(const std::string& root, const Look& look) {
    try {
        HistoryReader reader(root);
        return look(reader);
    } catch (const DatabaseError& error) {
        ThrowUnreadable(error);
    }
}

}  // namespace tarvex::host
