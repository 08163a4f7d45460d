#pragma once

// What the file operations share on Windows: an owned handle, and retries while other programs hold a file open.

#include <windows.h>

#include <chrono>
#include <string>
#include <thread>
#include <utility>

namespace tarvex {

// Owns a handle of the kernel; INVALID_HANDLE_VALUE and null = none.
class FileHandle {
public:
    explicit FileHandle(HANDLE handle = INVALID_HANDLE_VALUE) : handle_(handle) {}
    ~FileHandle() { Close(); }
    FileHandle(FileHandle&& other) noexcept : handle_(std::exchange(other.handle_, INVALID_HANDLE_VALUE)) {}
    FileHandle& operator=(FileHandle&& other) noexcept {
        if (this != &other) {
            Close();
            handle_ = std::exchange(other.handle_, INVALID_HANDLE_VALUE);
        }
        return *this;
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    explicit operator bool() const { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }
    HANDLE Get() const { return handle_; }
    void Close() {
        if (*this) CloseHandle(handle_);
        handle_ = INVALID_HANDLE_VALUE;
    }

private:
    HANDLE handle_;
};

// Throws std::bad_alloc when the error says that handles or the system's memory have run out: a file that could not be
// opened must not pass for a missing one.
void ThrowWhenExhausted(DWORD error);

// What a failed call says of the thing it was to look at: the system's words, or nothing when the error says that there
// is no such thing.
void ExplainFailure(std::string* why, DWORD error);

// Whether the last error says that somebody else holds the file, or has it open although it is deleted.
bool IsHeldByOthers();

// For how long a virus scanner, for instance, may hold a file.
inline constexpr std::chrono::seconds kPatience{5};

// Repeats an operation that fails because somebody else holds the file. The result of the last attempt; GetLastError
// tells why it failed.
template <class Operation>
bool Patiently(Operation operation, std::chrono::seconds patience = kPatience) {
    constexpr auto kPause = std::chrono::milliseconds(5);
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!operation()) {
        if (!IsHeldByOthers() || std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

// CreateFile, with retries.
FileHandle OpenFileHandle(const std::wstring& path, DWORD access, DWORD sharing, DWORD disposition, DWORD flags,
                          std::chrono::seconds patience = kPatience);

}  // namespace tarvex
