// Files in the making, on POSIX.

#include "host/system/file_in_making.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/durable_files.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

int Descriptor(std::intptr_t file) { return static_cast<int>(file); }

CommandError CannotWrite(const std::filesystem::path& file) {
    const std::string why = std::strerror(errno);
    return {kCannotMake, Tr("cannot write \"{0}\": {1}", ShowUtf8Text(file.native()), why)};
}

}  // namespace

FileInMaking::FileInMaking(const std::string& path, FileReaders readers) : file_(NativePath(path)) {
    struct stat status {};
    if (lstat(file_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw CommandError(kCannotMake, Tr("\"{0}\" is there and is no plain file", ShowPath(path)));
    }
    std::string name = file_.native() + ".XXXXXX";
    opened_ = mkostemp(name.data(), O_CLOEXEC);  // for its owner alone
    if (opened_ == kNoFile) throw CannotWrite(file_);
    fresh_ = name;
    if (readers == FileReaders::Everybody && fchmod(Descriptor(opened_), 0644) != 0) throw CannotWrite(file_);
}

FileInMaking::~FileInMaking() {
    if (opened_ != kNoFile) close(Descriptor(opened_));
    if (!fresh_.empty()) unlink(fresh_.c_str());
}

void FileInMaking::Write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(Descriptor(opened_), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) throw CannotWrite(file_);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void FileInMaking::Keep() {
    int result = 0;
    do {
        result = fsync(Descriptor(opened_));
    } while (result != 0 && errno == EINTR);
    if (result != 0 || rename(fresh_.c_str(), file_.c_str()) != 0) throw CannotWrite(file_);
    fresh_.clear();
    const std::filesystem::path folder = file_.parent_path();
    if (!SyncDirectory(folder.empty() ? "." : folder.native())) throw CannotWrite(file_);
}

}  // namespace tarvex::host
