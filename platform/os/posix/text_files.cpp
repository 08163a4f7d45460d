// Text files, read whole and replaced whole.
//
// The new content goes to a file beside the old one ("uidl.def.new"), which is then renamed over it:
//
//     make and lock .new      write it      sync it      rename it over uidl.def      sync the directory
//
// A crash before the rename leaves the old content, a crash after it the new one. The new file is also the lock that
// keeps two writers of one file apart; only its holder renames or removes it. A writer that gets the lock of a file
// that has lost its name meanwhile starts again.
//
// A writable file in a directory that is not writable cannot be replaced like this: the write fails.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/os/files.h"
#include "platform/os/posix/file_handle.h"
#include "platform/os/text_form.h"

namespace tarvex {

namespace {

constexpr std::size_t kReadChunkBytes = 65536;
constexpr mode_t kNewFileMode = 0600;
constexpr mode_t kPermissionBits = 07777;

// ---- reading

std::optional<std::string> ReadWhole(int descriptor, std::size_t expected_bytes) {
    std::string content;
    std::size_t used_bytes = 0;
    content.resize(expected_bytes + 1);  // one more, so that the end of the file is seen without growing
    for (;;) {
        if (used_bytes == content.size()) content.resize(used_bytes + kReadChunkBytes);
        const ssize_t got = read(descriptor, content.data() + used_bytes, content.size() - used_bytes);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        if (got == 0) break;
        used_bytes += static_cast<std::size_t>(got);
    }
    content.resize(used_bytes);
    return content;
}

// ---- writing

bool WriteAll(int descriptor, std::string_view content) {
    while (!content.empty()) {
        const ssize_t written = write(descriptor, content.data(), content.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        content.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

bool Sync(int descriptor) {
    int result = 0;
    do {
        result = fsync(descriptor);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool Lock(int descriptor) {
    int result = 0;
    do {
        result = flock(descriptor, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

// The file that is to be replaced: behind a link, so that the link stays.
struct Target {
    std::string directory;
    std::string name;
    bool exists = false;
    struct stat status {};
};

// Nothing when the path names what must not be replaced.
std::optional<Target> FindTarget(const std::string& path) {
    std::filesystem::path file = NativePath(path);
    Target target;
    if (lstat(file.c_str(), &target.status) == 0) {
        std::error_code error;
        if (S_ISLNK(target.status.st_mode)) file = std::filesystem::canonical(file, error);
        if (error || stat(file.c_str(), &target.status) != 0 || !S_ISREG(target.status.st_mode)) return std::nullopt;
        if (faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) != 0) return std::nullopt;
        target.exists = true;
    } else if (errno != ENOENT) {
        return std::nullopt;
    }
    target.directory = file.has_parent_path() ? file.parent_path().string() : ".";
    target.name = file.filename().string();
    if (target.name.empty()) return std::nullopt;
    return target;
}

// The new file beside the target, locked. It is removed unless it has become the target.
class NewFile {
public:
    // Takes over a left-over new file, or creates one; waits while another writer has it. None when that fails.
    static std::optional<NewFile> Take(int directory, std::string name);

    ~NewFile() {
        if (file_) unlinkat(directory_, name_.c_str(), 0);
    }
    NewFile(NewFile&&) noexcept = default;
    NewFile& operator=(NewFile&&) = delete;
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    bool Fill(std::string_view content) const {
        return ftruncate(file_.Get(), 0) == 0 && WriteAll(file_.Get(), content);
    }
    bool Sync() const { return tarvex::Sync(file_.Get()); }
    bool AdoptOwnerAndMode(const Target& target) const;
    bool RenameTo(const std::string& target_name);

private:
    NewFile(int directory, std::string name, FileHandle file)
        : directory_(directory), name_(std::move(name)), file_(std::move(file)) {}

    int directory_;
    std::string name_;
    FileHandle file_;
};

std::optional<NewFile> NewFile::Take(int directory, std::string name) {
    for (;;) {
        // Not blocking: the name may belong to something else than a left-over file.
        FileHandle file = OpenAt(directory, name, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK, kNewFileMode);
        if (!file) return std::nullopt;
        struct stat held {};
        if (fstat(file.Get(), &held) != 0 || !S_ISREG(held.st_mode) || !Lock(file.Get())) return std::nullopt;

        struct stat named {};
        const bool has_name = fstatat(directory, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0;
        if (has_name && named.st_dev == held.st_dev && named.st_ino == held.st_ino) {
            return NewFile(directory, std::move(name), std::move(file));
        }
    }
}

bool NewFile::AdoptOwnerAndMode(const Target& target) const {
    if (target.exists) {
        struct stat own {};
        if (fstat(file_.Get(), &own) != 0) return false;
        // Only a privileged process may change the owner; others may at least be able to set the group.
        if (own.st_uid != target.status.st_uid || own.st_gid != target.status.st_gid) {
            const bool given = fchown(file_.Get(), target.status.st_uid, target.status.st_gid) == 0 ||
                               fchown(file_.Get(), static_cast<uid_t>(-1), target.status.st_gid) == 0;
            static_cast<void>(given);
        }
    }
    return fchmod(file_.Get(), target.exists ? target.status.st_mode & kPermissionBits : kNewFileMode) == 0;
}

// Whether the target holds the content and nobody is about to replace it.
bool Holds(const Target& target, int directory, const std::string& new_name, std::string_view content) {
    if (!target.exists || static_cast<std::size_t>(target.status.st_size) != content.size()) return false;
    if (faccessat(directory, new_name.c_str(), F_OK, AT_EACCESS | AT_SYMLINK_NOFOLLOW) == 0) return false;
    const FileHandle file = OpenAt(directory, target.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    return file && ReadWhole(file.Get(), content.size()) == content;
}

bool NewFile::RenameTo(const std::string& target_name) {
    if (renameat(directory_, name_.c_str(), directory_, target_name.c_str()) != 0) return false;
    file_ = FileHandle();  // gives the lock up
    return true;
}

}  // namespace

std::optional<std::vector<std::string>> ReadTextLines(const std::string& path, std::string* why) {
    if (why) why->clear();
    // Not blocking, since a pipe would keep the call waiting for its writer.
    const FileHandle file = Open(NativePath(path), O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!file) {
        ThrowWhenExhausted();
        ExplainFailure(why);
        return std::nullopt;
    }
    struct stat status {};
    const bool is_seen = fstat(file.Get(), &status) == 0;
    if (is_seen && !S_ISREG(status.st_mode)) {
        if (why) *why = "it is no regular file";
        return std::nullopt;
    }
    const std::optional<std::string> content =
        is_seen ? ReadWhole(file.Get(), static_cast<std::size_t>(status.st_size)) : std::nullopt;
    if (!content) {
        ExplainFailure(why);
        return std::nullopt;
    }
    return SplitLines(*content);
}

bool WriteTextFile(const std::string& path, std::string_view text, Durability durability) {
    const std::string content = WithCrLf(text);
    const bool synced = durability != Durability::NotSynced;

    const std::optional<Target> target = FindTarget(path);
    if (!target) return false;
    const FileHandle directory = Open(target->directory, O_RDONLY | O_DIRECTORY);
    if (!directory) return false;
    const std::string new_name = target->name + ".new";
    if (durability == Durability::SyncedWhenChanged && Holds(*target, directory.Get(), new_name, content)) return true;
    std::optional<NewFile> file = NewFile::Take(directory.Get(), new_name);
    if (!file || !file->Fill(content) || !file->AdoptOwnerAndMode(*target)) return false;
    if (synced && !file->Sync()) return false;
    if (!file->RenameTo(target->name)) return false;
    return !synced || Sync(directory.Get());
}

}  // namespace tarvex
