#pragma once

// Messages that a run fetched and could not deliver, in memory for the next run of their profile: a server that takes a
// hundred messages a connection, or none for a while, costs no second fetch.
//
// They count in the byte budget of all runs, and make room for messages that are fetched. A message is known again by
// its id, which its listing must hold once, and by its size there.

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>

#include "host/rules/byte_budget.h"
#include "tarvex/tree.h"

namespace tarvex::host {

inline constexpr CTime kKeptInMemory_s = CTime{15} * 60;  // since the run ended

// Of one profile.
class KeptMail {
public:
    // `listed_bytes`: its size as the server listed it.
    void Add(const CString& uidl, std::int64_t listed_bytes, CString text);
    std::optional<CString> Take(const CString& uidl, std::int64_t listed_bytes);

    bool IsEmpty() const { return messages_.empty(); }
    std::int64_t Bytes() const { return bytes_; }

private:
    struct Message {
        std::int64_t listed_bytes = 0;
        CString text;
    };
    std::map<CString, Message> messages_;
    std::int64_t bytes_ = 0;
};

// Between the runs. Thread-safe.
class KeptMails {
public:
    explicit KeptMails(ByteBudget& budget) : budget_(budget) {}

    // Those of the run's mailbox, whose bytes are the run's from then on. Others of the profile are dropped.
    KeptMail Take(const CPopProfile& profile, CTime now);

    // Takes them over, with their bytes.
    void Keep(const CPopProfile& profile, KeptMail mail, CTime now);

    // Drops what was kept first, until so many bytes are free or nothing is kept.
    void MakeRoom(std::int64_t bytes);

    // Drops what no run will take: that of profiles that are gone or have another mailbox now, and what is too old.
    void DropUseless(const CRootPath& root, CTime now);

private:
    struct OfProfile {
        CString mailbox;
        CTime since = 0;
        KeptMail mail;

        bool IsFor(const CPopProfile& profile, CTime now) const;
    };
    using All = std::map<CString, OfProfile>;  // by the profile's path

    All::iterator Drop(All::iterator one);

    ByteBudget& budget_;
    std::mutex mutex_;
    All all_;
};

}  // namespace tarvex::host
