// Directories, and what there is in them. Text files are in text_files.cpp.

#include "platform/os/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "platform/os/posix/file_handle.h"

namespace tarvex {

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

Directory OpenDirectory(int parent, const std::string& path, int flags) {
    FileHandle handle = OpenAt(parent, path, O_RDONLY | O_DIRECTORY | flags);
    if (!handle) return nullptr;
    Directory directory(fdopendir(handle.Get()));
    if (directory) handle.Release();
    return directory;
}

// Linear in the common case: of all asterisks only the last one is tried at another place.
bool MatchesMask(std::string_view name, std::string_view mask) {
    std::size_t n = 0;
    std::size_t m = 0;
    std::size_t after_asterisk = std::string_view::npos;
    std::size_t asterisk_end = 0;  // where the text that the asterisk stands for ends
    while (n < name.size()) {
        if (m < mask.size() && mask[m] == '*') {
            after_asterisk = ++m;
            asterisk_end = n;
        } else if (m < mask.size() && (mask[m] == '?' || mask[m] == name[n])) {
            ++m;
            ++n;
        } else if (after_asterisk != std::string_view::npos) {
            m = after_asterisk;
            n = ++asterisk_end;
        } else {
            return false;
        }
    }
    return mask.find_first_not_of('*', m) == std::string_view::npos;
}

DirectoryEntry Describe(DIR* directory, const dirent& entry) {
    DirectoryEntry result{entry.d_name, entry.d_type == DT_DIR, {}};
    if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN) return result;
    struct stat status {};
    if (fstatat(dirfd(directory), entry.d_name, &status, 0) == 0) {
        result.is_directory = S_ISDIR(status.st_mode);
    } else {
        ExplainFailure(&result.why_unseen);
    }
    return result;
}

std::vector<std::string> EntryNames(DIR* directory) {
    std::vector<std::string> names;
    while (const dirent* entry = readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    return names;
}

// Removes what it can and goes on after a failure, so that as little as possible stays. The names are read first,
// because some file systems skip entries while others disappear.
void RemoveEntries(DIR* directory) {
    for (const std::string& name : EntryNames(directory)) {
        if (unlinkat(dirfd(directory), name.c_str(), 0) == 0) continue;
        const Directory inner = OpenDirectory(dirfd(directory), name, O_NOFOLLOW);
        if (!inner) continue;
        RemoveEntries(inner.get());
        unlinkat(dirfd(directory), name.c_str(), AT_REMOVEDIR);
    }
}

}  // namespace

bool PathExists(const std::string& path, std::string* why) {
    if (why) why->clear();
    struct stat status {};
    if (stat(NativePath(path).c_str(), &status) == 0) return true;
    ExplainFailure(why);
    return false;
}

bool NameIsTaken(const std::string& path) {
    struct stat status {};
    return lstat(NativePath(path).c_str(), &status) == 0;
}

bool CreateOneDirectory(const std::string& path) { return mkdir(NativePath(path).c_str(), 0700) == 0; }

DirectoryIdentity IdentifyDirectory(const std::string& path) {
    struct statx status {};
    if (statx(AT_FDCWD, NativePath(path).c_str(), 0, STATX_INO | STATX_BTIME, &status) != 0) return {};
    DirectoryIdentity identity;
    identity.device = std::uint64_t{status.stx_dev_major} << 32 | status.stx_dev_minor;
    identity.number = status.stx_ino;
    if ((status.stx_mask & STATX_BTIME) != 0) {
        identity.made_s = status.stx_btime.tv_sec;
        identity.made_ns = status.stx_btime.tv_nsec;
    }
    return identity;
}

std::vector<DirectoryEntry> EnumerateDirectory(const std::string& mask, std::string* why) {
    if (why) why->clear();
    const std::string native = NativePath(mask);
    const std::size_t name_start = native.rfind('/') + 1;  // 0 without a separator
    const std::string_view name_mask = std::string_view(native).substr(name_start);

    std::vector<DirectoryEntry> entries;
    const Directory directory = OpenDirectory(AT_FDCWD, name_start == 0 ? "." : native.substr(0, name_start), 0);
    if (!directory) {
        ThrowWhenExhausted();
        ExplainFailure(why);
        return entries;
    }
    for (;;) {
        errno = 0;  // all that tells the end of the listing from a failure
        const dirent* const entry = readdir(directory.get());
        if (!entry) break;
        const std::string_view name = entry->d_name;
        if (name.find('\\') != std::string_view::npos || !MatchesMask(name, name_mask)) continue;
        entries.push_back(Describe(directory.get(), *entry));
    }
    if (errno != 0) ExplainFailure(why);
    return entries;
}

void DeleteDirectory(const std::string& path, std::string_view first) {
    std::string native = NativePath(path);
    while (native.ends_with('/')) native.pop_back();  // with a separator at the end a link would be followed
    if (native.empty()) return;

    if (const Directory directory = OpenDirectory(AT_FDCWD, native, O_NOFOLLOW)) {
        unlinkat(dirfd(directory.get()), std::string(first).c_str(), 0);
        RemoveEntries(directory.get());
        rmdir(native.c_str());
        return;
    }
    struct stat status {};
    const bool is_link = lstat(native.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
    const bool leads_to_directory = stat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    if (is_link && leads_to_directory) unlink(native.c_str());
}

std::string LastComponent(const std::string& path) { return path.substr(path.rfind('\\') + 1); }

std::string GetApplicationPath() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::string directory = program.parent_path().string();
    return directory == "/" ? std::string() : directory;
}

}  // namespace tarvex
