#pragma once

// Which message goes to which address, and what is remembered of it. Every operation takes time in proportion to the
// number of ids. The results and their order are those of walking the lists entry by entry.

#include <functional>
#include <span>

#include "tarvex/tree.h"

namespace tarvex {

using ReceivedMails = CArray<CReceiveMail*, CReceiveMail*>;

// The ids that the lists hold together exactly as often as there are lists, in the order of their first occurrence.
// Occurrences are counted, not lists (B37): an id once in each list is handled; one twice in the only list is not; one
// twice in one of two lists is.
CCheckedMail CollectHandled(std::span<CForwardAddress* const> taking_part);

using AskSending = std::function<CSending(const CReceiveMail&, const CForwardAddress&, bool received)>;

// Gives each message, as destinations, the taking-part addresses whose UIDL list lacks its id, and appends the id
// there, as far as the answers are AsAlways. `received` tells whether the list has the id. A message whose id is known
// everywhere gets none (B64); one that got none by any other answer is destroyed.
void AssignDestinations(ReceivedMails& mails, std::span<CForwardAddress* const> taking_part,
                        const AskSending& ask = {});

// Takes the ids of messages that were not completely delivered out of the lists of all their destinations again: per
// message and destination, the first entry equal to the id. Null places (delivered messages) are skipped.
void TakeBack(const ReceivedMails& mails);

}  // namespace tarvex
