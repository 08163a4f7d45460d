// Replaces files and syncs directories on POSIX.

#include "host/system/durable_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "host/system/paths.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

bool Sync(int descriptor) {
    int result = 0;
    do {
        result = fsync(descriptor);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool WriteAll(int descriptor, std::string_view content) {
    while (!content.empty()) {
        const ssize_t written = write(descriptor, content.data(), content.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        content.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

bool WriteNew(const fs::path& file, mode_t mode, std::string_view content) {
    unlink(file.c_str());  // left by a crash
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0) return false;
    const bool written = fchmod(descriptor, mode) == 0 && WriteAll(descriptor, content) && Sync(descriptor);
    return close(descriptor) == 0 && written;
}

bool SyncFolder(const fs::path& folder) {
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return false;
    const bool synced = Sync(descriptor);
    close(descriptor);
    return synced;
}

}  // namespace

Saved ReplaceContent(const std::string& path, std::string_view content, Readers readers) {
    std::error_code error;
    const fs::path file = fs::weakly_canonical(NativePath(path), error);
    if (error) return Saved::No;
    struct stat status {};
    const bool is_there = stat(file.c_str(), &status) == 0;
    if (is_there && !S_ISREG(status.st_mode)) return Saved::No;
    fs::path fresh = file;
    fresh += ".new";
    const mode_t mode = is_there && readers == Readers::AsBefore ? status.st_mode & 0777U : 0600U;
    if (!WriteNew(fresh, mode, content) || rename(fresh.c_str(), file.c_str()) != 0) {
        unlink(fresh.c_str());
        return Saved::No;
    }
    return SyncFolder(file.parent_path()) ? Saved::Yes : Saved::Unsynced;
}

bool SyncDirectory(const std::string& directory) { return SyncFolder(NativePath(directory)); }

}  // namespace tarvex::host
