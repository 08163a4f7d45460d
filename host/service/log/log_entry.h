#pragma once

// A message of the service's log.

#include <string>
#include <vector>

namespace tarvex::host {

// What a message is about. Each has a number that stays the same in every version, by which a log finds its kind.
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

struct LogEntry {
    LogLevel level = LogLevel::Info;
    std::string text;  // a line that is fit to be shown
    LogFacts facts;
};

// 32 hexadecimal digits, made once, for good.
const char* MessageId(LogMatter matter);

}  // namespace tarvex::host
