// Keeps the events of the console, and what the service manager asks for, until the service looks.

#include "host/system/orders.h"

#include <windows.h>

#include <string>
#include <system_error>

#include "host/system/windows/kept_orders.h"
#include "host/system/windows/managed_process.h"

namespace tarvex::host {
namespace {

std::mutex mutex;                // of what follows
Orders::Kept* keeper = nullptr;  // those of this process

std::string NameOf(DWORD event) {
    switch (event) {
        case CTRL_C_EVENT:
            return "Ctrl-C";
        case CTRL_BREAK_EVENT:
            return "Ctrl-Break";
        case CTRL_CLOSE_EVENT:
            return "the console was closed";
        case CTRL_LOGOFF_EVENT:
            return "log-off";
        default:
            return "shutdown";
    }
}

// On a thread that the system makes for it. When it returns from the last three, the system ends the process: the
// thread stays until the service has saved its state and the process ends by itself, for as long as the system allows
// that.
BOOL WINAPI OnConsoleEvent(DWORD event) {
    if (IsManaged()) return TRUE;  // services are told of everybody's log-off; the manager says when to stop
    const bool is_key = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
    {
        const std::lock_guard lock(mutex);
        if (!keeper || (is_key && keeper->is_released)) return FALSE;
    }
    GiveOrder({Order::Stop, NameOf(event)});
    if (!is_key) Sleep(INFINITE);
    return TRUE;
}

}  // namespace

bool GiveOrder(const GivenOrder& given) {
    const std::lock_guard lock(mutex);
    if (!keeper) return false;
    {
        const std::lock_guard orders(keeper->mutex);
        keeper->given.push_back(given);
    }
    return PostQueuedCompletionStatus(keeper->port, 0, 0, nullptr) != 0;
}

Orders::Orders() : kept_(std::make_unique<Kept>()) {
    kept_->port = CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 1);
    if (!kept_->port)
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "no completion port");
    {
        const std::lock_guard lock(mutex);
        keeper = kept_.get();
    }
    SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
}

Orders::~Orders() {
    const std::lock_guard lock(mutex);
    keeper = nullptr;
    CloseHandle(kept_->port);
}

std::optional<GivenOrder> Orders::Next() {
    const std::lock_guard lock(kept_->mutex);
    if (kept_->given.empty()) return std::nullopt;
    GivenOrder given = kept_->given.front();
    kept_->given.pop_front();
    return given;
}

void Orders::Release(const GivenOrder& /*given*/) { kept_->is_released = true; }

}  // namespace tarvex::host
