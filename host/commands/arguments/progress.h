#pragma once

// Shows a line on the terminal for each run that is under way, as many as it has room for.

#include <cstddef>
#include <string>
#include <vector>

#include "host/service/run_reports.h"

namespace tarvex::host {

// How the terminal is to show them: one line less than it has, the last of them for the runs that have none of their
// own. No line is wider than the terminal, where that tells its width.
std::vector<std::string> ProgressLines(const std::vector<RunNow>& runs, std::size_t lines, std::size_t columns);

// On how many lines of a terminal these lines stand that were printed when it was wider perhaps.
std::size_t LinesTaken(const std::vector<std::string>& lines, std::size_t columns);

class Progress {
public:
    Progress() = default;
    ~Progress();  // wipes what is shown
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Draws the lines anew.
    void Show(const std::vector<RunNow>& runs);

private:
    std::string Wiping() const;

    std::vector<std::string> shown_;
};

}  // namespace tarvex::host
