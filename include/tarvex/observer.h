#pragma once

// What a run has done so far, for a host that shows it.

#include <atomic>
#include <cstdint>

#include "tarvex/text.h"

// Part of every profile (CPopProfile::observer). The worker of a running copy adds to it; the thread that owns the root
// may read it at any time until RefreshThread or KillThread frees the copy. Each number changes by itself: two numbers
// read one after the other need not belong to the same instant. A copy starts from zero.
struct TARVEX_API CRunObserver {
    std::atomic<std::int64_t> bytes_received{0};  // over the wire, from both servers, TLS included
    std::atomic<std::int64_t> bytes_sent{0};      // over the wire, to both servers, TLS included
    std::atomic<int> messages_to_fetch{0};        // known once the mailbox has been listed
    std::atomic<int> messages_fetched{0};
    std::atomic<int> messages_delivered{0};  // taken by the server for all their destinations
};
