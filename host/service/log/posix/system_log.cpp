// Gives the service's messages to the journal, as entries with fields.

#include "host/service/log/system_log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "host/service/log/posix/journal.h"

namespace tarvex::host {
namespace {

std::string Number(LogLevel level) { return std::to_string(static_cast<int>(level)); }

// A field that has several values is there several times.
JournalFields FieldsOf(const LogEntry& entry) {
    JournalFields fields = {{"MESSAGE", entry.text},
                            {"PRIORITY", Number(entry.level)},
                            {"SYSLOG_IDENTIFIER", "tarvex"},
                            {"SYSLOG_PID", std::to_string(getpid())},
                            {"MESSAGE_ID", MessageId(entry.facts.matter)}};
    const auto add = [&fields](const char* name, const std::string& value) {
        if (!value.empty()) fields.emplace_back(name, value);
    };
    add("TARVEX_PROFILE", entry.facts.profile);
    add("TARVEX_RESULT", entry.facts.result);
    for (const std::string& address : entry.facts.addresses) add("TARVEX_ADDRESS", address);
    add("TARVEX_USER", entry.facts.user);
    for (const std::string& key : entry.facts.keys) add("TARVEX_KEY", key);
    return fields;
}

}  // namespace

struct SystemLog::Way {
    Journal journal;
};

SystemLog::SystemLog(const std::string& place)
    : way_(std::make_unique<Way>(Journal(place.empty() ? kJournalSocket : place))) {}

SystemLog::~SystemLog() = default;

// Whether standard error is the stream that JOURNAL_STREAM names.
bool SystemLog::IsExpected() {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (!stream || fstat(STDERR_FILENO, &status) != 0) return false;
    return stream == std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
}

bool SystemLog::Take(const LogEntry& entry) { return way_->journal.Send(FieldsOf(entry)); }

// The journal reads the level there (sd-daemon(3)).
std::string SystemLog::LineStart(LogLevel level) { return '<' + Number(level) + '>'; }

}  // namespace tarvex::host
