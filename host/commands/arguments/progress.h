#pragma once

// Shows a line on the terminal for each run that is under way.

#include <string>
#include <vector>

#include "host/service/run_reports.h"

namespace tarvex::host {

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

    std::size_t shown_ = 0;  // lines
};

}  // namespace tarvex::host
