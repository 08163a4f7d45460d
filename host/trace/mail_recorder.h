#pragma once

// Writes down what becomes of the messages of one run, for the history.

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/history/mail_trace.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

// A message that nothing has become of yet, as it was fetched.
TracedMail TraceOf(const CString& uidl, std::string_view message);

// Filled by the guard of a run, on its worker's thread; emptied by another. Where memory runs out it throws
// std::bad_alloc, as a guard may, unless it is told to end.
class MailRecorder {
public:
    using Clock = std::function<Milliseconds()>;

    explicit MailRecorder(Clock clock = Now) : clock_(std::move(clock)) {}

    // The server is asked for the message.
    void Fetches(const CMailOnServer& mail);

    // What has become of the copy for that address. To be told first of each message while it is as it was fetched.
    void Tell(const CReceiveMail& mail, const CString& address, CopyFate fate, std::string_view words = {});

    // The server is asked to take it, for one address more.
    void Offers(const CReceiveMail& mail, const CString& address);

    // The messages about which nothing more will be told, from time to time; each once.
    std::vector<TracedMail> TakeSettled();

    // All the others, when the run has ended: what waits learns why.
    std::vector<TracedMail> TakeRest(const CRunResult& result);

    static Milliseconds Now();

private:
    struct Entry {
        TracedMail mail;
        bool is_taken = false;
    };

    Entry& EntryOf(const CReceiveMail& mail);
    static TracedCopy& CopyOf(Entry& entry, const CString& address);

    const Clock clock_;
    std::mutex mutex_;  // of all that follows
    std::vector<Entry> entries_;
    std::unordered_map<const CReceiveMail*, std::size_t> places_;
    std::unordered_map<std::string, Milliseconds> fetched_;  // by id
    bool is_delivering_ = false;
};

// The guard of a run without rules: it decides nothing, and writes down what happens.
class RecordingGuard : public CRunGuard {
public:
    explicit RecordingGuard(MailRecorder& recorder) : recorder_(recorder) {}

    bool Fetches(const CPopProfile& profile, const CMailOnServer& mail, std::int64_t held_bytes) override;
    CSending Sends(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                   bool received) override;
    bool Offers(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address) override;
    void Taken(const CPopProfile& profile, const CReceiveMail& mail, std::span<CForwardAddress* const> addresses,
               std::string_view reply) override;

private:
    MailRecorder& recorder_;
};

}  // namespace tarvex::host
