#pragma once

// Runs, as the commands and the service tell of them.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tarvex/tarvex.h"

namespace tarvex::host {

// How far a run is.
struct RunNow {
    std::string profile;  // as ShownName
    std::int64_t bytes_received = 0;
    std::int64_t bytes_sent = 0;
    int messages_to_fetch = 0;
    int messages_fetched = 0;
    int messages_delivered = 0;
};

// What a service tells of itself. Profiles are named as by ShownName.
struct ServiceReport {
    std::vector<RunNow> runs;                     // under way
    std::map<std::string, std::string> troubles;  // by profile: why it does not run, as far as its log cannot tell
};

// Those that are under way. On the thread that owns the root.
std::vector<RunNow> RunsNow(const CRootPath& root);

// What a run that has ended added to its log, in lines below its directory.
std::string ReportOf(const CPopProfile& copy);

// The same of the last run in a log on disk, for a copy that has been freed.
std::string ReportFromDisk(const CString& path, bool has_log);

// Lets the next call of the entry run the profile, as long as it is switched on.
void MakeDue(CPopProfile& profile);

// Adds to a sentence about profiles that are not run for what their files are like, or were not recorded.
void AddLeftOut(std::string& sentence, const std::string& name, const std::string& why);

inline constexpr const char* kNothingDue = "No profile was due.\n";

// Why that did not run it, in a line for whoever named it.
std::string WhyItDoesNotRun(const CRootPath& root, const CPopProfile& profile);

}  // namespace tarvex::host
