#pragma once

// Tarvex, a mail-forwarding engine. This is all that a host includes.
//
//     CRootPath root;
//     if (!root.SetRootPath("/srv/tarvex")) ...;
//     for (;;) { Tarvex(&root); wait a while; }

#include <cstdint>
#include <functional>
#include <string_view>

#include "tarvex/conversion.h"
#include "tarvex/guard.h"
#include "tarvex/plan.h"
#include "tarvex/probe.h"
#include "tarvex/tree.h"

// Starts a run, each on a worker thread of its own, for every profile that is due and not running already, and returns
// at once. A null root is ignored. Call it from the thread that owns the root, never concurrently with itself or with
// another operation of that root.
TARVEX_API void Tarvex(CRootPath* root);

enum class CStartResult : int {
    Started = 0,
    AlreadyRunning = 1,  // a run of the same directory is under way
    CouldNotBegin = 2,   // there was no memory for the copy, or no thread to run it
};

// Starts a run of one profile of the root's tree, as the entry does, but without its judgement: due or not, and
// switched on or not. The profile's lasttime becomes now, as when it is judged due. Where nothing is started, lasttime
// stays, no copy is added to root.running_copies, and only `result` of the profile tells of it. Unlike the entry it
// frees no copy that has ended; call RefreshThread once their results have been read. `guard` decides in this run; null
// stands for the defaults, whatever root.guard is. To be called as the entry is.
[[nodiscard]] TARVEX_API CStartResult StartRun(CRootPath& root, CPopProfile& profile, CRunGuard* guard = nullptr);

// Interrupts every run of the root and returns at once. They save their state and end soon; WaitThread waits for that.
// Their copies stay, with their results, until RefreshThread or KillThread frees them. To be called as the entry is.
TARVEX_API void InterruptRuns(CRootPath& root);

// The same for one run, by its copy in root.running_copies, or for the work of a copy.
TARVEX_API void InterruptRun(CPopProfile& copy);

// Whether the calling thread is that of a run, or of work of StartWork, that has been told to end: for a guard that
// waits. False on any other thread.
[[nodiscard]] TARVEX_API bool RunIsInterrupted();

// Does work of the host's own with a copy of a profile, on a worker thread: what the work waits for in that copy's
// conversations ends at once, and none begins any more, after InterruptRun(copy). The copy belongs to the host and must
// live until its worker-thread field reads null again. An exception ends the work. False when there is no thread or no
// memory for it.
[[nodiscard]] TARVEX_API bool StartWork(CPopProfile& copy, std::function<void()> work);

// The interval of a profile's `timer` (in minutes), in seconds. Below 1,440 minutes it is that many minutes; from there
// on it is longer (1,440 minutes give 48 hours). 0 for 0; a negative one, or one that the arithmetic of 32 bits has
// made negative, has always passed.
[[nodiscard]] TARVEX_API std::int32_t IntervalSeconds(std::int32_t timer_minutes);

// What RCPT TO names for the address of a forwarding address: without blanks, display name, comment and brackets. Empty
// when memory runs out.
[[nodiscard]] TARVEX_API CString RecipientOf(std::string_view address);
