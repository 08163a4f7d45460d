#pragma once

// A line on the terminal for each run that goes on.

#include <string>

#include "tarvex/tarvex.h"

namespace tarvex::host {

class Progress {
public:
    Progress() = default;
    ~Progress();  // wipes what is shown
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Draws the lines anew. On the thread that owns the root.
    void Show(const CRootPath& root);

private:
    std::string Wiping() const;

    int shown_ = 0;  // lines
};

}  // namespace tarvex::host
