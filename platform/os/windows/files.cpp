// Directories, and what there is in them. Text files are in text_files.cpp.

#include "platform/os/files.h"

#include <windows.h>

#include <memory>
#include <new>
#include <utility>

#include "platform/os/windows/file_handle.h"
#include "platform/os/windows/wide.h"

namespace tarvex {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

struct CloseSearch {
    using pointer = HANDLE;
    void operator()(HANDLE search) const { FindClose(search); }
};
using Search = std::unique_ptr<HANDLE, CloseSearch>;

struct Listing {
    bool begun = false;
    DWORD error = 0;  // that ended it, 0 for none
};

// Calls `see` with every entry that matches the mask.
template <class See>
Listing ForEachEntry(const std::wstring& mask, See see) {
    WIN32_FIND_DATAW entry;
    const HANDLE found = FindFirstFileW(mask.c_str(), &entry);
    if (found == INVALID_HANDLE_VALUE) return {false, GetLastError()};
    const Search search(found);
    do {
        see(entry);
    } while (FindNextFileW(search.get(), &entry));
    const DWORD error = GetLastError();
    return {true, error == ERROR_NO_MORE_FILES ? 0 : error};
}

bool IsDirectory(DWORD attributes) { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
bool IsLink(DWORD attributes) { return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0; }

// A file that may not be written cannot be deleted either.
void AllowDeletion(const std::wstring& path, DWORD attributes) {
    if ((attributes & FILE_ATTRIBUTE_READONLY) == 0) return;
    SetFileAttributesW(path.c_str(), attributes & ~DWORD{FILE_ATTRIBUTE_READONLY});
}

// Also when it has gone meanwhile: one that is deleted goes when the last of those who have it open closes it.
bool RemoveFile(const std::wstring& path, DWORD attributes) {
    AllowDeletion(path, attributes);
    return Patiently([&] { return DeleteFileW(path.c_str()) != 0 || GetLastError() == ERROR_FILE_NOT_FOUND; });
}

// Removes what it can and goes on after a failure, so that as little as possible is left behind. The names are read
// first: not every file system goes on in order while entries disappear. True when nothing is left.
bool Remove(const std::wstring& path, DWORD attributes) {
    if (!IsDirectory(attributes)) return RemoveFile(path, attributes);
    AllowDeletion(path, attributes);
    bool emptied = true;
    if (!IsLink(attributes)) {
        std::vector<std::pair<std::wstring, DWORD>> entries;
        ForEachEntry(path + L"\\*", [&](const WIN32_FIND_DATAW& entry) {
            const std::wstring name = entry.cFileName;
            if (name != L"." && name != L"..") entries.emplace_back(name, entry.dwFileAttributes);
        });
        for (const auto& [name, entry_attributes] : entries) {
            emptied = Remove(path + L"\\" + name, entry_attributes) && emptied;
        }
    }
    return Patiently([&] {
        if (RemoveDirectoryW(path.c_str())) return true;
        // What is deleted stays in the directory for as long as others have it open.
        if (GetLastError() == ERROR_DIR_NOT_EMPTY && emptied) SetLastError(ERROR_SHARING_VIOLATION);
        return false;
    });
}

std::wstring WithoutLastSeparators(std::wstring path) {
    while (path.ends_with(L'\\')) path.pop_back();
    return path;
}

// Also where the system does not tell.
bool IsRootOfFileSystem(const std::wstring& full_path) {
    std::wstring root(full_path.size() + 2, L'\0');
    if (!GetVolumePathNameW(full_path.c_str(), root.data(), static_cast<DWORD>(root.size()))) return true;
    return WithoutLastSeparators(root.c_str()) == full_path;
}

}  // namespace

bool PathExists(const std::string& path, std::string* why) {
    if (why) why->clear();
    // Opened, not only looked up, so that a link that leads nowhere does not exist.
    const std::wstring native = NativePath(path);
    if (native.empty()) return false;
    const FileHandle file(
        CreateFileW(native.c_str(), 0, kShareAll, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (file) return true;
    const DWORD error = GetLastError();
    if (IsHeldByOthers()) return true;
    ThrowWhenExhausted(error);
    ExplainFailure(why, error);
    return false;
}

bool NameIsTaken(const std::string& path) {
    return GetFileAttributesW(NativePath(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool CreateOneDirectory(const std::string& path) { return CreateDirectoryW(NativePath(path).c_str(), nullptr) != 0; }

// Without the moment of its making: numbers are not used again where they matter, on NTFS.
DirectoryIdentity IdentifyDirectory(const std::string& path) {
    const FileHandle directory =
        OpenFileHandle(NativePath(path), 0, kShareAll, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    BY_HANDLE_FILE_INFORMATION information;
    if (!directory || !GetFileInformationByHandle(directory.Get(), &information)) return {};
    DirectoryIdentity identity;
    identity.device = information.dwVolumeSerialNumber;
    identity.number = std::uint64_t{information.nFileIndexHigh} << 32 | information.nFileIndexLow;
    return identity;
}

std::vector<DirectoryEntry> EnumerateDirectory(const std::string& mask, std::string* why) {
    if (why) why->clear();
    std::vector<DirectoryEntry> entries;
    const Listing listing = ForEachEntry(NativePath(mask), [&](const WIN32_FIND_DATAW& entry) {
        if (auto name = FromWide(entry.cFileName)) {
            entries.push_back({std::move(*name), IsDirectory(entry.dwFileAttributes), {}});
        }
    });
    ThrowWhenExhausted(listing.error);
    if (listing.begun && listing.error != 0) throw std::bad_alloc();  // a part must not pass for the whole
    if (!listing.begun) ExplainFailure(why, listing.error);
    return entries;
}

void DeleteDirectory(const std::string& path, std::string_view first) {
    const std::wstring native = WithoutLastSeparators(FullPath(NativePath(path)));
    if (native.empty() || IsRootOfFileSystem(native)) return;
    const DWORD attributes = GetFileAttributesW(native.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !IsDirectory(attributes)) return;
    if (!first.empty() && !IsLink(attributes)) {
        const std::wstring file = native + L"\\" + NativePath(first);
        const DWORD file_attributes = GetFileAttributesW(file.c_str());
        if (file_attributes != INVALID_FILE_ATTRIBUTES && !IsDirectory(file_attributes)) {
            RemoveFile(file, file_attributes);
        }
    }
    Remove(native, attributes);
}

// By characters, since the second byte of one may look like a backslash.
std::string LastComponent(const std::string& path) {
    const auto wide = ToWide(path);
    if (!wide) return path.substr(path.rfind('\\') + 1);
    return FromWide(wide->substr(wide->rfind(L'\\') + 1)).value_or(std::string());
}

std::string GetApplicationPath() {
    std::wstring program(32768, L'\0');  // no path is longer
    program.resize(GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
    const std::size_t end = program.rfind(L'\\');
    return end == std::wstring::npos ? std::string() : FromWide(program.substr(0, end)).value_or("");
}

}  // namespace tarvex
