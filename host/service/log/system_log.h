#pragma once

// The log that the system keeps: the journal of systemd, the event log of Windows.

#include <memory>
#include <string>

#include "host/service/log/log_entry.h"

namespace tarvex::host {

class SystemLog {
public:
    // `place`: where it takes entries; empty: the usual one.
    explicit SystemLog(const std::string& place);
    ~SystemLog();
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;

    // Whether it is what this process is expected to write to: standard error leads there, or there is no other.
    static bool IsExpected();

    // False when it does not take it: it is not there, or has not read for a while.
    [[nodiscard]] bool Take(const LogEntry& entry);

    // What a line on standard error begins with where that leads to the log of the system.
    static std::string LineStart(LogLevel level);

private:
    struct Way;
    std::unique_ptr<Way> way_;
};

}  // namespace tarvex::host
