#pragma once

// Which profiles a command is about.

#include <string>
#include <vector>

#include "host/commands/commands.h"
#include "host/tree/names.h"

namespace tarvex::host {

// The named profiles, each once, in the order of the names; without names all of the tree. Throws CommandError.
std::vector<NamedProfile> ChosenProfiles(const CRootPath& root, const std::vector<std::string>& names);

// Adds the names of profiles to what a command takes.
void AddProfileNames(CLI::App& command, std::vector<std::string>& names);

// A command that looks at profiles and prints text or JSON.
using ReadOnlyCommand = int (*)(const Context& context, const std::vector<std::string>& names, bool as_json);
void AddReadOnlyCommand(CLI::App& app, Context& context, const std::string& name, const std::string& help,
                        ReadOnlyCommand look, const std::string& footer = {});

}  // namespace tarvex::host
