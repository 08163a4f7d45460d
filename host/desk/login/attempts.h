#pragma once

// How often somebody may try a password: five failures within fifteen minutes for each name and each address, and
// nothing more is tried until the first of them is older than that.

#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace tarvex::host {

// From any thread.
class Attempts {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t kMostFailures = 5;
    static constexpr std::chrono::minutes kWithin{15};
    // Of names and addresses that are remembered; those whose failures are the oldest go first.
    static constexpr std::size_t kMostSubjects = 10'000;

    // Whether a password for the name may be tried from the address, which counts as a failure until Forgive: many
    // tries at the same time are no way around the limit. Without a name the address alone counts.
    [[nodiscard]] bool Begin(std::string_view name, std::string_view address, Clock::time_point now);

    // What Begin counted was no failure: nothing was tried.
    void TakeBack(std::string_view name, std::string_view address);

    // The password was right: the failures of the name are forgotten, and this one of the address, whose others may
    // have been about other names.
    void Forgive(std::string_view name, std::string_view address);

private:
    using Failures = std::deque<Clock::time_point>;

    void DropNewest(const std::string& subject);
    Failures& Recent(const std::string& subject, Clock::time_point now);
    void MakeRoom(Clock::time_point now);

    std::mutex mutex_;
    std::map<std::string, Failures, std::less<>> failures_;
};

}  // namespace tarvex::host
