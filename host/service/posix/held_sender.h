#pragma once

// Tries held mail of one profile on a thread of its own.

#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

#include "host/rules/held_sending.h"
#include "tarvex/tree.h"

namespace tarvex::host {

class HeldSender {
public:
    // Works on a copy of the profile. Throws std::system_error when no thread can be had. `options` but its `stop`.
    HeldSender(const CPopProfile& profile, std::vector<HeldChoice> choice, HeldSendingOptions options);
    ~HeldSender();  // stops before the next message, and waits for that
    HeldSender(const HeldSender&) = delete;
    HeldSender& operator=(const HeldSender&) = delete;

    void Stop() { stopped_ = true; }
    bool HasEnded() const { return ended_; }
    std::size_t Asked() const { return choice_.size(); }
    const std::vector<HeldResult>& Results() const { return results_; }  // once it has ended

private:
    CPopProfile copy_;
    const std::vector<HeldChoice> choice_;
    HeldSendingOptions options_;
    std::vector<HeldResult> results_;
    std::atomic<bool> stopped_{false};
    std::atomic<bool> ended_{false};
    std::thread thread_;
};

}  // namespace tarvex::host
