#pragma once

// The log of one profile: profile.log in the profile's directory.

#include "tarvex/text.h"

// Entries are bytes, written as they were added. A new log is switched off and empty. Used by one thread at a time.
class TARVEX_API CProfileLog {
public:
    CProfileLog() = default;
    virtual ~CProfileLog();

    void SetLogMode(int mode);  // 0 = off: nothing is read, added or written
    void SetLogSize(int size);  // newest entries kept by Save; 0 = all, negative = none

    // Appends the lines of the directory's profile.log. Returns 0 when the log is on and the file cannot be opened.
    int Load(CString directory);

    // Appends one entry without its trailing CR LF pairs. Returns 0, and keeps nothing, when the log is off or memory
    // runs out.
    int AddLine(CString text);

    // Rewrites the directory's profile.log from the newest entries. Returns 0 when it cannot be written.
    int Save(CString directory);

    // Drops all entries and their storage.
    void Clear();

    CString spare;         // unused
    int log_size = 0;      // entries
    CStringArray entries;  // oldest first
    int log_mode = 0;
};
