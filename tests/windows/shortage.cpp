// The system has no limit that could be lowered, so the calls that the program imports are replaced.

#include "tests/shortage.h"

#include <winsock2.h>

// The places where the loader has put the addresses of the system's functions.
extern "C" {
extern void* imported_create_file asm("__imp__CreateFileW@28");
extern void* imported_find_first_file asm("__imp__FindFirstFileW@8");
extern void* imported_socket asm("__imp__WSASocketW@24");
}

namespace tarvex::testing {

namespace {

HANDLE WINAPI NoFile(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
    SetLastError(ERROR_TOO_MANY_OPEN_FILES);
    return INVALID_HANDLE_VALUE;
}

HANDLE WINAPI NoSearch(LPCWSTR, LPWIN32_FIND_DATAW) {
    SetLastError(ERROR_TOO_MANY_OPEN_FILES);
    return INVALID_HANDLE_VALUE;
}

SOCKET WSAAPI NoSocket(int, int, int, LPWSAPROTOCOL_INFOW, GROUP, DWORD) {
    WSASetLastError(WSAEMFILE);
    return INVALID_SOCKET;
}

class Replaced {
public:
    Replaced(void*& place, void* function) : place_(place), old_(place) { Set(function); }
    ~Replaced() { Set(old_); }
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;

private:
    void Set(void* function) {
        DWORD protection = 0;
        VirtualProtect(&place_, sizeof place_, PAGE_READWRITE, &protection);
        place_ = function;
        VirtualProtect(&place_, sizeof place_, protection, &protection);
    }

    void*& place_;
    void* old_;
};

}  // namespace

struct NoDescriptors::Impl {
    Replaced file{imported_create_file, reinterpret_cast<void*>(NoFile)};
    Replaced search{imported_find_first_file, reinterpret_cast<void*>(NoSearch)};
    Replaced socket{imported_socket, reinterpret_cast<void*>(NoSocket)};
};

NoDescriptors::NoDescriptors() : impl_(std::make_unique<Impl>()) {}

NoDescriptors::~NoDescriptors() = default;

}  // namespace tarvex::testing
