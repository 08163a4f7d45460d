// The system has no limit that could be lowered, so the calls that the program imports are replaced.

#include "tests/support/shortage.h"

#include <winsock2.h>

#include "tests/support/windows/replaced_import.h"

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

}  // namespace

struct NoDescriptors::Impl {
    ReplacedImport file{imported_create_file, NoFile};
    ReplacedImport search{imported_find_first_file, NoSearch};
    ReplacedImport socket{imported_socket, NoSocket};
};

NoDescriptors::NoDescriptors() : impl_(std::make_unique<Impl>()) {}

NoDescriptors::~NoDescriptors() = default;

}  // namespace tarvex::testing
