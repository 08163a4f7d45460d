#pragma once

// Work on a tree, by this process or by the service that owns the tree.

#include <memory>
#include <span>
#include <string>
#include <variant>

#include "host/commands/commands.h"
#include "host/edit/edit.h"
#include "host/edit/root_lock.h"
#include "host/history/tables/edit_tables.h"
#include "host/service/service_connection.h"

namespace tarvex::host {

using LockOrService = std::variant<RootLock, std::unique_ptr<ServiceConnection>>;

// The lock of the root for the command, or the service that has it. Throws CommandError, which names the holder, when
// that is another command that does not let go soon.
LockOrService TakeLockOrService(const std::string& directory, const std::string& command);

// Who changes the tree by this process.
EditedBy ThisCaller();

// Tells what the service waits for.
void PrintNote(const std::string& note);

// Has the edit made, and prints what is to be said about it. Returns the exit code of the command; throws CommandError.
int Submit(const Context& context, const EditRequest& request);

// The same in the tree of that directory.
int SubmitTo(const std::string& directory, const EditRequest& request);

// The same, and prints nothing: returns what is to be said.
std::string SubmitQuietly(const std::string& directory, const EditRequest& request);

// As SubmitTo for several edits of one kind, one after the other up to the first that fails; the error says how many
// were made.
int SubmitAll(const std::string& directory, std::span<const EditRequest> requests);

}  // namespace tarvex::host
