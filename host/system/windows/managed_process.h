#pragma once

// The process as the service that Windows' service manager has started.

#include <functional>
#include <string>

namespace tarvex::host {

// The service that runs the tree, and the one of the console in the browser (tarvex-console).
inline constexpr const wchar_t* kServiceName = L"Tarvex";
inline constexpr const wchar_t* kConsoleServiceName = L"TarvexConsole";

// What such a service was installed to run: the program with its words. Empty when it is not installed.
std::wstring ServiceCommandLine(const wchar_t* name);

// Whether the process is, or is about to become, a service.
bool IsManaged();

// Hands the process over to the manager, which has the work done on another thread. What the work returns, and must not
// throw, tells the manager how it ended: 0 is an end that was wished for. Returns it when the manager lets the process
// go. Throws CommandError when no manager has started the process.
int RunManaged(const std::function<int()>& work);

}  // namespace tarvex::host
