// Paths of the tree on POSIX: the backslash is a slash there.

#include "host/system/paths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace tarvex::host {
namespace {

std::string WithSlashes(std::string_view path) {
    std::string native(path);
    std::ranges::replace(native, '\\', '/');
    return native;
}

}  // namespace

std::filesystem::path NativePath(std::string_view path) { return WithSlashes(path); }

std::string PathAsUtf8(std::string_view path) { return WithSlashes(path); }

std::string TreePath(std::string_view typed) { return std::string(typed); }

std::string WholePath(const std::string& path) {
    std::string whole = std::filesystem::absolute(path).lexically_normal();
    while (whole.size() > 1 && whole.ends_with('/')) whole.pop_back();
    return whole;
}

std::string MakeNewFolder(const std::string& start) {
    std::string folder = NativePath(start + "XXXXXX");
    if (!mkdtemp(folder.data())) throw std::system_error(errno, std::generic_category(), "no folder " + folder);
    return folder;
}

std::string TemporaryDirectory() { return std::filesystem::temp_directory_path(); }

std::string ProgramPath() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error);
}

std::string ProgramDirectory() { return std::filesystem::path(ProgramPath()).parent_path(); }

std::error_code MakeOwnDirectories(const std::string& directory) {
    std::error_code error;
    const mode_t old_mask = umask(077);
    std::filesystem::create_directories(NativePath(directory), error);
    umask(old_mask);
    return error;
}

std::error_code ReserveRoom(const std::filesystem::path& file, std::uintmax_t bytes) {
    unlink(file.c_str());
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0) return {errno, std::generic_category()};
    int error = 0;
    do {
        error = fallocate(descriptor, 0, 0, static_cast<off_t>(bytes)) == 0 ? 0 : errno;
    } while (error == EINTR);
    if (error == EOPNOTSUPP) error = 0;  // the file system cannot tell
    close(descriptor);
    unlink(file.c_str());
    return {error, std::generic_category()};
}

// Numbers are used again: the moment of the directory's making comes with them, where the file system keeps it.
std::string DirectoryIdentity(std::string_view path) {
    struct statx status {};
    if (statx(AT_FDCWD, NativePath(path).c_str(), 0, STATX_INO | STATX_BTIME, &status) != 0) return {};
    return std::to_string(status.stx_ino) + '-' + std::to_string(status.stx_btime.tv_sec) + '-' +
           std::to_string(status.stx_btime.tv_nsec);
}

}  // namespace tarvex::host
