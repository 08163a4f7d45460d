#pragma once

// What is said about a command line that cannot be understood.

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace tarvex::host {

// Whether the chosen command was told to print JSON.
bool PrintsJson(const CLI::App& app);

// One sentence: what is wrong, what was probably meant, what to write. `words` are those of the command line, the
// program's first. None of them is repeated where one may be a password.
std::string UsageTrouble(const CLI::App& app, const std::vector<std::string>& words, const CLI::ParseError& error);

// Of the command or of those above it; null where there is none. `name` begins with hyphens.
const CLI::Option* OptionNamed(const CLI::App* command, const std::string& name);

// For an option that takes a number, in decimal digits alone. `unit` is for the sentence: "minutes", or nothing.
inline constexpr std::int64_t kAnyNumber = std::numeric_limits<std::int64_t>::max();
CLI::Validator WholeNumber(std::int64_t lowest, std::int64_t highest, const std::string& unit = "");
CLI::Validator Fraction(double lowest, double highest, const std::string& unit);

}  // namespace tarvex::host
