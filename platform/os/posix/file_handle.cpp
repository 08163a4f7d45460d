// The system's own form of a path, and an owned file descriptor.

#include "platform/os/posix/file_handle.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

namespace tarvex {

std::string NativePath(std::string path) {
    if (path.find('\0') != std::string::npos) return {};
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

FileHandle::~FileHandle() {
    if (descriptor_ >= 0) close(descriptor_);
}

FileHandle::FileHandle(FileHandle&& other) noexcept : descriptor_(other.Release()) {}

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
    FileHandle old(std::exchange(descriptor_, other.Release()));
    return *this;
}

int FileHandle::Release() { return std::exchange(descriptor_, -1); }

FileHandle OpenAt(int directory, const std::string& path, int flags, unsigned mode) {
    int descriptor = -1;
    do {
        descriptor = openat(directory, path.c_str(), flags | O_CLOEXEC, static_cast<mode_t>(mode));
    } while (descriptor < 0 && errno == EINTR);
    return FileHandle(descriptor);
}

void ThrowWhenExhausted() {
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) throw std::bad_alloc();
}

void ExplainFailure(std::string* why) {
    if (!why) return;
    *why = errno == ENOENT || errno == ENOTDIR ? std::string() : std::generic_category().message(errno);
}

FileHandle Open(const std::string& path, int flags, unsigned mode) { return OpenAt(AT_FDCWD, path, flags, mode); }

}  // namespace tarvex
