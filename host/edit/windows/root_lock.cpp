// The lock of a root: a file that is open for one process alone.

#include "host/edit/root_lock.h"

#include <windows.h>

#include <string>

#include "host/edit/scratch.h"
#include "host/saving/directories.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

HANDLE Handle(std::intptr_t file) { return reinterpret_cast<HANDLE>(file); }

void Write(std::intptr_t file, const std::string& text) {
    // The file also names the holder, for messages. That may fail on a full disk; the lock holds all the same.
    DWORD written = 0;
    SetFilePointer(Handle(file), 0, nullptr, FILE_BEGIN);
    if (SetEndOfFile(Handle(file))) {
        WriteFile(Handle(file), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    }
}

}  // namespace

// Others may read the file, but not open it as its holder has.
std::optional<RootLock> RootLock::Try(const std::string& root, std::string_view command) {
    const HANDLE file = CreateFileW(FileIn(root).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_HIDDEN, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        if (error == ERROR_SHARING_VIOLATION) return std::nullopt;
        throw CommandError(error == ERROR_ACCESS_DENIED ? kNotAllowed : kCannotMake,
                           "cannot lock \"" + ShowPath(root) + "\": " + SystemMessage(error));
    }
    RootLock lock(reinterpret_cast<std::intptr_t>(file));
    Write(lock.file_, NoteOn(std::to_string(GetCurrentProcessId()), command));
    SweepScratchFolders(root);
    DeleteAside(root);
    return lock;
}

// A directory that holds an open file cannot be moved.
bool RootLock::IsHeldIn(const std::string&) const { return true; }

RootLock::~RootLock() {
    if (file_ == kNoFile) return;
    Write(file_, "");
    CloseHandle(Handle(file_));
}

}  // namespace tarvex::host
