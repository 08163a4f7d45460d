#include "platform/os/windows/file_handle.h"

#include <new>

namespace tarvex {

void ThrowWhenExhausted(DWORD error) {
    if (error == ERROR_TOO_MANY_OPEN_FILES || error == ERROR_NOT_ENOUGH_MEMORY || error == ERROR_OUTOFMEMORY ||
        error == ERROR_NO_SYSTEM_RESOURCES) {
        throw std::bad_alloc();
    }
}

bool IsHeldByOthers() {
    const DWORD error = GetLastError();
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
