#include "host/root_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "host/directories.h"
#include "host/display.h"
#include "host/scratch.h"
#include "host/trouble.h"

namespace tarvex::host {
namespace {

int Descriptor(std::intptr_t file) { return static_cast<int>(file); }

void Write(int descriptor, const std::string& text) {
    // The lock is the kernel's; that its file names the holder is a courtesy, which may fail on a full disk.
    if (ftruncate(descriptor, 0) != 0) return;
    [[maybe_unused]] const ssize_t written = pwrite(descriptor, text.data(), text.size(), 0);
}

}  // namespace

std::optional<RootLock> RootLock::Try(const std::string& root, std::string_view command) {
    const int descriptor = open(FileIn(root).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    const auto fail = [&]() -> Trouble {
        const int code = errno == EACCES || errno == EPERM ? kNotAllowed : kCannotMake;
        return {code, "cannot lock \"" + ShowPath(root) + "\": " + std::strerror(errno)};
    };
    if (descriptor < 0) throw fail();
    RootLock lock(descriptor);
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) throw fail();
        lock.file_ = kNoFile;
        close(descriptor);
        return std::nullopt;
    }
    Write(descriptor, std::to_string(getpid()) + ' ' + std::string(command) + '\n');
    SweepScratchFolders(root);
    DeleteAside(root);
    return lock;
}

bool RootLock::IsHeldIn(const std::string& root) const {
    struct stat held {};
    struct stat there {};
    return fstat(Descriptor(file_), &held) == 0 && stat(FileIn(root).c_str(), &there) == 0 &&
           held.st_dev == there.st_dev && held.st_ino == there.st_ino;
}

RootLock::~RootLock() {
    if (file_ == kNoFile) return;
    Write(Descriptor(file_), "");
    close(Descriptor(file_));
}

}  // namespace tarvex::host
