#pragma once

// Runs, as the commands and the service tell of them.

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/generation/generation.h"
#include "host/history/history.h"
#include "host/language/tr.h"
#include "host/state/run_now.h"
#include "host/system/command_error.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

// What a service reports of itself. Profiles are named as by ShownName.
struct ServiceReport {
    std::vector<RunNow> runs;                     // under way
    std::map<std::string, std::string> troubles;  // by profile: why it is not run
    std::string zone;                             // in which the service reads schedules
    std::optional<OldCopy> old_copy;              // why nothing is run
    bool is_paused = false;                       // likewise: the system has said so
};

inline constexpr const char* kServiceIsPaused = Marked("the service is paused: nothing is run until it goes on");

// The runs that are under way. Call it on the thread that owns the root.
std::vector<RunNow> RunsNow(const CRootPath& root);

// What a run that has ended added to its log, line by line and fit to be shown.
std::vector<std::string> LinesOfThisRun(const CProfileLog& log);

// The same below its directory and how it ended, and what else there is to say of that (RuledRuns::WhatElse).
std::string ReportOf(const CPopProfile& copy, const std::string& what_else);

// A run that ends now, for the history.
PastRun RunThatEnded(const CPopProfile& copy, std::chrono::milliseconds duration);
PastRun RunThatCouldNotBegin();

// What went wrong with the profiles that a command is about: one sentence, and the exit code for it.
struct RunTroubles {
    std::string sentence;  // a line for each
    int code = kDone;      // of several the highest: a profile left out (74) says more than a run that failed (69)

    void Add(const std::string& name, const std::string& why, int exit_code);  // the name may be empty
    void AddEnd(const std::string& name, const CRunResult& result);            // nothing when all went well
};

// The runs of a command that asked for many: a line for each that did something, and one that sums them all up. What
// failed stands in its troubles.
class RunsInBrief {
public:
    // What is printed of the run; empty for nothing.
    std::string Add(const std::string& name, const CPopProfile& copy, const std::string& what_else);
    void AddOneThatCouldNotBegin(const CString& path) { has_failed_[path] = true; }

    // "200 profiles: 3 messages to 5 addresses, 2 failed"; empty when nothing ran.
    std::string Sum() const;

private:
    std::map<CString, bool> has_failed_;  // the last run of each
    std::set<CString> addresses_;         // that got something
    std::int64_t messages_ = 0;
};

inline constexpr const char* kNothingDue = Marked("No profile was due.");

// One line explaining why a named profile was not run.
std::string WhyItDoesNotRun(const CRootPath& root, const CUser& user, const CPopProfile& profile);

}  // namespace tarvex::host
