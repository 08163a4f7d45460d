#pragma once

// The arguments of commands that take profiles.

#include <functional>
#include <string>
#include <vector>

#include "host/commands/commands.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

// Adds the names of profiles to what a command takes.
void AddProfileNames(CLI::App& command, std::vector<std::string>& names);

// A command that looks at profiles and prints text or JSON.
using ReadOnlyCommand = std::function<int(const Context& context, const std::vector<std::string>& names, bool as_json)>;
CLI::App& AddReadOnlyCommand(CLI::App& app, Context& context, const std::string& name, const std::string& help,
                             const ReadOnlyCommand& look, const std::string& footer = {});

// Says on standard error which folders of the tree may hold profiles and could not be seen. The exit code for that.
int NoteWhatIsNotListed(const CRootPath& root);

}  // namespace tarvex::host
