// Replaces the calls that change a file system, to record them or make them fail.

#include "tests/support/posix/system_calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace tarvex::testing {

SystemCalls system_calls;

namespace {

// True when the call is to fail. Allocates nothing unless calls are recorded.
bool Record(const char* verb, const char* name = "") {
    if (!system_calls.recording) return false;
    const std::string call = std::string(verb) + name;
    system_calls.calls.push_back(call);
    if (call == system_calls.deadly || system_calls.calls.size() == system_calls.deadly_number) {
        kill(getpid(), SIGKILL);
    }
    errno = EIO;
    return call == system_calls.failing;
}

int Rename(int old_directory, const char* old_name, int new_directory, const char* new_name) {
    if (Record("rename")) return -1;
    return static_cast<int>(syscall(SYS_renameat2, old_directory, old_name, new_directory, new_name, 0));
}

int Delete(int directory, const char* name, int flags) {
    if (Record("delete ", name)) return -1;
    return static_cast<int>(syscall(SYS_unlinkat, directory, name, flags));
}

}  // namespace
}  // namespace tarvex::testing

using namespace tarvex::testing;

// These take the place of the C library's in the test program, for the libraries too.
#pragma GCC visibility push(default)

extern "C" int fsync(int descriptor) {
    struct stat status {};
    fstat(descriptor, &status);
    if (Record(S_ISDIR(status.st_mode) ? "sync directory" : "sync file")) return -1;
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

extern "C" int renameat(int old_directory, const char* old_name, int new_directory, const char* new_name) noexcept {
    return Rename(old_directory, old_name, new_directory, new_name);
}

extern "C" int rename(const char* old_name, const char* new_name) noexcept {
    return Rename(AT_FDCWD, old_name, AT_FDCWD, new_name);
}

extern "C" int unlinkat(int directory, const char* name, int flags) noexcept { return Delete(directory, name, flags); }

extern "C" int unlink(const char* name) noexcept { return Delete(AT_FDCWD, name, 0); }

extern "C" int rmdir(const char* name) noexcept { return Delete(AT_FDCWD, name, AT_REMOVEDIR); }

extern "C" int mkdir(const char* name, mode_t mode) noexcept {
    if (Record("make")) return -1;
    return static_cast<int>(syscall(SYS_mkdirat, AT_FDCWD, name, mode));
}

#pragma GCC visibility pop
