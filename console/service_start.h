#pragma once

#include <functional>

namespace tarvex::console {

// Has the work done as what the system's service manager has started: on Windows the process is handed over to it.
// Returns what the work returns, which must not throw. Throws CommandError when no manager has started the process.
int RunAsService(const std::function<int()>& work);

}  // namespace tarvex::console
