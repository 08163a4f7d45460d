#pragma once

// When a term of a schedule matches.

#include "tarvex/text.h"

namespace tarvex {

// Whether a term of that kind, from `start` to `end`, matches at the moment. All comparisons are strict: at its very
// start and end a term does not match. The term's status is the caller's business.
bool TermMatches(int kind, CTime start, CTime end, CTime moment);

}  // namespace tarvex
