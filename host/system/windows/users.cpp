// Who users are on Windows: the process works as the one that called it.

#include "host/system/users.h"

#include <windows.h>

#include <array>

#include "host/system/windows/wide.h"

namespace tarvex::host {

std::int64_t CurrentUser() { return -1; }

std::string UserName(std::int64_t) { return CallingUser(); }

const std::string& CallingUser() {
    static const std::string caller = [] {
        std::array<wchar_t, 257> name{};
        DWORD size = static_cast<DWORD>(name.size());
        return GetUserNameW(name.data(), &size) != 0 ? Utf8(name.data()) : std::string();
    }();
    return caller;
}

}  // namespace tarvex::host
