// Replaces files on Windows. Directories are not synced there.

#include "host/system/durable_files.h"

#include <windows.h>

#include <filesystem>
#include <system_error>

#include "host/system/paths.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

bool WriteNew(const fs::path& file, std::string_view content) {
    const HANDLE handle =
        CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    const bool good = WriteFile(handle, content.data(), static_cast<DWORD>(content.size()), &written, nullptr) &&
                      written == content.size() && FlushFileBuffers(handle);
    return CloseHandle(handle) && good;
}

}  // namespace

// A new file has the access rights of its folder.
Saved ReplaceContent(const std::string& path, std::string_view content, Readers /*readers*/) {
    std::error_code error;
    const fs::path file = fs::weakly_canonical(NativePath(path), error);
    if (error) return Saved::No;
    fs::path fresh = file;
    fresh += L".new";
    if (!WriteNew(fresh, content) ||
        !MoveFileExW(fresh.c_str(), file.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        DeleteFileW(fresh.c_str());
        return Saved::No;
    }
    return Saved::Yes;
}

// The system has no call for it that a user may make; NTFS keeps the order of such changes in its journal.
bool SyncDirectory(const std::string&) { return true; }

}  // namespace tarvex::host
