#pragma once

// The log of a profile as a file: its lines, and the runs that they tell of.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tarvex/text.h"

namespace tarvex::host {

// The lines of a profile's log as bytes, without their ends; nothing when there is no log that can be read.
std::optional<std::vector<std::string>> ReadLog(const CString& profile_path);

enum class Ending {
    Forwarded,   // there was new mail, and the server took it
    NothingNew,  // there was none
    NobodyTook,  // no address took part, so no connection was made
    Failed,
};

struct LoggedRun {
    std::optional<CTime> start;  // nothing when the line cannot be read
    Ending ending = Ending::Failed;
    std::string reason;        // of a failure, as bytes of the log
    std::int64_t fetched = 0;  // messages
    std::int64_t sent = 0;     // copies that the SMTP server took
    std::int64_t errors = 0;   // messages that could not be fetched
};

// The runs that the lines tell of, oldest first; a piece in front, of a run whose beginning is not kept any more, is
// left out. The log holds what servers say as it is, so a server that imitates the log can falsify what is counted.
std::vector<LoggedRun> RunsIn(const std::vector<std::string>& lines);

// The lines of the newest of them, as bytes.
std::vector<std::string> LinesOfLastRun(const std::vector<std::string>& lines);

// In words: "nothing new", "failed (3 in a row): -ERR ...". The reason is shortened to that many columns.
std::string HowItEnded(const LoggedRun& run, int failed_in_a_row, std::size_t columns);

// How many lines at the end of `now` were not in `before`, an older state of a log of which the oldest lines may have
// gone since.
std::size_t CountNewLines(const std::vector<std::string>& before, const std::vector<std::string>& now);

}  // namespace tarvex::host
