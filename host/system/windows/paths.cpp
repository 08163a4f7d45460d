// The tree's paths are in the system's code page.

#include "host/system/paths.h"

#include <iterator>
#include <random>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {

std::filesystem::path NativePath(std::string_view path) { return Wide(CP_ACP, path); }

std::string PathAsUtf8(std::string_view path) { return Utf8(NativePath(path).native()); }

std::string TreePath(std::string_view typed) {
    const std::wstring wide = Wide(CP_UTF8, typed);
    std::string path = Narrow(CP_ACP, wide);
    if (NativePath(path) != wide) {
        throw CommandError(
            kBadUsage,
            Tr("the path \"{0}\" has characters that the code page of this system does not have", ShowUtf8Text(typed)));
    }
    return path;
}

std::string WholePath(const std::string& path) {
    std::wstring whole = std::filesystem::absolute(NativePath(path)).lexically_normal().make_preferred();
    while (whole.size() > std::size("C:\\") - 1 && whole.ends_with(L'\\')) whole.pop_back();
    return Narrow(CP_ACP, whole);
}

std::string MakeNewFolder(const std::string& start) {
    constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device random;
    std::string folder;
    do {
        folder = start;
        for (std::size_t i = 0; i < kChosenLetters; ++i) folder += kLetters[random() % kLetters.size()];
    } while (!std::filesystem::create_directory(NativePath(folder)));  // false for one that is there
    return folder;
}

std::string TemporaryDirectory() { return Narrow(CP_ACP, std::filesystem::temp_directory_path().native()); }

std::wstring ProgramFile() {
    std::wstring program(32768, L'\0');  // no path is longer
    program.resize(GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
    return program;
}

std::string ProgramPath() { return Utf8(ProgramFile()); }

std::string ProgramDirectory() { return Narrow(CP_ACP, std::filesystem::path(ProgramFile()).parent_path().native()); }

std::error_code MakeOwnDirectories(const std::string& directory) {
    std::error_code error;
    std::filesystem::create_directories(NativePath(directory), error);
    return error;
}

std::error_code ReserveRoom(const std::filesystem::path& file, std::uintmax_t bytes) {
    const HANDLE handle = CreateFileW(file.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    LARGE_INTEGER end;
    end.QuadPart = static_cast<LONGLONG>(bytes);
    const bool done = handle != INVALID_HANDLE_VALUE && SetFilePointerEx(handle, end, nullptr, FILE_BEGIN) != 0 &&
                      SetEndOfFile(handle) != 0;
    const std::error_code error(done ? 0 : static_cast<int>(GetLastError()), std::system_category());
    if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
    return error;
}

// On NTFS a number that is used again has another count in its highest bits.
std::string DirectoryIdentity(std::string_view path) {
    const HANDLE directory =
        CreateFileW(NativePath(path).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (directory == INVALID_HANDLE_VALUE) return {};
    BY_HANDLE_FILE_INFORMATION status{};
    const bool known = GetFileInformationByHandle(directory, &status) != 0;
    CloseHandle(directory);
    if (!known) return {};
    return std::to_string(std::uint64_t{status.nFileIndexHigh} << 32 | status.nFileIndexLow);
}

}  // namespace tarvex::host
