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

#include "host/history/mail_tables.h"
#include "host/history/root_database.h"
#include "tarvex/result.h"
#include "tarvex/text.h"

namespace tarvex::host {

struct PastRun {
    CTime started = 0;
    CTime ended = 0;
    CRunResult result;
};

// A profile's runs since it was made. The numbers only grow: they outlive the single runs, of which the newest
// kKeptRuns of the last kKeptDays are kept, and of quiet ones in a row (nothing new) the last. Of what a server can
// make long only a beginning is kept.
struct ProfileHistory {
    std::int64_t runs = 0;
    std::int64_t failed = 0;
    std::int64_t failed_in_a_row = 0;
    CTime failing_since = 0;  // start of the first of them; 0 when the last run did not fail
    CTime last_good = 0;      // start of the last run that did not fail; 0 for none
    std::int64_t fetched = 0;
    std::int64_t not_fetched = 0;
    std::int64_t delivered = 0;  // messages, to all their addresses
    std::int64_t copies = 0;
    std::int64_t bytes_received = 0;
    std::int64_t bytes_sent = 0;
    PastRun last;
};

inline constexpr int kKeptRuns = 1000;
inline constexpr int kKeptDays = 90;

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

    // Removes what is over the limits and keeps what is new quick to find, for about so long at most. To be called
    // when there is time; `limits` is asked only where there is something to do.
    void Tidy(const std::function<MailLimits()>& limits, CTime now, std::chrono::milliseconds at_most);

private:
    struct Entry {
        ProfileName profile;
        std::optional<PastRun> run;
        std::vector<TracedMail> mails;
    };

    void Write(Entry entry);

    bool is_tidy_ = true;
    std::deque<Entry> waiting_;
    std::size_t waiting_mails_ = 0;
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

    // Whether one of the runs that are kept has sent it something. Throws DatabaseError.
    bool HasHadCopies(const CString& profile_path, const CString& address);

private:
    void ReadLast(std::int64_t profile, PastRun& run);
    void ReadDetails(std::int64_t run, CRunResult& result);

    RootDatabaseReader database_;
};

}  // namespace tarvex::host
