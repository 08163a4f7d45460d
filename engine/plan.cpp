// What a run would do: its judgement and its bookkeeping, on a copy of the profile and without its conversations.

#include "tarvex/plan.h"

#include <cstddef>
#include <list>
#include <new>
#include <unordered_map>
#include <vector>

#include "engine/bookkeeping.h"
#include "platform/os/shield.h"

namespace tarvex {
namespace {

void Plan(const CPopProfile& profile, CTime moment, CArray<CPlannedMail>& plan) {
    CPopProfile copy;
    copy = profile;  // its lists of ids come from disk
    if (copy.path != profile.path) throw std::bad_alloc();

    std::vector<CForwardAddress*> taking_part;
    std::unordered_map<const CForwardAddress*, CForwardAddress*> originals;
    for (std::size_t i = 0; i < copy.forward_addresses.size(); ++i) {
        CForwardAddress* const address = copy.forward_addresses[i].get();
        originals[address] = profile.forward_addresses[i].get();
        if (address->JudgeTakePart(moment)) taking_part.push_back(address);
    }
    if (taking_part.empty()) return;

    const CCheckedMail handled = CollectHandled(taking_part);
    std::list<CReceiveMail> fetched;
    ReceivedMails mails;
    for (CPlannedMail& planned : plan) {
        planned.fetch = handled.Contains(planned.mail.uidl) ? 0 : 1;
        planned.remove = planned.fetch == 0 && profile.setting.deletemail != 0 ? 1 : 0;
        if (planned.fetch == 0) continue;
        fetched.emplace_back().uidl = planned.mail.uidl;
        mails.push_back(&fetched.back());
    }
    AssignDestinations(mails, taking_part);
    auto mail = mails.begin();
    for (CPlannedMail& planned : plan) {
        if (planned.fetch == 0) continue;
        for (const CForwardAddress* address : (*mail)->destinations) {
            planned.destinations.push_back(originals[address]);
        }
        ++mail;
    }
}

}  // namespace
}  // namespace tarvex

int PlanRun(const CPopProfile& profile, const CArray<CListedMail>& mails, CTime moment, CArray<CPlannedMail>* plan) {
    return tarvex::Shielded(0, [&] {
        plan->clear();
        for (const CListedMail& mail : mails) plan->emplace_back().mail = mail;
        tarvex::Plan(profile, moment, *plan);
        return 1;
    });
}
