#include "host/root_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <thread>

#include "host/directories.h"
#include "host/display.h"
#include "host/paths.h"
#include "host/scratch.h"
#include "host/trouble.h"

namespace tarvex::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPause{20};

std::string LockFile(const std::string& root) { return NativePath(root).string() + "/.tarvex.lock"; }

void Write(int descriptor, const std::string& text) {
    // The lock is the kernel's; that its file names the holder is a courtesy, which may fail on a full disk.
    if (ftruncate(descriptor, 0) != 0) return;
    [[maybe_unused]] const ssize_t written = pwrite(descriptor, text.data(), text.size(), 0);
}

}  // namespace

std::optional<RootLock> RootLock::Try(const std::string& root, std::string_view command) {
    const int descriptor = open(LockFile(root).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    const auto fail = [&]() -> Trouble {
        const int code = errno == EACCES || errno == EPERM ? kNotAllowed : kCannotMake;
        return {code, "cannot lock " + QuotedPath(root) + ": " + std::strerror(errno)};
    };
    if (descriptor < 0) throw fail();
    RootLock lock(descriptor);
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) throw fail();
        lock.descriptor_ = -1;
        close(descriptor);
        return std::nullopt;
    }
    Write(descriptor, std::to_string(getpid()) + ' ' + std::string(command) + '\n');
    SweepScratchFolders(root);
    DeleteAside(root);
    return lock;
}

RootLock RootLock::Take(const std::string& root, std::string_view command, std::chrono::milliseconds patience) {
    const auto deadline = Clock::now() + patience;
    for (;;) {
        if (std::optional<RootLock> lock = Try(root, command)) return std::move(*lock);
        if (Clock::now() >= deadline) break;
        std::this_thread::sleep_for(kPause);
    }
    throw Trouble(kTryLater, QuotedPath(root) + " is in use by " + Holder(root) + "; try again when that has ended");
}

std::string RootLock::Holder(const std::string& root) {
    std::ifstream file(LockFile(root));
    std::string process, command;
    if (!(file >> process) || !(file >> command)) return "another tarvex";
    return "tarvex " + ShowText(command, "UTF-8") + " (process " + ShowText(process, "UTF-8") + ")";
}

RootLock::~RootLock() {
    if (descriptor_ < 0) return;
    Write(descriptor_, "");
    close(descriptor_);
}

}  // namespace tarvex::host
