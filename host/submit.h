#pragma once

#include "host/commands.h"
#include "host/edit.h"

namespace tarvex::host {

// Has the edit made, by the service that owns the tree or under the lock of the root, and prints what is to be said
// about it. Returns the exit code of the command; throws Trouble.
int Submit(const Context& context, const EditRequest& request);

}  // namespace tarvex::host
