#pragma once

// What the service tells whoever looks after it.

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/service/posix/journal.h"
#include "host/system/posix/descriptor.h"

namespace tarvex::host {

enum class LogFormat {
    Automatic,  // Journal where standard error is the journal's, else Plain
    Plain,      // lines on standard error, each behind the time
    Journal,    // entries with fields, by the journal's own protocol
    JsonLines,  // lines on standard error, each a JSON object
};

// What a message is about. Each has a number that stays the same in every version, by which the journal finds its kind.
enum class LogMatter {
    Service,     // began, loaded the tree again, stops
    RunStarted,  //
    RunEnded,    // well
    RunFailed,   //
    Profile,     // is left out, waits for a rule or a person, is run again
    Edit,        // was made, or refused
    Request,     // of a command
    Held,        // mail that was set aside was tried
    Trouble,     // something else is wrong
};

struct LogFacts {
    LogMatter matter = LogMatter::Trouble;
    std::string profile = {};                 // path
    std::string result = {};                  // how the run ended: a word of run_words.h
    std::vector<std::string> addresses = {};  // that the run forwarded to, or was refused for
    std::string user = {};                    // of the machine, by whom an edit was made
    std::vector<std::string> keys = {};       // that it set
};

// As those of syslog.
enum class LogLevel { Error = 3, Warning = 4, Notice = 5, Info = 6, Debug = 7 };

// Where nobody reads, lines are lost rather than the service kept waiting; how many is told later. Where the journal
// does not take an entry, it becomes a line. Thread-safe: runs and held mail on their threads tell of the memory of the
// rules.
class ServiceLog {
public:
    explicit ServiceLog(LogFormat format = LogFormat::Automatic, const std::string& journal_socket = kJournalSocket);

    // One line of text that is fit to be shown.
    void Say(LogLevel level, const std::string& text, const LogFacts& facts = {});
    void Say(const std::string& text, const LogFacts& facts = {}) { Say(LogLevel::Info, text, facts); }
    void Warn(const std::string& text, const LogFacts& facts = {}) { Say(LogLevel::Warning, text, facts); }

private:
    std::string LineOf(LogLevel level, const std::string& text, const LogFacts& facts) const;
    void Write(const std::string& line);

    const bool to_journal_;  // standard error is its stream, whose lines begin with their level ("<6>", sd-daemon(3))
    const LogFormat format_;
    std::mutex mutex_;  // of what follows
    std::optional<Journal> journal_;
    Descriptor terminal_;  // standard error again, which never keeps a writer waiting; none when it is no terminal
    int lost_ = 0;         // lines
    bool torn_ = false;    // the last one that was written
};

}  // namespace tarvex::host
