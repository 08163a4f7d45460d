#pragma once

// Whether the files of an object of the tree could be read when it was loaded last.

#include "tarvex/text.h"

// A missing file counts as read. An object that was not loaded whole holds defaults where somebody had set values: a
// host must not run, edit or save it.
struct CLoaded {
    bool whole = true;  // false: something that is there, or may be there, could not be read
    CString path;       // the first such file or directory; empty when memory ran out
    CString reason;     // why, in the system's words or in English
};
