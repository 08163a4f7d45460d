#pragma once

// What may stand at the end of a command line, for the completion of shells.

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tarvex::host {

// The hidden command behind which a shell passes the words of a line, the last one begun or empty.
inline constexpr const char* kCompletionCommand = "__complete";

// Prints what a shell offers: "words", "files" or "directories" on the first line; for words each on a line of its own,
// and behind a tab what it means. They are not yet chosen by how the last word begins. Returns the exit code.
int PrintCompletions(const CLI::App& app, const std::vector<std::string>& words);

}  // namespace tarvex::host
