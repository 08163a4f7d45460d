// Which message goes to which address: the work on the lists of ids, by hashing.

#include "engine/bookkeeping.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tarvex {
namespace {

using UidlSet = std::unordered_set<std::string_view, CUidlHash>;
using UidlCounts = std::unordered_map<std::string_view, std::size_t, CUidlHash>;

}  // namespace

CCheckedMail CollectHandled(std::span<CForwardAddress* const> taking_part) {
    CCheckedMail ids;
    std::vector<std::size_t> counts;  // of the ids in turn
    for (const CForwardAddress* address : taking_part) {
        for (const CString& uidl : address->uidls) {
            const int index = ids.Add(uidl);
            if (index < 0) throw std::bad_alloc();
            if (index == static_cast<int>(counts.size())) counts.push_back(0);
            ++counts[static_cast<std::size_t>(index)];
        }
    }
    const auto is_handled = [&](std::size_t count) { return count == taking_part.size(); };
    if (std::ranges::all_of(counts, is_handled)) return ids;  // the usual case: no id has to be hashed again
    CCheckedMail handled;
    for (int index = 0; index < ids.GetSize(); ++index) {
        if (is_handled(counts[static_cast<std::size_t>(index)])) handled.Add(ids.GetAt(index));
    }
    return handled;
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
