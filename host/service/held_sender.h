#pragma once

// Tries held mail of one profile on a thread of its own.

#include <atomic>
#include <cstddef>
#include <vector>

#include "host/held/held_sending.h"
#include "tarvex/tree.h"

namespace tarvex::host {

class HeldSender {
public:
    // Works on a copy of the profile. Throws std::system_error when no thread can be had. `options` but its `stop`.
    HeldSender(const CPopProfile& profile, std::vector<HeldChoice> choice, HeldSendingOptions options);
    ~HeldSender();  // stops, and waits for that
    HeldSender(const HeldSender&) = delete;
    HeldSender& operator=(const HeldSender&) = delete;

    // A message that is under way stays held. The server may have taken it: then it is sent twice.
    void Stop();
    bool HasEnded() const { return !copy_.worker_thread.load(); }
    std::size_t Asked() const { return choice_.size(); }
    const std::vector<HeldResult>& Results() const { return results_; }  // once it has ended

private:
    CPopProfile copy_;
    const std::vector<HeldChoice> choice_;
    HeldSendingOptions options_;
    std::vector<HeldResult> results_;
    std::atomic<bool> stopped_{false};
};

}  // namespace tarvex::host
