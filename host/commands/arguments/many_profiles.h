#pragma once

// `profile set` of several profiles at once.

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "host/commands/arguments/key_options.h"
#include "host/commands/commands.h"

namespace tarvex::host {

// Which profiles are meant, when they are not named one by one. Lives as long as the application.
struct ManyProfiles {
    void AddTo(CLI::App& command);
    bool Given() const { return all || !user.empty() || !where.empty(); }

    bool all = false;
    std::string user;
    std::vector<std::string> where;  // key=value, of which all must hold
    bool yes = false;                // nobody is asked
};

// Shows what would change and asks, then changes one profile after the other, each whole: settings by `keys`, rules by
// `host_keys`. Returns the exit code; throws CommandError, which says how many were changed.
int SetMany(const Context& context, const ManyProfiles& chosen, const KeyOptions& keys, const KeyOptions& host_keys);

}  // namespace tarvex::host
