// Opens files on Windows, patiently with programs that hold them open.

#include "platform/os/windows/file_handle.h"

#include <winternl.h>

#include <new>
#include <system_error>

extern "C" NTSTATUS NTAPI RtlGetLastNtStatus(void);

namespace tarvex {

void ThrowWhenExhausted(DWORD error) {
    if (error == ERROR_TOO_MANY_OPEN_FILES || error == ERROR_NOT_ENOUGH_MEMORY || error == ERROR_OUTOFMEMORY ||
        error == ERROR_NO_SYSTEM_RESOURCES) {
        throw std::bad_alloc();
    }
}

void ExplainFailure(std::string* why, DWORD error) {
    if (!why) return;
    const bool is_missing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
                            error == ERROR_INVALID_NAME || error == ERROR_DIRECTORY;
    *why = is_missing ? std::string() : std::system_category().message(static_cast<int>(error));
}

// A deleted file keeps its name until its last handle is closed. Opening it fails like a file without permission; only
// the NT status tells the two apart.
bool IsHeldByOthers() {
    constexpr auto kDeletePending = static_cast<NTSTATUS>(0xC0000056);
    const DWORD error = GetLastError();
    if (error == ERROR_ACCESS_DENIED) return RtlGetLastNtStatus() == kDeletePending;
    return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION || error == ERROR_USER_MAPPED_FILE;
}

FileHandle OpenFileHandle(const std::wstring& path, DWORD access, DWORD sharing, DWORD disposition, DWORD flags,
                          std::chrono::seconds patience) {
    FileHandle file;
    Patiently(
        [&] {
            file = FileHandle(CreateFileW(path.c_str(), access, sharing, nullptr, disposition, flags, nullptr));
            return static_cast<bool>(file);
        },
        patience);
    return file;
}

}  // namespace tarvex
