#pragma once

// What may be changed from a browser, and by whom.

#include "host/edit/edit.h"

namespace tarvex::host {

enum class Right { May, OnlyAdministrators, OnlyOnTheMachine };

// A user changes what is his own: forwarding addresses and their schedules, and of his profiles what makes the server
// connect to nothing else and does not cost the others anything. An administrator changes everything, but for the keys
// that name programs and files of the machine: whoever may log in there alone may set those. That what the edit names
// is the user's own is not judged here.
Right RightTo(const EditRequest& request, bool is_administrator);

}  // namespace tarvex::host
