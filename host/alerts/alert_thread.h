#pragma once

// Looks for what is to be told, now and then, on a thread of its own.

#include <atomic>
#include <chrono>
#include <map>
#include <string>

#include "host/alerts/alerts.h"
#include "tarvex/tree.h"

namespace tarvex::host {

class AlertThread {
public:
    // The tellers are asked on that thread. `tick`: how often Tick is called about.
    AlertThread(std::string directory, AlertTellers tellers, std::chrono::microseconds tick);
    ~AlertThread();  // stops, and waits for that
    AlertThread(const AlertThread&) = delete;
    AlertThread& operator=(const AlertThread&) = delete;

    // To be called now and then: begins a look when it is time for one. It reads the tree from disk.
    void Tick(const NotRun& not_run);

    // An alert that is under way may have been taken: then it is sent again after the next start.
    void Stop();

private:
    using Clock = std::chrono::steady_clock;

    void Look(const NotRun& not_run);

    const std::string directory_;
    Alerts alerts_;
    const std::chrono::microseconds between_looks_;
    std::atomic<bool> stopped_{false};
    std::atomic<Clock::time_point> next_look_{Clock::now()};
    CPopProfile copy_;  // last: its thread uses the others
};

}  // namespace tarvex::host
