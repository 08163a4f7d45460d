#pragma once

// What the service tells whoever looks after it.

#include <mutex>
#include <optional>
#include <string>

#include "host/service/log/log_entry.h"
#include "host/service/log/log_file.h"
#include "host/service/log/system_log.h"
#include "host/system/error_output.h"

namespace tarvex::host {

enum class LogFormat {
    Automatic,  // System where that is expected, else Plain
    Plain,      // lines on standard error, each behind the time
    System,     // entries in the log that the system keeps
    JsonLines,  // lines on standard error, each a JSON object
};

// Where nobody reads, lines are lost rather than the service kept waiting; how many is told later. Where the log
// of the system does not take an entry, it becomes a line. Thread-safe: runs and held mail on their threads tell of the
// memory of the rules.
class ServiceLog {
public:
    // `system_log`: where the log of the system takes entries; empty: the usual place. `file`: where lines go in place
    // of standard error (LogFile); none when empty. Throws CommandError when that cannot be written.
    explicit ServiceLog(LogFormat format = LogFormat::Automatic, const std::string& system_log = {},
                        const std::string& file = {});

    // One line of text that is fit to be shown.
    void Say(LogLevel level, const std::string& text, const LogFacts& facts = {});
    void Say(const std::string& text, const LogFacts& facts = {}) { Say(LogLevel::Info, text, facts); }
    void Warn(const std::string& text, const LogFacts& facts = {}) { Say(LogLevel::Warning, text, facts); }

private:
    std::string LineOf(const LogEntry& entry) const;
    void Write(const std::string& line);
    void WriteToErrors(const std::string& lines);

    const bool to_system_;  // standard error leads to the log of the system
    const LogFormat format_;
    std::mutex mutex_;  // of what follows
    std::optional<SystemLog> system_log_;
    std::optional<LogFile> file_;
    ErrorOutput errors_;
    int lost_ = 0;       // lines
    bool torn_ = false;  // the last one that was written
};

}  // namespace tarvex::host
