// The lock of a root by flock.

#include "host/edit/root_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "host/edit/scratch.h"
#include "host/language/tr.h"
#include "host/saving/directories.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

constexpr std::string_view kService = "serve";

int Descriptor(std::intptr_t file) { return static_cast<int>(file); }

void Write(int descriptor, const std::string& text) {
    // The file also names the holder, for messages. That may fail on a full disk; the lock holds all the same.
    if (ftruncate(descriptor, 0) != 0) return;
    [[maybe_unused]] const ssize_t written = pwrite(descriptor, text.data(), text.size(), 0);
}

// Users who may write in the root could take the place of the service, or rename its files.
void RequireOwnRoot(const std::string& root) {
    constexpr mode_t kOthersMayWrite = S_IWGRP | S_IWOTH;
    struct stat status {};
    if (stat(NativePath(root).c_str(), &status) != 0 || (status.st_mode & kOthersMayWrite) == 0) return;
    throw CommandError(kBadSettings,
                       Tr("\"{0}\" may be changed by others than its owner; `chmod go-w` ends that", ShowPath(root)));
}

bool IsOwn(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && status.st_uid == geteuid();
}

}  // namespace

std::optional<RootLock> RootLock::Try(const std::string& root, std::string_view command) {
    RequireOwnRoot(root);
    const int descriptor = open(FileIn(root).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    const auto fail = [&]() -> CommandError {
        const int code = errno == EACCES || errno == EPERM ? kNotAllowed : kCannotMake;
        return {code, Tr("cannot lock \"{0}\": {1}", ShowPath(root), std::strerror(errno))};
    };
    if (descriptor < 0) throw fail();
    RootLock lock(descriptor);
    if (!IsOwn(descriptor)) {
        lock.file_ = kNoFile;
        close(descriptor);
        throw CommandError(kNotAllowed, Tr("cannot lock \"{0}\": the lock file is another user's", ShowPath(root)));
    }
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) throw fail();
        lock.file_ = kNoFile;
        close(descriptor);
        return std::nullopt;
    }
    Write(descriptor, NoteOn(std::to_string(getpid()), command));
    // Another machine with the same file system reads it only once it is on the server.
    if (command == kService) static_cast<void>(fdatasync(descriptor));
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
