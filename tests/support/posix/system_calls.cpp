// Replaces the calls that change a file system, to record them or make them fail.

#include "tests/support/posix/system_calls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <optional>
#include <string_view>

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
    return call == system_calls.failing || system_calls.calls.size() == system_calls.failing_number;
}

bool RecordsContent(int descriptor) {
    struct stat status {};
    return system_calls.contents && fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

int Rename(int old_directory, const char* old_name, int new_directory, const char* new_name) {
    if (Record("rename")) return -1;
    return static_cast<int>(syscall(SYS_renameat2, old_directory, old_name, new_directory, new_name, 0));
}

int Delete(int directory, const char* name, int flags) {
    if (Record("delete ", name)) return -1;
    return static_cast<int>(syscall(SYS_unlinkat, directory, name, flags));
}

struct Refusal {
    Look look;
    std::string path_end;
    int error;
    int descriptor = -1;  // the last one that was opened for such a path
};
std::optional<Refusal> refusal;

// True, with errno set, when the look is to fail.
bool Refuses(Look look, const char* path) {
    if (!refusal || refusal->look != look || !std::string_view(path).ends_with(refusal->path_end)) return false;
    errno = refusal->error;
    return true;
}

bool Refuses(Look look, int descriptor) {
    return refusal && descriptor >= 0 && refusal->descriptor == descriptor && Refuses(look, refusal->path_end.c_str());
}

// The C library's own function behind one of those below.
template <class Function>
Function* Next(const char* name, Function*) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

RefusedLook::RefusedLook(Look look, std::string path_end, int error) {
    refusal = Refusal{look, std::move(path_end), error};
}
RefusedLook::~RefusedLook() { refusal.reset(); }

}  // namespace tarvex::testing

using namespace tarvex::testing;

// These take the place of the C library's in the test program, for the libraries too.
#pragma GCC visibility push(default)

extern "C" int fsync(int descriptor) {
    struct stat status {};
    fstat(descriptor, &status);
    if (Record(S_ISDIR(status.st_mode) ? "sync directory" : "sync file")) return -1;
    if (system_calls.on_sync && !system_calls.on_sync(descriptor)) {
        errno = EIO;
        return -1;
    }
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

extern "C" int openat(int directory, const char* name, int flags, ...) {
    static auto* const next = Next("openat", openat);
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (Refuses(Look::Open, name)) return -1;
    if (system_calls.contents && (flags & O_CREAT) != 0 && Record("create ", name)) return -1;
    const int descriptor = next(directory, name, flags, mode);
    if (refusal) {
        const bool is_meant = std::string_view(name).ends_with(refusal->path_end);
        if (is_meant || refusal->descriptor == descriptor) refusal->descriptor = is_meant ? descriptor : -1;
    }
    return descriptor;
}

extern "C" int stat(const char* path, struct stat* status) noexcept {
    static auto* const next = Next("stat", static_cast<int (*)(const char*, struct stat*)>(stat));
    return Refuses(Look::Stat, path) ? -1 : next(path, status);
}

extern "C" int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
    static auto* const next = Next("fstatat", fstatat);
    return Refuses(Look::Stat, path) ? -1 : next(directory, path, status, flags);
}

extern "C" ssize_t read(int descriptor, void* buffer, std::size_t bytes) {
    static auto* const next = Next("read", read);
    return Refuses(Look::Read, descriptor) ? -1 : next(descriptor, buffer, bytes);
}

extern "C" ssize_t write(int descriptor, const void* bytes, std::size_t count) {
    static auto* const next = Next("write", write);
    return RecordsContent(descriptor) && Record("write") ? -1 : next(descriptor, bytes, count);
}

// SQLite's.
extern "C" ssize_t pwrite64(int descriptor, const void* bytes, std::size_t count, off64_t offset) {
    static auto* const next = Next("pwrite64", pwrite64);
    return RecordsContent(descriptor) && Record("write") ? -1 : next(descriptor, bytes, count, offset);
}

extern "C" dirent* readdir(DIR* directory) {
    static auto* const next = Next("readdir", readdir);
    return Refuses(Look::List, dirfd(directory)) ? nullptr : next(directory);
}

#pragma GCC visibility pop
