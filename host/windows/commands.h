#pragma once

// The commands of `tarvex`. Each returns the exit code of the program.

#include <string>

namespace tarvex::host {

// Exit codes. Beside these: 128 and the signal when one ended the command.
inline constexpr int kDone = 0;
inline constexpr int kMissing = 1;    // demo: something did not arrive as it should have
inline constexpr int kNoRoot = 2;     // run: the root directory cannot be had
inline constexpr int kBadUsage = 64;  // the command line is wrong (EX_USAGE)
inline constexpr int kBroken = 70;    // the program failed (EX_SOFTWARE)

// Runs every profile that is due, once, and waits for the workers. Prints what each run added to its log unless quiet.
int RunOnce(const std::string& root_directory, bool quiet);

// Forwards a small mailbox between two servers on loopback and shows it.
int Demo();

}  // namespace tarvex::host
