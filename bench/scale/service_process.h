#pragma once

// A `tarvex serve` that is measured from outside.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "testing/child_process.h"
#include "testing/temp_dir.h"

namespace tarvex::bench {

struct DiskUse {
    std::int64_t written_bytes = 0;  // that the process handed to the disk
    std::int64_t syncs = 0;
};

// Throws std::runtime_error with the last of what the service printed where it ends, or does not do in time what is
// waited for.
class ServiceProcess {
public:
    // Started, and perhaps not ready yet.
    explicit ServiceProcess(const std::string& root);

    // Waits until it says that it is ready, at the start and after SIGHUP: each word is waited for once.
    void WaitUntilReady();
    void LoadAgain();  // SIGHUP
    void Stop();

    // What it prints is read meanwhile, so that it need not wait for that.
    void WaitUntil(const std::function<bool()>& condition);

    double Resident_MB() const { return Number_kB("VmRSS:") / 1000; }
    double MostResident_MB() const { return Number_kB("VmHWM:") / 1000; }
    double Processor_s() const;
    std::ptrdiff_t Threads() const;
    DiskUse Disk() const;

private:
    std::string Facts(const char* file) const;
    double Number_kB(const char* name) const;
    std::string Last() const;

    testing::TempDir folder_;
    int notices_;  // the socket at which the service says what it does
    testing::ChildProcess program_;
};

}  // namespace tarvex::bench
