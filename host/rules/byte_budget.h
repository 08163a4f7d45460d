#pragma once

// How much of a common limit the runs of a process use.

#include <cstdint>
#include <mutex>

namespace tarvex::host {

inline constexpr std::int64_t kMiB = std::int64_t{1} << 20;

// Thread-safe.
class ByteBudget {
public:
    explicit ByteBudget(std::int64_t limit) : limit_(limit) {}

    void SetLimit(std::int64_t limit) {
        const std::lock_guard lock(mutex_);
        limit_ = limit;
    }

    // Something larger than the limit is let in when nothing else is there.
    bool Take(std::int64_t bytes) {
        const std::lock_guard lock(mutex_);
        if (used_ != 0 && used_ + bytes > limit_) return false;
        used_ += bytes;
        return true;
    }

    void GiveBack(std::int64_t bytes) {
        const std::lock_guard lock(mutex_);
        used_ -= bytes;
    }

private:
    std::mutex mutex_;
    std::int64_t limit_;
    std::int64_t used_ = 0;
};

}  // namespace tarvex::host
