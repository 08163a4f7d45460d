#pragma once

namespace tarvex {

// The procedure of a worker thread; the parameter is the profile copy to run. Its last act on the copy is to clear the
// copy's worker-thread field, and it waits for that until the entry has set the field: a run that ends before the entry
// has stored the thread reference would otherwise leave the field set for ever, and the profile blocked. Always 1.
unsigned WorkerProcedure(void* profile_copy);

}  // namespace tarvex
