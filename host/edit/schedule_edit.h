#pragma once

// Changing the schedule of a forwarding address.

#include <string>

#include "host/edit/edit.h"
#include "host/saving/saving.h"

namespace tarvex::host {

// Adds, removes or switches terms, and saves the schedule; nothing has changed when it throws CommandError. Returns
// what there is to say, and sets how it was saved.
std::string EditSchedule(CForwardAddress& forward, const EditRequest& request, Saved& saved);

}  // namespace tarvex::host
