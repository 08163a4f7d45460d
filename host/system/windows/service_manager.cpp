// The service's side of Windows' service manager: takes its controls, and tells it in which state the service is.

#include "host/system/service_manager.h"

#include <windows.h>

#include <winsvc.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/windows/kept_orders.h"
#include "host/system/windows/managed_process.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

// For how long the manager believes in a start or stop without a new check point.
constexpr DWORD kWaitHint_ms = 60'000;

constexpr DWORD kControls = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_PRESHUTDOWN |
                            SERVICE_ACCEPT_PAUSE_CONTINUE | SERVICE_ACCEPT_PARAMCHANGE;

std::atomic<bool> is_managed{false};
const std::function<int()>* managed_work = nullptr;
int ended_with = kBroken;

// What the manager was told last. The process has one service, and one of these.
class Told {
public:
    void Take(SERVICE_STATUS_HANDLE manager) {
        const std::lock_guard lock(mutex_);
        manager_ = manager;
    }

    // A service that stops is no longer anything else until it has stopped.
    void Tell(DWORD state, int exit_code = 0) {
        const std::lock_guard lock(mutex_);
        if (!manager_ || (status_.dwCurrentState == SERVICE_STOP_PENDING && state != SERVICE_STOP_PENDING &&
                          state != SERVICE_STOPPED)) {
            return;
        }
        const bool is_settled = state == SERVICE_RUNNING || state == SERVICE_PAUSED || state == SERVICE_STOPPED;
        status_.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
        status_.dwCheckPoint = is_settled ? 0 : status_.dwCheckPoint + 1;
        status_.dwWaitHint = is_settled ? 0 : kWaitHint_ms;
        status_.dwCurrentState = state;
        status_.dwControlsAccepted = state == SERVICE_RUNNING || state == SERVICE_PAUSED ? kControls : 0;
        status_.dwWin32ExitCode = exit_code == 0 ? NO_ERROR : ERROR_SERVICE_SPECIFIC_ERROR;
        status_.dwServiceSpecificExitCode = static_cast<DWORD>(exit_code);
        SetServiceStatus(manager_, &status_);
    }

private:
    std::mutex mutex_;
    SERVICE_STATUS_HANDLE manager_ = nullptr;
    SERVICE_STATUS status_{};
};

// Never destroyed: the manager may call until the process has ended.
Told& Manager() {
    static Told& told = *std::make_unique<Told>().release();
    return told;
}

DWORD Obey(DWORD state, Order order, const char* by) {
    if (state != 0) Manager().Tell(state);
    return GiveOrder({order, by}) ? NO_ERROR : ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
}

DWORD WINAPI OnControl(DWORD control, DWORD, void*, void*) {
    switch (control) {
        case SERVICE_CONTROL_STOP:
            return Obey(SERVICE_STOP_PENDING, Order::Stop, "the service manager");
        case SERVICE_CONTROL_SHUTDOWN:
        case SERVICE_CONTROL_PRESHUTDOWN:
            return Obey(SERVICE_STOP_PENDING, Order::Stop, "the end of Windows");
        case SERVICE_CONTROL_PAUSE:
            return Obey(SERVICE_PAUSE_PENDING, Order::Hold, "the service manager");
        case SERVICE_CONTROL_CONTINUE:
            return Obey(SERVICE_CONTINUE_PENDING, Order::Continue, "the service manager");
        case SERVICE_CONTROL_PARAMCHANGE:
            return Obey(0, Order::Reload, "the service manager");
        case SERVICE_CONTROL_INTERROGATE:
            return NO_ERROR;
        default:
            return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

void WINAPI Serve(DWORD, wchar_t**) {
    Manager().Take(RegisterServiceCtrlHandlerExW(kServiceName, OnControl, nullptr));
    Manager().Tell(SERVICE_START_PENDING);
    ended_with = (*managed_work)();
    Manager().Tell(SERVICE_STOPPED, ended_with);
}

}  // namespace

bool IsManaged() { return is_managed; }

int RunManaged(const std::function<int()>& work) {
    is_managed = true;
    managed_work = &work;
    std::wstring name = kServiceName;
    const SERVICE_TABLE_ENTRYW services[] = {{name.data(), Serve}, {nullptr, nullptr}};
    if (StartServiceCtrlDispatcherW(services)) return ended_with;
    const DWORD error = GetLastError();
    throw CommandError(kBadUsage, error == ERROR_FAILED_SERVICE_CONTROLLER_CONNECT
                                      ? Tr("only Windows' service manager runs this with --service; `tarvex service "
                                           "start` has it do so")
                                      : Tr("the service manager refuses: {0}", SystemMessage(error)));
}

struct ServiceManager::Line {};

ServiceManager::ServiceManager() = default;
ServiceManager::~ServiceManager() = default;

void ServiceManager::Ready() const { Manager().Tell(SERVICE_RUNNING); }
void ServiceManager::Reloading() const {}  // it has no state for that
void ServiceManager::Holding() const { Manager().Tell(SERVICE_PAUSED); }
void ServiceManager::Stopping() const { Manager().Tell(SERVICE_STOP_PENDING); }
void ServiceManager::KeepAlive() const {}

std::optional<std::chrono::microseconds> ServiceManager::KeepAliveInterval() const { return std::nullopt; }

}  // namespace tarvex::host
