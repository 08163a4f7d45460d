// Private folders on Windows. The rights of a tree's folders are inherited, and NTFS keeps the order of changes to a
// folder in its journal, so folders are not synced.

#include "host/system/private_folder.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>
#include <memory>
#include <thread>

#include "host/system/paths.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

struct CloseFile {
    void operator()(void* file) const { CloseHandle(file); }
};
using File = std::unique_ptr<void, CloseFile>;

bool IsMissing() { return GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND; }

bool IsFolder(const std::filesystem::path& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
           (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
}

// Programs that look through files hold them open for moments.
template <class Action>
bool Patiently(Action action) {
    constexpr int kTries = 50;
    constexpr std::chrono::milliseconds kPause{20};
    for (int left = kTries;; std::this_thread::sleep_for(kPause)) {
        if (action()) return true;
        const DWORD error = GetLastError();
        if (--left == 0 || (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED)) return false;
    }
}

File Open(const std::filesystem::path& path, DWORD access, DWORD disposition) {
    const HANDLE file = CreateFileW(path.c_str(), access, disposition == CREATE_NEW ? 0 : kShareAll, nullptr,
                                    disposition, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    return File(file == INVALID_HANDLE_VALUE ? nullptr : file);
}

bool WriteAll(const File& file, std::string_view bytes) {
    constexpr std::size_t kMost_bytes = std::numeric_limits<DWORD>::max() / 2;
    while (!bytes.empty()) {
        DWORD written = 0;
        const auto piece = static_cast<DWORD>(std::min(bytes.size(), kMost_bytes));
        if (!WriteFile(file.get(), bytes.data(), piece, &written, nullptr) || written == 0) return false;
        bytes.remove_prefix(written);
    }
    return true;
}

std::optional<std::string> ReadAll(const File& file, std::size_t most_bytes) {
    std::string content;
    std::array<char, 64 << 10> piece;
    for (DWORD count = 0;; content.append(piece.data(), count)) {
        const auto wanted = static_cast<DWORD>(std::min(piece.size(), most_bytes - content.size()));
        if (!ReadFile(file.get(), piece.data(), wanted, &count, nullptr)) return std::nullopt;
        if (count == 0) return content;
    }
}

}  // namespace

bool PrivateFolder::Make() const {
    const std::filesystem::path folder = NativePath(path_);
    return CreateDirectoryW(folder.c_str(), nullptr) != 0 || IsFolder(folder);
}

std::optional<std::vector<PrivateFolder::Entry>> PrivateFolder::Entries() const {
    struct CloseSearch {
        void operator()(void* search) const { FindClose(search); }
    };
    const std::filesystem::path folder = NativePath(path_);
    WIN32_FIND_DATAW found;
    const HANDLE handle = FindFirstFileW((folder / L"*").c_str(), &found);
    if (handle == INVALID_HANDLE_VALUE) return IsMissing() ? std::optional(std::vector<Entry>()) : std::nullopt;
    const std::unique_ptr<void, CloseSearch> search(handle);
    if (!IsFolder(folder)) return std::nullopt;
    std::vector<Entry> entries;
    do {
        constexpr DWORD kNotPlain = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
        entries.push_back({Utf8(found.cFileName), (found.dwFileAttributes & kNotPlain) == 0,
                           std::int64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow});
    } while (FindNextFileW(handle, &found) != 0);
    return GetLastError() == ERROR_NO_MORE_FILES ? std::optional(std::move(entries)) : std::nullopt;
}

std::optional<std::string> PrivateFolder::Read(const std::string& name, bool& missing, std::size_t most_bytes) const {
    const std::filesystem::path folder = NativePath(path_);
    File file;
    const bool opened = Patiently([&] {
        file = Open(folder / name, GENERIC_READ, OPEN_EXISTING);
        return file != nullptr;
    });
    missing = !opened && IsMissing();
    BY_HANDLE_FILE_INFORMATION status{};
    constexpr DWORD kNotPlain = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    if (!opened || !IsFolder(folder) || GetFileType(file.get()) != FILE_TYPE_DISK ||
        !GetFileInformationByHandle(file.get(), &status) || (status.dwFileAttributes & kNotPlain) != 0) {
        return std::nullopt;
    }
    return ReadAll(file, most_bytes);
}

bool PrivateFolder::WriteNew(const std::string& name, std::string_view bytes) const {
    const std::filesystem::path folder = NativePath(path_);
    if (!IsFolder(folder)) return false;
    File file = Open(folder / name, GENERIC_WRITE, CREATE_NEW);
    if (!file) return false;
    if (WriteAll(file, bytes) && FlushFileBuffers(file.get())) return true;
    file.reset();
    DeleteFileW((folder / name).c_str());
    return false;
}

bool PrivateFolder::Remove(const std::string& name) const {
    const std::filesystem::path file = NativePath(path_) / name;
    return Patiently([&] { return DeleteFileW(file.c_str()) != 0 || IsMissing(); });
}

bool PrivateFolder::Rename(const std::string& from, const std::string& to) const {
    const std::filesystem::path folder = NativePath(path_);
    constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
    return Patiently([&] { return MoveFileExW((folder / from).c_str(), (folder / to).c_str(), kFlags) != 0; });
}

bool PrivateFolder::Sync() const { return IsFolder(NativePath(path_)); }

}  // namespace tarvex::host
