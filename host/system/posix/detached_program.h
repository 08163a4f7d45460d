#pragma once

// Another program that goes on by itself.

#include <string>
#include <vector>

namespace tarvex::host {

// Starts a program, found as the shell finds it, without a shell. It reads and prints nothing, has a session of its
// own and may outlive this process. False when it cannot be started. Any thread.
bool StartDetached(const std::vector<std::string>& words);

}  // namespace tarvex::host
