#pragma once

// Runs, as the commands and the service tell of them.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/history/history.h"
#include "host/state/run_now.h"
#include "host/system/command_error.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

// What a service reports of itself. Profiles are named as by ShownName.
struct ServiceReport {
    std::vector<RunNow> runs;                     // under way
    std::map<std::string, std::string> troubles;  // by profile: why it is not run
};

// The runs that are under way. Call it on the thread that owns the root.
std::vector<RunNow> RunsNow(const CRootPath& root);

// What a run that has ended added to its log, line by line and fit to be shown.
std::vector<std::string> LinesOfThisRun(const CProfileLog& log);

// The same below its directory and how it ended, and what else there is to say of that (RuledRuns::WhatElse).
std::string ReportOf(const CPopProfile& copy, const std::string& what_else);

// A run that ends now, for the history.
PastRun RunThatEnded(const CPopProfile& copy);
PastRun RunThatCouldNotBegin();

// What went wrong with the profiles that a command is about: one sentence, and the exit code for it.
struct RunTroubles {
    std::string sentence;
    int code = kDone;  // of several the highest: a profile left out (74) says more than a run that failed (69)

    void Add(const std::string& name, const std::string& why, int exit_code);  // the name may be empty
    void AddEnd(const std::string& name, const CRunResult& result);            // nothing when all went well
};

inline constexpr const char* kNothingDue = "No profile was due.\n";

// One line explaining why a named profile was not run.
std::string WhyItDoesNotRun(const CRootPath& root, const CUser& user, const CPopProfile& profile);

}  // namespace tarvex::host
