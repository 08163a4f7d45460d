#pragma once

// What the file operations share on POSIX: the system's own form of a path, and an owned file descriptor.

#include <string>

namespace tarvex {

// The path with "/" for every backslash, byte for byte. Empty, so that every system call refuses it, for a path that
// holds a zero byte: the system would see only the part before it, which is another path.
std::string NativePath(std::string path);

// Owns a file descriptor; negative = none.
class FileHandle {
public:
    explicit FileHandle(int descriptor = -1) : descriptor_(descriptor) {}
    ~FileHandle();
    FileHandle(FileHandle&& other) noexcept;
    FileHandle& operator=(FileHandle&& other) noexcept;
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    explicit operator bool() const { return descriptor_ >= 0; }
    int Get() const { return descriptor_; }
    int Release();  // the descriptor, which the caller owns from now on

private:
    int descriptor_;
};

// open(2) and openat(2), close-on-exec and repeated when a signal interrupts them. The result may be none; errno says
// why.
FileHandle OpenAt(int directory, const std::string& path, int flags, unsigned mode = 0);
FileHandle Open(const std::string& path, int flags, unsigned mode = 0);

// Throws std::bad_alloc when errno says that descriptors or the system's memory have run out: a file that could not be
// opened must not pass for a missing one.
void ThrowWhenExhausted();

// What a failed call says of the thing it was to look at: the system's words, or nothing when errno says that there is
// no such thing.
void ExplainFailure(std::string* why);

}  // namespace tarvex
