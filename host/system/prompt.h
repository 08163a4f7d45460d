#pragma once

// Standard input and prompts.

#include <string>

namespace tarvex::host {

// Whether there is somebody to ask: standard input is a terminal.
bool CanAsk();

// The next line as UTF-8, without its end. False at the end of the input, and when a signal comes that CatchTermination
// keeps from ending the process (not on Windows).
bool ReadLine(std::string& line);

// Shows the question and reads a line that the terminal does not show. False when the person gives up; a signal that
// comes meanwhile is raised again when the terminal is as it was.
bool AskHidden(const std::string& question, std::string& answer);

}  // namespace tarvex::host
