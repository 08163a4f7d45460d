#include "engine/bookkeeping.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tarvex {
namespace {

using UidlSet = std::unordered_set<std::string_view, CUidlHash>;
using UidlCounts = std::unordered_map<std::string_view, std::size_t, CUidlHash>;

}  // namespace

void CollectHandled(std::span<CForwardAddress* const> taking_part, CCheckedMail& handled) {
    std::size_t total = 0;
    for (const CForwardAddress* address : taking_part) total += address->uidls.size();

    UidlCounts occurrences;
    occurrences.reserve(total / std::max<std::size_t>(taking_part.size(), 1));
    for (const CForwardAddress* address : taking_part) {
        for (const CString& uidl : address->uidls) ++occurrences[uidl];
    }
    for (const CForwardAddress* address : taking_part) {
        for (const CString& uidl : address->uidls) {
            std::size_t& count = occurrences[uidl];
            if (count == taking_part.size()) handled.Add(uidl);
            count = 0;  // decided at the first occurrence
        }
    }
}

void AssignDestinations(const ReceivedMails& mails, std::span<CForwardAddress* const> taking_part) {
    std::vector<UidlSet> known(taking_part.size());
    for (std::size_t i = 0; i < taking_part.size(); ++i) {
        CStringArray& uidls = taking_part[i]->uidls;
        uidls.reserve(uidls.size() + mails.size());  // the views below must not move
        known[i].reserve(uidls.size() + mails.size());
        known[i].insert(uidls.begin(), uidls.end());
    }
    for (CReceiveMail* mail : mails) {
        for (std::size_t i = 0; i < taking_part.size(); ++i) {
            if (!known[i].insert(mail->uidl).second) continue;
            // The destination first: should the list not take the id, the message is merely sent once more.
            mail->destinations.push_back(taking_part[i]);
            taking_part[i]->uidls.push_back(mail->uidl);
        }
    }
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
