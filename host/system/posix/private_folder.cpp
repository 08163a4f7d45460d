// Private folders on POSIX. Every operation opens the folder itself, so that none of them trusts a path twice.

#include "host/system/private_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>

#include "host/system/paths.h"
#include "host/system/posix/descriptor.h"

namespace tarvex::host {
namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

Descriptor OpenFolder(const std::string& path) {
    return Descriptor(openat(AT_FDCWD, NativePath(path).c_str(), kOpenFolder | O_NOFOLLOW));
}

bool SyncDescriptor(const Descriptor& file) {
    int result = 0;
    do {
        result = fsync(file.Get());
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool WriteAll(const Descriptor& file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(file.Get(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::optional<std::string> ReadAll(const Descriptor& file, std::size_t expected_bytes, std::size_t most_bytes) {
    std::string content;
    content.reserve(std::min(expected_bytes, most_bytes));
    std::array<char, 64 << 10> piece;
    for (;;) {
        const ssize_t count = read(file.Get(), piece.data(), std::min(piece.size(), most_bytes - content.size()));
        if (count == 0) return content;
        if (count < 0 && errno != EINTR) return std::nullopt;
        if (count > 0) content.append(piece.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

// The parent is synced also when the folder was there: whoever made it may have been killed before that.
bool PrivateFolder::Make() const {
    const std::filesystem::path folder = NativePath(path_);
    const bool is_new = mkdir(folder.c_str(), 0700) == 0;
    if (!is_new && errno != EEXIST) return false;
    const Descriptor parent(openat(AT_FDCWD, folder.parent_path().c_str(), kOpenFolder));
    if (OpenFolder(path_).IsOpen() && parent.IsOpen() && SyncDescriptor(parent)) return true;
    if (is_new) rmdir(folder.c_str());
    return false;
}

std::optional<std::vector<PrivateFolder::Entry>> PrivateFolder::Entries() const {
    struct Close {
        void operator()(DIR* directory) const { closedir(directory); }
    };
    const int folder = openat(AT_FDCWD, NativePath(path_).c_str(), kOpenFolder | O_NOFOLLOW);
    if (folder < 0) return errno == ENOENT ? std::optional(std::vector<Entry>()) : std::nullopt;
    const std::unique_ptr<DIR, Close> directory(fdopendir(folder));
    if (!directory) {
        close(folder);
        return std::nullopt;
    }
    std::vector<Entry> entries;
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(directory.get());
        if (!entry) return errno == 0 ? std::optional(std::move(entries)) : std::nullopt;
        struct stat status {};
        if (fstatat(folder, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT) continue;
        entries.push_back({entry->d_name, S_ISREG(status.st_mode), status.st_size});
    }
}

std::optional<std::string> PrivateFolder::Read(const std::string& name, bool& missing, std::size_t most_bytes) const {
    const Descriptor folder = OpenFolder(path_);
    missing = !folder.IsOpen() && errno == ENOENT;
    if (!folder.IsOpen()) return std::nullopt;
    const Descriptor file(openat(folder.Get(), name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    missing = !file.IsOpen() && errno == ENOENT;
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return ReadAll(file, static_cast<std::size_t>(status.st_size), most_bytes);
}

bool PrivateFolder::WriteNew(const std::string& name, std::string_view bytes) const {
    const Descriptor folder = OpenFolder(path_);
    if (!folder.IsOpen()) return false;
    const Descriptor file(
        openat(folder.Get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file.IsOpen()) return false;
    if (WriteAll(file, bytes) && SyncDescriptor(file)) return true;
    unlinkat(folder.Get(), name.c_str(), 0);
    return false;
}

bool PrivateFolder::Remove(const std::string& name) const {
    const Descriptor folder = OpenFolder(path_);
    if (!folder.IsOpen()) return errno == ENOENT;
    return unlinkat(folder.Get(), name.c_str(), 0) == 0 || errno == ENOENT;
}

bool PrivateFolder::Rename(const std::string& from, const std::string& to) const {
    const Descriptor folder = OpenFolder(path_);
    return folder.IsOpen() && renameat(folder.Get(), from.c_str(), folder.Get(), to.c_str()) == 0;
}

bool PrivateFolder::Sync() const {
    const Descriptor folder = OpenFolder(path_);
    return folder.IsOpen() && SyncDescriptor(folder);
}

}  // namespace tarvex::host
