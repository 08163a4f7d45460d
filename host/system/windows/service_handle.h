#pragma once

#include <windows.h>

#include <winsvc.h>

#include <memory>
#include <type_traits>

namespace tarvex::host {

struct CloseService {
    void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};

// The service manager or one of its services; null for none.
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, CloseService>;

}  // namespace tarvex::host
