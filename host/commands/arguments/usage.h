#pragma once

// What is said about a command line that cannot be understood.

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex::host {

// One sentence: what is wrong, what was probably meant, where help is. `words` are those of the command line, the
// program's first.
std::string UsageTrouble(const CLI::App& app, const std::vector<std::string>& words, const CLI::ParseError& error);

// Those of the words that somebody may have meant, the nearest first: the same but for a few letters that were left
// out, added, exchanged or swapped; five at most.
std::vector<std::string> Nearest(std::string_view typed, const std::vector<std::string>& words);

}  // namespace tarvex::host
