#pragma once

// What an object of the tree says about the last reading of its file or directory.

#include "tarvex/text.h"

// Whether what stands on disk reached memory. What is missing counts as read, for there was nothing to read. Whoever
// runs, edits or saves an object that was not loaded whole takes defaults for what somebody had set.
struct CLoaded {
    bool whole = true;  // false: something that is there, or may be there, could not be read
    CString path;       // the first such file or directory; empty when memory ran out
    CString reason;     // why, in the system's words or in English
};
