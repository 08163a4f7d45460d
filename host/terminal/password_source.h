#pragma once

// Questions at the terminal, and passwords from the terminal, standard input or a file.

#include <string>

namespace tarvex::host {

// Shows the question and reads a line that the terminal does not show. Throws CommandError when there is nobody to ask.
std::string AskSecret(const std::string& question);

// True for "y" or "yes". Throws CommandError when there is nobody to ask.
bool AskYes(const std::string& question);

// The next line of standard input, the first line of a file; without the line end. Throw CommandError.
std::string SecretFromInput();
std::string SecretFromFile(const std::string& path);

}  // namespace tarvex::host
