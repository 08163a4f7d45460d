#pragma once

// What the lists and `show` print with --json, of one.

#include "host/terminal/json.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

// Every key of one, and of an address with its schedule.
Json JsonOf(const CRootPath& root, const CUser& user);
Json JsonOf(const CRootPath& root, const CPopProfile& profile);
Json JsonOf(const CRootPath& root, const CForwardAddress& forward);

}  // namespace tarvex::host
