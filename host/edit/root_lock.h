#pragma once

// The lock of a root. A process that changes or runs a tree holds a kernel lock on ROOT/.tarvex.lock. The lock ends
// with the process, however that ends. Commands that only read do not take it.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tarvex::host {

class RootLock {
public:
    // Nothing when another process holds it. Throws CommandError when the root has no place for a lock. The command
    // ("serve") is what others are told. Sweeps what killed commands left in the root.
    static std::optional<RootLock> Try(const std::string& root, std::string_view command);

    // Waits for a holder that lets go soon. Throws CommandError, which names the holder, when that does not come in
    // time.
    static RootLock Take(const std::string& root, std::string_view command, std::chrono::milliseconds timeout);

    // Who holds it, for a sentence: "tarvex serve (process 4711)"; "(process 4711 on mail2)" where that is another
    // machine with the same file system.
    static std::string Holder(const std::string& root);

    // Whether the root's path still leads to the directory that is locked.
    bool IsHeldIn(const std::string& root) const;

    RootLock(RootLock&& other) noexcept : file_(std::exchange(other.file_, kNoFile)) {}
    RootLock& operator=(RootLock&&) = delete;
    ~RootLock();

private:
    static constexpr std::intptr_t kNoFile = -1;

    explicit RootLock(std::intptr_t file) : file_(file) {}

    static std::filesystem::path FileIn(const std::string& root);
    static std::string NoteOn(const std::string& process, std::string_view command);  // what stands in the file

    std::intptr_t file_;  // a descriptor or handle of the system
};

}  // namespace tarvex::host
