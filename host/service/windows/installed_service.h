#pragma once

// Our services as Windows' service manager has them, each under the account "NT SERVICE\<its name>".

#include <string>

#include "host/system/windows/managed_process.h"

namespace tarvex::host {

// How long the manager is asked to wait at the end of Windows, and how long commands wait for the service.
inline constexpr unsigned kPreshutdown_ms = 120'000;

struct InstalledService {
    enum class State { Missing, Stopped, Starting, Running, Paused, Stopping };
    State state = State::Missing;
    unsigned process = 0;    // its id, while there is one
    unsigned exit_code = 0;  // of the last one, when stopped
};

// The functions below throw CommandError: kNotAllowed when the user is no administrator, kNotFound when the service is
// not installed, kUnavailable when it does not do as it should in time, else kCannotWrite.

void RequireAdministrator();

InstalledService AskForService(const wchar_t* name = kServiceName);

struct ServiceEntry {
    std::wstring command_line;
    std::wstring title;
    std::wstring description;
};

// Makes its entry, or brings it up to date. Returns what this version of Windows does not know, in words; mostly
// nothing.
std::string InstallService(const wchar_t* name, const ServiceEntry& entry);

// Does nothing when it runs already. Waits until it runs.
void StartInstalledService(const wchar_t* name);

// Does nothing when it is stopped already. Waits until it is.
void StopInstalledService(const wchar_t* name);

// Its entry; it must have stopped.
void RemoveInstalledService(const wchar_t* name);

// Where the service's tree is unless somebody says otherwise: below the folder for the data of programs.
std::string ServiceFolder();

// Makes the folder, or takes one that an administrator or the service has made, so that the service and administrators
// alone may use it and what is in it.
void MakeServiceFolder(const std::string& path);

}  // namespace tarvex::host
