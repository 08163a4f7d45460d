#pragma once

// What the next run of a profile would do, told by the rules of a run.

#include "tarvex/probe.h"
#include "tarvex/text.h"
#include "tarvex/tree.h"

// One message of the mailbox.
struct TARVEX_API CPlannedMail {
    CListedMail mail;
    int fetch = 0;                          // 0: every address that takes part has received it
    int remove = 0;                         // 1: it is deleted on the server, as handled and because of deletemail
    CArray<CForwardAddress*> destinations;  // of the profile; not owned. None for an id that is listed twice
};

// What a run that is judged due at `moment` would do with the messages that the server lists (ListMailbox): one entry
// for each, in their order. Reads the addresses' uidl.def; writes nothing and changes nothing. When no address takes
// part (JudgeTakePart), a run does not even connect: then nothing is fetched or removed. `plan` is emptied first.
// Returns 1, or 0 when memory runs out. To be called on the thread that owns the tree.
TARVEX_API int PlanRun(const CPopProfile& profile, const CArray<CListedMail>& mails, CTime moment,
                       CArray<CPlannedMail>* plan);
