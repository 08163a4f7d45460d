#pragma once

// Trying mail again that was set aside, through the engine's own delivery.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/held/held_record.h"
#include "host/history/mail_trace.h"
#include "host/memory/memory.h"
#include "host/ways/server_way.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// A message for one of the addresses that wait for it.
struct HeldChoice {
    int id = 0;
    CString folder;      // of the address
    std::string digest;  // of the message that is meant; empty for whichever has the id

    bool operator==(const HeldChoice&) const = default;
};

enum class HeldOutcome {
    Taken,    // by the server; the address waits no more
    Refused,  // the server refused the message or the recipient
    Failed,   // what says nothing about the message: connection, login, sender, time-out, disk. Ends all that was asked
    Blocked,  // refused with the words that refused three messages in a row: it is the server, and counts as no try.
              // The third in a row ends all that was asked
    NotTried,  // see `why`
};

struct HeldResult {
    HeldChoice choice;
    CString address;
    std::string digest;
    HeldOutcome outcome = HeldOutcome::NotTried;
    CRunFailure failure;             // of Refused, Failed and Blocked
    std::string why;                 // in English, where `failure` does not tell
    std::optional<TracedMail> sent;  // of Taken, by the server and now
};

// Every address that waits, in the order of the messages.
std::vector<HeldChoice> AllHeld(const std::vector<HeldRecord>& records);

// Those whose time has come: at `next_try` after a transient refusal, and after any when address or route have changed
// since. Only of addresses that take part at that moment. An address that was refused as recipient waits as a whole.
// Within 15 minutes of a try that failed for another reason nothing is due.
std::vector<HeldChoice> DueHeld(const CPopProfile& profile, const std::vector<HeldRecord>& records, CTime now);

// The moment from which DueHeld may find something if nothing changes, at most 15 minutes from now.
CTime NextHeldLook(const std::vector<HeldRecord>& records, CTime now);

struct HeldSendingOptions {
    CTime now = 0;
    std::function<bool()> stop;    // asked before each message; may be empty
    RuleMemory* memory = nullptr;  // learns what was sent and refused, and keeps what was sent from being sent again
    int end_of_data_s = 0;         // how long the answer to a whole message may take; 0: the profile's time-out
    Ways* ways = nullptr;          // to a server that wants a token
};

// Tries the choice in its order, each message for each address as a delivery of its own, over one connection as long
// as that lasts, and brings the records up to date. On a copy of the profile that is used for nothing else, and never
// beside a run of that profile. Blocks for as long as the server takes. An address that is switched off gets nothing;
// its schedule does not matter.
std::vector<HeldResult> SendHeld(CPopProfile& copy, const std::vector<HeldChoice>& choice,
                                 const HeldSendingOptions& options);

// For the history: what the server has taken.
std::vector<TracedMail> SentIn(const std::vector<HeldResult>& results);

// Makes due what waits because the recipient was refused: the server has taken mail for the address again.
void MakeHeldDue(const CString& profile_path, const CString& folder, CTime now);

}  // namespace tarvex::host
