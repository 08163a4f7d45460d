// Which message goes to which address: the work on the lists of ids, by hashing.

#include "engine/bookkeeping.h"

#include <bit>
#include <cstddef>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tarvex {
namespace {

using UidlSet = std::unordered_set<std::string_view, CUidlHash>;
using UidlCounts = std::unordered_map<std::string_view, std::size_t, CUidlHash>;

// How often each id occurs. A hash table with open addressing in one piece of memory, because allocating a node for
// each id would cost more than counting.
class Occurrences {
public:
    explicit Occurrences(std::size_t ids) : entries_(std::bit_ceil(2 * ids + 1)) {}

    std::size_t& operator[](std::string_view id) {
        const std::size_t mask = entries_.size() - 1;
        std::size_t at = CUidlHash()(id) & mask;
        while (entries_[at].id.data() && entries_[at].id != id) at = (at + 1) & mask;
        entries_[at].id = id;
        return entries_[at].count;
    }

private:
    struct Entry {
        std::string_view id;  // without data where the entry is free
        std::size_t count = 0;
    };
    std::vector<Entry> entries_;
};

}  // namespace

void CollectHandled(std::span<CForwardAddress* const> taking_part, CCheckedMail& handled) {
    std::size_t total = 0;
    for (const CForwardAddress* address : taking_part) total += address->uidls.size();

    Occurrences occurrences(total);
    std::vector<std::size_t*> counts;  // of the ids in turn, since finding one costs more than anything else here
    counts.reserve(total);
    for (const CForwardAddress* address : taking_part) {
        for (const CString& uidl : address->uidls) ++*counts.emplace_back(&occurrences[uidl]);
    }
    auto count = counts.begin();
    for (const CForwardAddress* address : taking_part) {
        for (const CString& uidl : address->uidls) {
            if (**count == taking_part.size()) handled.Add(uidl);
            **count++ = 0;  // decided at the first occurrence
        }
    }
}

void AssignDestinations(ReceivedMails& mails, std::span<CForwardAddress* const> taking_part, const AskSending& ask) {
    if (mails.empty()) return;
    std::vector<UidlSet> known(taking_part.size());
    for (std::size_t i = 0; i < taking_part.size(); ++i) {
        CStringArray& uidls = taking_part[i]->uidls;
        uidls.reserve(uidls.size() + mails.size());  // the views below must not move
        known[i].reserve(uidls.size() + mails.size());
        known[i].insert(uidls.begin(), uidls.end());
    }
    std::vector<std::unique_ptr<CReceiveMail>> for_nobody;  // until the end: the sets hold views of their ids
    for (CReceiveMail*& mail : mails) {
        bool as_always = true;
        for (std::size_t i = 0; i < taking_part.size(); ++i) {
            const bool received = !known[i].insert(mail->uidl).second;
            const CSending sending = ask ? ask(*mail, *taking_part[i], received) : CSending::AsAlways;
            if (sending != CSending::AsAlways) as_always = false;
            // The destination first: if memory for the id runs out then, the message is only sent once more.
            if (sending == CSending::Send || (sending == CSending::AsAlways && !received))
                mail->destinations.push_back(taking_part[i]);
            if (received) continue;
            if (sending == CSending::KeepBack) {
                known[i].erase(mail->uidl);
            } else {
                taking_part[i]->uidls.push_back(mail->uidl);
            }
        }
        if (as_always || !mail->destinations.empty()) continue;
        for_nobody.emplace_back(mail);
        mail = nullptr;
    }
    std::erase(mails, nullptr);
}

void TakeBack(const ReceivedMails& mails) {
    std::unordered_map<CForwardAddress*, UidlCounts> undone;
    for (const CReceiveMail* mail : mails) {
        if (!mail) continue;
        for (CForwardAddress* address : mail->destinations) ++undone[address][mail->uidl];
    }
    for (auto& [address, counts] : undone) {
        std::erase_if(address->uidls, [&counts = counts](const CString& uidl) {
            const auto count = counts.find(uidl);
            if (count == counts.end() || count->second == 0) return false;
            --count->second;
            return true;
        });
    }
}

}  // namespace tarvex
