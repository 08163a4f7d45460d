#pragma once

// The one host of a root: whoever changes a tree or runs it holds a lock of the kernel on ROOT/.tarvex.lock. The lock
// ends with its process, however that ends. Commands that only read do not take it.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tarvex::host {

class RootLock {
public:
    // Nothing when another process holds it. Throws Trouble when the root has no place for a lock. The command
    // ("serve") is what others are told. Sweeps what killed commands left in the root.
    static std::optional<RootLock> Try(const std::string& root, std::string_view command);

    // Waits for a holder that lets go soon. Throws Trouble, which names the holder, when that does not come in time.
    static RootLock Take(const std::string& root, std::string_view command, std::chrono::milliseconds patience);

    // Who holds it, for a sentence: "tarvex serve (process 4711)".
    static std::string Holder(const std::string& root);

    RootLock(RootLock&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    RootLock& operator=(RootLock&&) = delete;
    ~RootLock();

private:
    explicit RootLock(int descriptor) : descriptor_(descriptor) {}

    int descriptor_;
};

}  // namespace tarvex::host
