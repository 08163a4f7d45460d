#pragma once

// Trying the servers of a profile (tarvex/probe.h) for hosts that tell of each step while it goes on; not part of
// tarvex.h.

#include <functional>
#include <span>

#include "tarvex/guard.h"
#include "tarvex/probe.h"
#include "tarvex/text.h"
#include "tarvex/tree.h"

// Called on the calling thread whenever a step begins, which is the last of these; those before it have ended well,
// except that from MAIL FROM on they may have been refused. They are the steps of the listing or the trial, with their
// texts, and stay only for the call. What it throws ends the try as want of memory does.
using CProbeWatch = std::function<void(std::span<const CProbeStep> steps)>;

// As ListMailbox and TrySmtp with a guard.
TARVEX_API int ListMailbox(const CPopProfile& profile, CRunGuard& guard, const CProbeWatch& watch,
                           CMailboxListing* listing);
TARVEX_API int TrySmtp(const CPopProfile& profile, CRunGuard& guard, std::span<const CString> recipients,
                       const CProbeWatch& watch, CSmtpTrial* trial);
