#pragma once

// The process as the service that Windows' service manager has started.

#include <functional>
#include <string>

namespace tarvex::host {

inline constexpr const wchar_t* kServiceName = L"Tarvex";

// What the service was installed to run: the program with its words. Empty when it is not installed.
std::wstring ServiceCommandLine();

// Whether the process is, or is about to become, that service.
bool IsManaged();

// Hands the process over to the manager, which has the work done on another thread. What the work returns, and must not
// throw, tells the manager how it ended: 0 is an end that was wished for. Returns it when the manager lets the process
// go. Throws CommandError when no manager has started the process.
int RunManaged(const std::function<int()>& work);

}  // namespace tarvex::host
