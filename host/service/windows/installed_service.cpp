// The service's entry in Windows' service manager: makes it, asks for it, starts and stops it, removes it.

#include "host/service/windows/installed_service.h"

#include <windows.h>

#include <chrono>
#include <thread>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/windows/service_handle.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

[[noreturn]] void Refuse(DWORD error) {
    switch (error) {
        case ERROR_ACCESS_DENIED:
            throw CommandError(kNotAllowed, Tr("only an administrator may do that: open the console with \"Run as "
                                               "administrator\""));
        case ERROR_SERVICE_DOES_NOT_EXIST:
            throw CommandError(kNotFound, Tr("the service is not installed; `tarvex service install` does that"));
        case ERROR_SERVICE_MARKED_FOR_DELETE:
            throw CommandError(kTryLater, Tr("the service is being removed; close the windows that show services, and "
                                             "try again"));
        default:
            throw CommandError(kCannotWrite, Tr("the service manager refuses: {0}", SystemMessage(error)));
    }
}

ServiceHandle Manager(DWORD access) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, access));
    if (!manager) Refuse(GetLastError());
    return manager;
}

ServiceHandle Open(const wchar_t* name, DWORD access) {
    ServiceHandle service(OpenServiceW(Manager(SC_MANAGER_CONNECT).get(), name, access));
    if (!service) Refuse(GetLastError());
    return service;
}

SERVICE_STATUS_PROCESS StatusOf(const ServiceHandle& service) {
    SERVICE_STATUS_PROCESS status{};
    DWORD bytes = 0;
    if (!QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status,
                              &bytes)) {
        Refuse(GetLastError());
    }
    return status;
}

InstalledService::State StateOf(DWORD state) {
    switch (state) {
        case SERVICE_START_PENDING:
            return InstalledService::State::Starting;
        case SERVICE_RUNNING:
        case SERVICE_CONTINUE_PENDING:
            return InstalledService::State::Running;
        case SERVICE_PAUSE_PENDING:
        case SERVICE_PAUSED:
            return InstalledService::State::Paused;
        case SERVICE_STOP_PENDING:
            return InstalledService::State::Stopping;
        default:
            return InstalledService::State::Stopped;
    }
}

unsigned ExitCodeOf(const SERVICE_STATUS_PROCESS& status) {
    if (status.dwWin32ExitCode == ERROR_SERVICE_NEVER_STARTED) return 0;
    return status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR ? status.dwServiceSpecificExitCode
                                                                  : status.dwWin32ExitCode;
}

// Until the state is no longer `pending`; a service that goes on with its work says so by its check points.
SERVICE_STATUS_PROCESS WaitWhile(const ServiceHandle& service, DWORD pending) {
    constexpr std::chrono::milliseconds kLook{100};
    constexpr std::chrono::seconds kPatience{60};
    auto deadline = std::chrono::steady_clock::now() + kPatience;
    DWORD check_point = 0;
    for (;; std::this_thread::sleep_for(kLook)) {
        const SERVICE_STATUS_PROCESS status = StatusOf(service);
        if (status.dwCurrentState != pending || std::chrono::steady_clock::now() > deadline) return status;
        if (status.dwCheckPoint == check_point) continue;
        check_point = status.dwCheckPoint;
        deadline = std::chrono::steady_clock::now() + kPatience;
    }
}

// The settings that only later versions of Windows, and not all systems that stand in for it, have.
class Details {
public:
    explicit Details(const ServiceHandle& service) : service_(service) {}

    template <class Setting>
    void Set(DWORD level, Setting setting, const std::string& name) {
        if (ChangeServiceConfig2W(service_.get(), level, &setting)) return;
        const DWORD error = GetLastError();
        if (error != ERROR_INVALID_LEVEL && error != ERROR_CALL_NOT_IMPLEMENTED) Refuse(error);
        unknown_ += (unknown_.empty() ? "" : ", ") + name;
    }

    const std::string& Unknown() const { return unknown_; }

private:
    const ServiceHandle& service_;
    std::string unknown_;
};

// Again after five seconds, a minute, five minutes; a day without a failure forgets them. Also when it ends by itself
// with an exit code that is not 0.
void RestartOnFailure(Details& details) {
    constexpr DWORD kDay_s = 86400;
    SC_ACTION actions[] = {{SC_ACTION_RESTART, 5'000}, {SC_ACTION_RESTART, 60'000}, {SC_ACTION_RESTART, 300'000}};
    SERVICE_FAILURE_ACTIONSW failure{};
    failure.dwResetPeriod = kDay_s;
    failure.cActions = std::size(actions);
    failure.lpsaActions = actions;
    details.Set(SERVICE_CONFIG_FAILURE_ACTIONS, failure, Tr("restart on failure"));
    details.Set(SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, SERVICE_FAILURE_ACTIONS_FLAG{TRUE},
                Tr("restart after an exit code"));
}

// With the name of the account there comes no password.
ServiceHandle MakeEntry(const wchar_t* name, const ServiceEntry& entry) {
    const std::wstring account = std::wstring(L"NT SERVICE\\") + name;
    const ServiceHandle manager = Manager(SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE);
    ServiceHandle service(CreateServiceW(
        manager.get(), name, entry.title.c_str(), SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START,
        SERVICE_ERROR_NORMAL, entry.command_line.c_str(), nullptr, nullptr, nullptr, account.c_str(), nullptr));
    if (service) return service;
    if (GetLastError() != ERROR_SERVICE_EXISTS) Refuse(GetLastError());
    service = Open(name, SERVICE_ALL_ACCESS);
    if (!ChangeServiceConfigW(service.get(), SERVICE_WIN32_OWN_PROCESS, SERVICE_NO_CHANGE, SERVICE_ERROR_NORMAL,
                              entry.command_line.c_str(), nullptr, nullptr, nullptr, account.c_str(), nullptr,
                              entry.title.c_str())) {
        Refuse(GetLastError());
    }
    return service;
}

}  // namespace

void RequireAdministrator() { Manager(SC_MANAGER_CREATE_SERVICE); }

InstalledService AskForService(const wchar_t* name) {
    const ServiceHandle manager = Manager(SC_MANAGER_CONNECT);
    const ServiceHandle service(OpenServiceW(manager.get(), name, SERVICE_QUERY_STATUS));
    if (!service && GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST) return {};
    if (!service) Refuse(GetLastError());
    const SERVICE_STATUS_PROCESS status = StatusOf(service);
    return {StateOf(status.dwCurrentState), static_cast<unsigned>(status.dwProcessId), ExitCodeOf(status)};
}

std::string InstallService(const wchar_t* name, const ServiceEntry& entry) {
    const ServiceHandle service = MakeEntry(name, entry);
    Details details(service);
    std::wstring text = entry.description;
    details.Set(SERVICE_CONFIG_DESCRIPTION, SERVICE_DESCRIPTIONW{text.data()}, Tr("a description"));
    details.Set(SERVICE_CONFIG_DELAYED_AUTO_START_INFO, SERVICE_DELAYED_AUTO_START_INFO{TRUE}, Tr("delayed start"));
    details.Set(SERVICE_CONFIG_SERVICE_SID_INFO, SERVICE_SID_INFO{SERVICE_SID_TYPE_UNRESTRICTED}, Tr("service SID"));
    details.Set(SERVICE_CONFIG_PRESHUTDOWN_INFO, SERVICE_PRESHUTDOWN_INFO{kPreshutdown_ms},
                Tr("time at the end of Windows"));
    RestartOnFailure(details);
    return details.Unknown();
}

void StartInstalledService(const wchar_t* name) {
    const ServiceHandle service = Open(name, SERVICE_START | SERVICE_QUERY_STATUS);
    if (!StartServiceW(service.get(), 0, nullptr) && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) {
        Refuse(GetLastError());
    }
    const SERVICE_STATUS_PROCESS status = WaitWhile(service, SERVICE_START_PENDING);
    if (StateOf(status.dwCurrentState) == InstalledService::State::Stopped) {
        throw CommandError(kUnavailable, Tr("the service {0} ended at once, with code {1}; the event log says why",
                                            Utf8(name), std::to_string(ExitCodeOf(status))));
    }
    if (status.dwCurrentState == SERVICE_START_PENDING)
        throw CommandError(kUnavailable,
                           Tr("the service {0} still starts; `tarvex service status` says when it runs", Utf8(name)));
}

void StopInstalledService(const wchar_t* name) {
    const ServiceHandle service = Open(name, SERVICE_STOP | SERVICE_QUERY_STATUS);
    WaitWhile(service, SERVICE_START_PENDING);
    SERVICE_STATUS ignored;
    if (!ControlService(service.get(), SERVICE_CONTROL_STOP, &ignored)) {
        const DWORD error = GetLastError();
        if (error == ERROR_SERVICE_NOT_ACTIVE) return;
        if (error != ERROR_SERVICE_CANNOT_ACCEPT_CTRL) Refuse(error);  // it stops already
    }
    if (WaitWhile(service, SERVICE_STOP_PENDING).dwCurrentState != SERVICE_STOPPED)
        throw CommandError(kUnavailable,
                           Tr("the service {0} still stops; `tarvex service status` says when it has", Utf8(name)));
}

void RemoveInstalledService(const wchar_t* name) {
    if (!DeleteService(Open(name, DELETE).get())) Refuse(GetLastError());
}

}  // namespace tarvex::host
