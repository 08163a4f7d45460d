#pragma once

// The service "Tarvex" as Windows' service manager has it.

#include <cstdint>
#include <string>

namespace tarvex::host {

// The number of kServiceAccount: "S-1-5-80-" and the SHA-1 of the service's name in capitals and UTF-16, as five
// numbers.
inline constexpr const wchar_t* kServiceSid = L"S-1-5-80-922312200-3284093292-3566284977-1286675941-3760456741";

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

InstalledService AskForService();

// Makes its entry, or brings it up to date. Returns what this version of Windows does not know, in words; mostly
// nothing.
std::string InstallService(const std::wstring& command_line, const std::wstring& title,
                           const std::wstring& description);

// Does nothing when it runs already. Waits until it runs.
void StartInstalledService();

// Does nothing when it is stopped already. Waits until it is.
void StopInstalledService();

// Its entry; it must have stopped.
void RemoveInstalledService();

// Where the service's tree is unless somebody says otherwise: below the folder for the data of programs.
std::string ServiceFolder();

// Makes the folder, or takes one that an administrator or the service has made, so that the service and administrators
// alone may use it and what is in it.
void MakeServiceFolder(const std::string& path);

}  // namespace tarvex::host
