// Text files, read whole and replaced whole.
//
// The new content goes to a file beside the old one, which is renamed over it; the new file is also the lock that keeps
// two writers of one file apart, since it is open for one writer alone until it has its new name. ReplaceFile would for
// a moment leave no file under the name.
//
// Older systems cannot rename over an open file. So a rename waits for the readers of this process, blocks new ones
// meanwhile, and is tried again while other programs have the file open.

#include <windows.h>

#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "platform/os/files.h"
#include "platform/os/text_form.h"
#include "platform/os/windows/file_handle.h"
#include "platform/os/windows/wide.h"

namespace tarvex {

namespace {

constexpr std::size_t kReadChunkBytes = 65536;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// ---- reading

SRWLOCK open_or_renamed = SRWLOCK_INIT;  // shared by readers of text files, exclusive for a rename

class RenameLock {
public:
    RenameLock() { AcquireSRWLockExclusive(&open_or_renamed); }
    ~RenameLock() { ReleaseSRWLockExclusive(&open_or_renamed); }
    RenameLock(const RenameLock&) = delete;
    RenameLock& operator=(const RenameLock&) = delete;
};

// An existing file that is looked at and closed soon. A thread has one at a time.
class OpenedFile {
public:
    OpenedFile(const std::wstring& path, DWORD access, DWORD flags) {
        Patiently([&] {
            AcquireSRWLockShared(&open_or_renamed);
            file_ = FileHandle(CreateFileW(path.c_str(), access, kShareAll, nullptr, OPEN_EXISTING, flags, nullptr));
            if (file_) return true;
            const DWORD error = GetLastError();
            ReleaseSRWLockShared(&open_or_renamed);
            SetLastError(error);
            return false;
        });
    }
    ~OpenedFile() {
        if (!file_) return;
        file_.Close();
        ReleaseSRWLockShared(&open_or_renamed);
    }
    OpenedFile(const OpenedFile&) = delete;
    OpenedFile& operator=(const OpenedFile&) = delete;

    explicit operator bool() const { return static_cast<bool>(file_); }
    HANDLE Get() const { return file_.Get(); }

private:
    FileHandle file_;
};

// Nothing for what is no file on a disk.
std::optional<BY_HANDLE_FILE_INFORMATION> Describe(HANDLE file) {
    BY_HANDLE_FILE_INFORMATION information;
    if (GetFileType(file) != FILE_TYPE_DISK || !GetFileInformationByHandle(file, &information)) return std::nullopt;
    if ((information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return std::nullopt;
    return information;
}

std::optional<std::string> ReadWhole(HANDLE file) {
    const auto description = Describe(file);
    if (!description) return std::nullopt;
    if (description->nFileSizeHigh != 0) throw std::bad_alloc();
    std::string content;
    std::size_t used_bytes = 0;
    content.resize(std::size_t{description->nFileSizeLow} + 1);  // one more, so that the end of the file is seen
    for (;;) {
        if (used_bytes == content.size()) content.resize(used_bytes + kReadChunkBytes);
        DWORD got_bytes = 0;
        const auto room_bytes = static_cast<DWORD>(content.size() - used_bytes);
        if (!ReadFile(file, content.data() + used_bytes, room_bytes, &got_bytes, nullptr)) return std::nullopt;
        if (got_bytes == 0) break;
        used_bytes += got_bytes;
    }
    content.resize(used_bytes);
    return content;
}

// ---- writing

// The file that is to be replaced: behind a link, so that the link stays. It is not kept open, for what is open cannot
// be replaced everywhere.
struct Target {
    std::wstring path;
    bool exists = false;
    DWORD attributes = 0;
    std::vector<unsigned char> rights;  // empty where the system does not tell
};

std::vector<unsigned char> RightsOf(HANDLE file) {
    DWORD bytes = 0;
    GetKernelObjectSecurity(file, DACL_SECURITY_INFORMATION, nullptr, 0, &bytes);
    std::vector<unsigned char> rights(bytes);
    if (!GetKernelObjectSecurity(file, DACL_SECURITY_INFORMATION, rights.data(), bytes, &bytes)) return {};
    return rights;
}

std::optional<std::wstring> FinalPath(HANDLE file) {
    const DWORD needed = GetFinalPathNameByHandleW(file, nullptr, 0, FILE_NAME_NORMALIZED);
    std::wstring path(needed, L'\0');
    const DWORD length = GetFinalPathNameByHandleW(file, path.data(), needed, FILE_NAME_NORMALIZED);
    if (length == 0 || length >= needed) return std::nullopt;
    path.resize(length);
    return path;
}

// Nothing when the path names what must not be replaced.
std::optional<Target> FindTarget(const std::string& path) {
    Target target;
    target.path = NativePath(path);
    const OpenedFile file(target.path, FILE_READ_ATTRIBUTES | READ_CONTROL, 0);
    if (!file) {
        const bool is_missing = GetLastError() == ERROR_FILE_NOT_FOUND &&
                                GetFileAttributesW(target.path.c_str()) == INVALID_FILE_ATTRIBUTES;
        target.path = FullPath(target.path);
        return is_missing ? std::optional(target) : std::nullopt;
    }
    const auto description = Describe(file.Get());
    if (!description || (description->dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0) return std::nullopt;
    target.exists = true;
    target.attributes = description->dwFileAttributes;
    target.rights = RightsOf(file.Get());
    if (auto final_path = FinalPath(file.Get())) target.path = std::move(*final_path);
    return target;
}

// The new file beside the target, open for this writer alone. It is removed unless it has become the target.
class NewFile {
public:
    // Takes over a left-over new file, or creates one; waits while another writer has it. None when that fails.
    static std::optional<NewFile> Take(const std::wstring& path);

    ~NewFile() {
        FILE_DISPOSITION_INFO removed{TRUE};
        if (file_) SetFileInformationByHandle(file_.Get(), FileDispositionInfo, &removed, sizeof removed);
    }
    NewFile(NewFile&&) noexcept = default;
    NewFile& operator=(NewFile&&) = delete;
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    bool Fill(std::string_view content) const;
    bool Sync() const { return FlushFileBuffers(file_.Get()) != 0; }
    void AdoptRightsAndAttributes(const Target& target) const;
    // Synced as well, when asked: false when that alone fails, with the target replaced.
    bool RenameTo(const std::wstring& target_path, bool synced);

private:
    explicit NewFile(FileHandle file) : file_(std::move(file)) {}
    bool TryRename(const std::wstring& target_path) const;

    FileHandle file_;
};

std::optional<NewFile> NewFile::Take(const std::wstring& path) {
    constexpr auto kPatienceWithWriters = std::chrono::seconds(60);
    FileHandle file =
        OpenFileHandle(path, GENERIC_READ | GENERIC_WRITE | DELETE | WRITE_DAC, FILE_SHARE_READ | FILE_SHARE_DELETE,
                       OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, kPatienceWithWriters);
    if (!file) return std::nullopt;
    const auto description = Describe(file.Get());
    if (!description || (description->dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return std::nullopt;
    return NewFile(std::move(file));
}

bool NewFile::Fill(std::string_view content) const {
    if (SetFilePointer(file_.Get(), 0, nullptr, FILE_BEGIN) != 0 || !SetEndOfFile(file_.Get())) return false;
    while (!content.empty()) {
        DWORD written_bytes = 0;
        const auto bytes = static_cast<DWORD>(std::min<std::size_t>(content.size(), std::numeric_limits<int>::max()));
        if (!::WriteFile(file_.Get(), content.data(), bytes, &written_bytes, nullptr) || written_bytes == 0)
            return false;
        content.remove_prefix(written_bytes);
    }
    return true;
}

// As far as the system lets it.
void NewFile::AdoptRightsAndAttributes(const Target& target) const {
    if (!target.exists) return;
    if (!target.rights.empty()) {
        auto rights = target.rights;
        SetKernelObjectSecurity(file_.Get(), DACL_SECURITY_INFORMATION, rights.data());
    }
    FILE_BASIC_INFO attributes{};  // a time of 0 stays
    attributes.FileAttributes = target.attributes;
    SetFileInformationByHandle(file_.Get(), FileBasicInfo, &attributes, sizeof attributes);
}

// One attempt.
bool NewFile::TryRename(const std::wstring& target_path) const {
    // FileRenameInfoEx with its flags, for Windows 10 and later: what others have open is replaced as well.
    constexpr auto kRenameByFlags = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);
    constexpr DWORD kReplaceWhatIsOpen = 3;

    const std::size_t name_bytes = target_path.size() * sizeof(wchar_t);
    std::vector<unsigned char> buffer(sizeof(FILE_RENAME_INFO) + name_bytes);  // with a zero behind the name
    const auto buffer_bytes = static_cast<DWORD>(buffer.size());
    auto* const rename = reinterpret_cast<FILE_RENAME_INFO*>(buffer.data());
    rename->ReplaceIfExists = TRUE;
    rename->FileNameLength = static_cast<DWORD>(name_bytes);
    std::memcpy(rename->FileName, target_path.data(), name_bytes);

    const RenameLock lock;
    if (SetFileInformationByHandle(file_.Get(), FileRenameInfo, rename, buffer_bytes)) return true;
    if (GetLastError() != ERROR_ACCESS_DENIED) return false;
    std::memcpy(rename, &kReplaceWhatIsOpen, sizeof kReplaceWhatIsOpen);
    if (SetFileInformationByHandle(file_.Get(), kRenameByFlags, rename, buffer_bytes)) return true;
    SetLastError(ERROR_SHARING_VIOLATION);  // somebody has it open, as far as one can tell
    return false;
}

bool NewFile::RenameTo(const std::wstring& target_path, bool synced) {
    if (!Patiently([&] { return TryRename(target_path); })) return false;
    const bool is_safe = !synced || Sync();
    file_.Close();
    return is_safe;
}

// Whether the target holds the content and nobody is about to replace it.
bool Holds(const Target& target, const std::wstring& new_path, std::string_view content) {
    if (!target.exists || GetFileAttributesW(new_path.c_str()) != INVALID_FILE_ATTRIBUTES) return false;
    const OpenedFile file(target.path, GENERIC_READ, 0);
    return file && ReadWhole(file.Get()) == content;
}

}  // namespace

std::optional<std::vector<std::string>> ReadTextLines(const std::string& path, std::string* why) {
    if (why) why->clear();
    const OpenedFile file(NativePath(path), GENERIC_READ, FILE_FLAG_SEQUENTIAL_SCAN);
    if (!file) {
        const DWORD error = GetLastError();
        ThrowWhenExhausted(error);
        ExplainFailure(why, error);
        return std::nullopt;
    }
    SetLastError(ERROR_SUCCESS);
    const std::optional<std::string> content = ReadWhole(file.Get());
    if (!content) {
        const DWORD error = GetLastError();
        if (why) *why = "it is no regular file";
        if (error != ERROR_SUCCESS) ExplainFailure(why, error);
        return std::nullopt;
    }
    return SplitLines(*content);
}

bool WriteTextFile(const std::string& path, std::string_view text, Durability durability) {
    const std::string content = WithCrLf(text);
    const bool synced = durability != Durability::NotSynced;

    const std::optional<Target> target = FindTarget(path);
    if (!target) return false;
    const std::wstring new_path = target->path + L".new";
    if (durability == Durability::SyncedWhenChanged && Holds(*target, new_path, content)) return true;
    std::optional<NewFile> file = NewFile::Take(new_path);
    if (!file || !file->Fill(content)) return false;
    file->AdoptRightsAndAttributes(*target);
    if (synced && !file->Sync()) return false;
    return file->RenameTo(target->path, synced);
}

}  // namespace tarvex
