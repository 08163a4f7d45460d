#pragma once

#include "tarvex/tarvex.h"

namespace tarvex {

// What StartRun does, with lasttime as it is.
CStartResult StartCopy(CRootPath& root, CPopProfile& profile, CRunGuard* guard);

// The procedure of a worker thread: runs the profile copy that is its parameter, then clears the copy's worker-thread
// field. A short run may end before the entry has set that field, so it waits until the field is set: otherwise the
// field would stay set for ever and block the profile. Always returns 1.
unsigned WorkerProcedure(void* profile_copy);

}  // namespace tarvex
