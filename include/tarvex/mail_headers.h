#pragma once

// The headers of messages that are on a POP3 server, without fetching a message. For hosts that show them; not part of
// tarvex.h.

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>

#include "tarvex/guard.h"
#include "tarvex/probe.h"
#include "tarvex/text.h"
#include "tarvex/tree.h"

// Which headers a look at a mailbox asks for (TOP).
struct TARVEX_API CHeadersToList {
    // The places of the messages in the listing, in the order in which they are asked for. Called once, on the calling
    // thread. What it throws ends the look as want of memory does.
    std::function<CArray<std::size_t>(const CArray<CListedMail>& mails)> choose;
    std::size_t most_bytes = 64 << 10;         // of each; the rest is left out
    std::chrono::milliseconds at_most{20000};  // for all of them; those that have not come by then are left out
};

struct TARVEX_API CListedHeaders {
    CArray<std::optional<CString>> of_mails;  // as many as the listing has; untrusted bytes. Nothing: it did not come
    bool has_no_top = false;                  // the server refused the first that was asked for
};

// As ListMailbox with a guard (tarvex/probe.h), and asks for the headers before it quits. One that does not come makes
// the look no failure. `headers` is emptied first.
TARVEX_API int ListMailbox(const CPopProfile& profile, CRunGuard& guard, const CHeadersToList& wanted,
                           CMailboxListing* listing, CListedHeaders* headers);
