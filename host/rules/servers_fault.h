#pragma once

// Whether a refusal is about the server rather than about the message or the recipient that it names: this machine is
// on a blocklist, the relay wants a login, its disk is full. Then setting mail aside would take the mailbox apart
// message by message.
//
//     of a message (DATA and its end)   three in a row had the same words, and the server took none between them. Those
//                                       that were refused for good count within one run; those refused for the time
//                                       being over several, for each ends its run the first time
//     of a recipient (RCPT TO)          every address that takes part was refused with the same words, two at least,
//                                       and the words do not speak of the address. A single address says nothing: it is
//                                       parked
//
// From then on nothing is set aside for those words, until the server has taken a message. So that one bad message does
// not keep the others from being tried, those that were refused come last meanwhile.

#include <map>
#include <string>
#include <string_view>
#include <unordered_set>

#include "host/memory/memory.h"
#include "tarvex/result.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// In one run.
class ServersFault {
public:
    explicit ServersFault(const ProfileMemory& memory) : memory_(memory) {}

    // To be called once for each refusal. `address`: which was refused.
    bool IsIn(const CPopProfile& profile, const CForwardAddress& address, const MailDigest& digest,
              const CRunFailure& refusal, CTime now);

    // The server has taken a message. What was parked for its words is tried again.
    void Taken(const CPopProfile& profile, CTime now);

    // To be called when the mailbox was listed.
    void Load();
    bool ComesLast(const CString& uidl);

private:
    bool OfMessage(const std::string& words, const CForwardAddress& address, const MailDigest& digest,
                   const CRunFailure& refusal, CTime now);
    bool OfRecipient(const CPopProfile& profile, const CForwardAddress& address, const std::string& words, CTime now);
    bool WasRefusedSo(const CForwardAddress& address, std::string_view words);
    bool IsInARow(const std::string& words, const MailDigest& digest, CTime now);

    ProfileMemory memory_;
    bool has_begun_ = false;                                 // a row of this run
    std::map<const CForwardAddress*, std::string> refused_;  // as recipients, since the server has taken something
    std::unordered_set<std::string> refused_before_;  // digests, while there are words that nothing is set aside for
};

}  // namespace tarvex::host
