#pragma once

// Worker threads for tests, and something for them to wait on.

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/os/threads.h"

namespace tarvex::testing {

inline unsigned CallBody(void* body) {
    (*static_cast<std::function<void()>*>(body))();
    return 1;
}

// `body` must outlive the worker.
inline Thread* Begin(std::function<void()>& body) { return AfxBeginThread(CallBody, &body, 0, 0, 0, nullptr); }

inline void RunToItsEnd(std::function<void()> body) {
    Thread* worker = Begin(body);
    ASSERT_NE(worker, nullptr);
    ASSERT_TRUE(WaitForThread(worker, -1));
}

// As std::latch, which may sleep through its end where the compiler's library has no futex.
class Latch {
public:
    explicit Latch(int count) : count_(count) {}
    void CountDown() {
        const std::scoped_lock lock(mutex_);
        if (--count_ == 0) changed_.notify_all();
    }
    void Wait() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return count_ == 0; });
    }

private:
    int count_;
    std::mutex mutex_;
    std::condition_variable changed_;
};

// Something to wait on: a wait ends when Open or Interrupt was called.
class Gate final : public Interruptible {
public:
    ~Gate() = default;
    void Interrupt() noexcept override {
        const std::scoped_lock lock(mutex_);
        ++interruptions_;
        changed_.notify_all();
    }
    void Open() {
        const std::scoped_lock lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    // True when opened, false when interrupted, nothing when neither happens in five minutes.
    std::optional<bool> Wait() {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, std::chrono::minutes(5), [this] { return open_ || interruptions_ > 0; }))
            return std::nullopt;
        return open_;
    }
    int Interruptions() {
        const std::scoped_lock lock(mutex_);
        return interruptions_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
    int interruptions_ = 0;
};

}  // namespace tarvex::testing
