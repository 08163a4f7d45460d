#pragma once

// The servers of a mailbox that is being set up, and the login there.

#include "host/commands/setup/options.h"
#include "host/commands/setup/plan.h"
#include "host/commands/setup/questions.h"

namespace tarvex::host {

// Finds both servers and asks about those that cannot be found, then logs in, also with what it asks for. Afterwards
// the plan says how. No password goes to a server whose certificate was not verified. Throws CommandError.
void SettleServers(SetupPlan& plan, const SetupOptions& options, const Questions& questions);

}  // namespace tarvex::host
