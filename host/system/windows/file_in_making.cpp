// Files in the making, on Windows.

#include "host/system/file_in_making.h"

#include <windows.h>

#include <system_error>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

HANDLE Handle(std::intptr_t file) { return reinterpret_cast<HANDLE>(file); }  // NOLINT: the system's own way

CommandError CannotWrite(const std::filesystem::path& file) {
    const DWORD error = GetLastError();
    return {kCannotMake, "cannot write \"" + ShowUtf8Text(Utf8(file.native())) + "\": " + SystemMessage(error)};
}

}  // namespace

// A name of its own for each process: two may write the same backup.
FileInMaking::FileInMaking(const std::string& path, FileReaders) : file_(NativePath(path)) {
    std::error_code error;
    if (std::filesystem::exists(file_, error) && !std::filesystem::is_regular_file(file_, error)) {
        throw CommandError(kCannotMake, Tr("\"{0}\" is there and is no plain file", ShowPath(path)));
    }
    std::filesystem::path fresh = file_;
    fresh += L"." + std::to_wstring(GetCurrentProcessId()) + L".new";
    const HANDLE handle =
        CreateFileW(fresh.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) throw CannotWrite(file_);
    opened_ = reinterpret_cast<std::intptr_t>(handle);
    fresh_ = fresh;
}

FileInMaking::~FileInMaking() {
    if (opened_ != kNoFile) CloseHandle(Handle(opened_));
    if (!fresh_.empty()) DeleteFileW(fresh_.c_str());
}

void FileInMaking::Write(std::string_view bytes) {
    while (!bytes.empty()) {
        DWORD written = 0;
        if (!WriteFile(Handle(opened_), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) {
            throw CannotWrite(file_);
        }
        bytes.remove_prefix(written);
    }
}

void FileInMaking::Keep() {
    if (!FlushFileBuffers(Handle(opened_))) throw CannotWrite(file_);
    CloseHandle(Handle(opened_));
    opened_ = kNoFile;
    if (!MoveFileExW(fresh_.c_str(), file_.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        throw CannotWrite(file_);
    }
    fresh_.clear();
}

}  // namespace tarvex::host
