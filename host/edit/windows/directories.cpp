// Directories are not synced on Windows.

#include "host/edit/directories.h"

namespace tarvex::host {

// The system has no call for it that a user may make; NTFS keeps the order of such changes in its journal.
bool SyncDirectory(const CString&) { return true; }

}  // namespace tarvex::host
