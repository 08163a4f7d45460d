#pragma once

// The schedule of a forwarding address: terms that say when the address takes part in a run. File: schedule.def.

#include <memory>
#include <vector>

#include "tarvex/text.h"

// The kind of a term. The names are also the values in the file.
enum CTermKind : int {
    TERM_EVERY_DAY = 0,
    TERM_EVERY_SUN = 1,
    TERM_EVERY_MON = 2,
    TERM_EVERY_TUE = 3,
    TERM_EVERY_WED = 4,
    TERM_EVERY_THU = 5,
    TERM_EVERY_FRI = 6,
    TERM_EVERY_SAT = 7,
    TERM_DEFINED_TERM = 8,
};

// One term: a time span with a kind.
class TARVEX_API CTerm {
public:
    int operator==(const CTerm& other) const;

    int status = 0;  // 0 = switched off; any other value counts as on, but only exactly 1 is saved as on
    int kind = 0;    // a CTermKind; a term of any other kind never matches
    CString start;   // "year,month,day,hour,minute,second" as GetCTime reads it
    CString end;     // the same form
};

// The terms of one forwarding address, in order. The schedule owns its terms. No operation throws: when memory runs
// out, an assignment leaves its target as it was, and a copy construction yields an empty schedule.
class TARVEX_API CScheduleSetting {
public:
    CScheduleSetting() = default;
    CScheduleSetting(const CScheduleSetting& other);
    CScheduleSetting& operator=(const CScheduleSetting& other);
    virtual ~CScheduleSetting();

    // Destroys every term.
    void Reset();

    // Appends a copy of the term; the caller keeps its own. Returns the index of the copy, -1 for a null pointer and
    // when memory runs out.
    int AddNewTerm(const CTerm* term);

    // Removes and destroys the entry that is this very object. Returns 1, or 0 when it is not one of this schedule's
    // terms.
    int DeleteTerm(const CTerm* term);

    // 1 when both hold equal terms in the same order.
    int operator==(const CScheduleSetting& other) const;

    // Appends the terms of schedule.def in the directory to those already held. Returns 0, and appends nothing, when
    // the file cannot be opened.
    int Load(CString directory);

    // Rewrites schedule.def in the directory. Returns 0 when the directory is empty or the file cannot be written.
    int Save(CString directory) const;

    std::vector<std::unique_ptr<CTerm>> terms;
};
