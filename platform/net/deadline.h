#pragma once

// A moment by which something must have happened, on a clock that nobody sets.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <limits>

namespace tarvex {

class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    explicit Deadline(std::chrono::milliseconds from_now) : moment_(Clock::now() + from_now) {}

    Clock::time_point Moment() const { return moment_; }
    bool HasPassed() const { return Clock::now() >= moment_; }

    // What is left, rounded up, so that a wait of that length never ends before the deadline.
    int RemainingMs() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(moment_ - Clock::now()).count();
        return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
    }

    // An equal share of the time that is left, for the first of so many attempts.
    Deadline FirstShare(std::size_t attempts) const {
        return Deadline(std::chrono::milliseconds(RemainingMs() / std::max<std::size_t>(attempts, 1)));
    }

private:
    Clock::time_point moment_;
};

}  // namespace tarvex
