// Syncs a directory.

#include "host/edit/directories.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "host/system/paths.h"

namespace tarvex::host {

bool SyncDirectory(const CString& directory) {
    const int descriptor = open(NativePath(directory).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return false;
    int result = 0;
    do {
        result = fsync(descriptor);
    } while (result != 0 && errno == EINTR);
    close(descriptor);
    return result == 0;
}

}  // namespace tarvex::host
