#pragma once

// What the command asks of the system about its own process.

#include <cstddef>
#include <string>
#include <vector>

namespace tarvex::host {

// The words of the command line as UTF-8, the program's first.
std::vector<std::string> Arguments(int argc, char** argv);

// What the machine, or the container, calls itself; empty when it does not tell.
std::string MachineName();

// Fills what is missing of standard input, output and errors, so that nothing that is opened later is taken for it.
void FillStandardStreams();

// SIGHUP, SIGINT and SIGTERM (on Windows Ctrl+C and Ctrl+Break) no longer end the process but are kept for
// CaughtSignal; a second one of a kind ends it. One that is ignored (nohup, a job in the background) stays ignored.
void CatchTermination();

// The signal that was caught, 0 for none.
int CaughtSignal();

// A write beyond a limit on the size of files fails from now on, as on a full disk, and does not end the process.
void SurviveFileSizeLimit();

// Lets the process open as many files and sockets as the system allows it, where that is limited.
void RaiseFileLimit();

// Whether standard output is a terminal on which lines can be drawn anew.
bool CanRedraw();

// How many lines standard output shows at a time, 24 when it is no terminal.
int TerminalLines();

// How many columns it has; 0 when it is no terminal, or one that does not tell.
std::size_t TerminalColumns();

// Whether standard output is a terminal that shows colours (and NO_COLOR is not set).
bool ShowsColours();

// Lets standard output pass bytes as they are from now on, where it would change line ends.
void PassBytesToOutput();
void PassBytesFromInput();  // the same of standard input

// Makes a terminal that has to be told so take what is printed as UTF-8.
void ShowUtf8();

}  // namespace tarvex::host
