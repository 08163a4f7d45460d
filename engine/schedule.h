#pragma once

// When a term of a schedule matches.

#include "tarvex/text.h"

namespace tarvex {

// Whether a term of that kind, from `start` to `end`, matches at the moment. At its very start and end it does not
// (B33). The caller checks the term's status.
bool TermMatches(int kind, CTime start, CTime end, CTime moment);

}  // namespace tarvex
