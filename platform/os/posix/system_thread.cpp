// POSIX threads.

#include "platform/os/system_thread.h"

#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <memory>
#include <new>

namespace tarvex {

namespace {

constexpr std::size_t kStackBytes = std::size_t{512} * 1024;

// The signals of the host are for the host's threads. Faults of the worker itself stay deliverable.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) sigdelset(&blocked, fault);
        pthread_sigmask(SIG_SETMASK, &blocked, &old_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &old_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t old_{};
};

struct Task {
    void (*procedure)(void*);
    void* parameter;
};

void* ThreadMain(void* task) {
    const std::unique_ptr<Task> own(static_cast<Task*>(task));
    pthread_setname_np(pthread_self(), "tarvex");
    own->procedure(own->parameter);
    return nullptr;
}

}  // namespace

// The new thread inherits the signal mask of the caller.
std::optional<SystemThread> SystemThread::Start(void (*procedure)(void*), void* parameter) noexcept {
    std::unique_ptr<Task> task(new (std::nothrow) Task{procedure, parameter});
    if (!task) return std::nullopt;
    const BlockedSignals blocked;
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return std::nullopt;
    pthread_t thread{};
    const bool started = pthread_attr_setstacksize(&attributes, kStackBytes) == 0 &&
                         pthread_create(&thread, &attributes, ThreadMain, task.get()) == 0;
    pthread_attr_destroy(&attributes);
    if (!started) return std::nullopt;
    static_cast<void>(task.release());  // the thread's own
    return SystemThread(thread);
}

void SystemThread::Free() { pthread_join(handle_, nullptr); }

void SystemThread::Leave() { pthread_detach(handle_); }

std::uint64_t ProcessNumber() { return static_cast<std::uint64_t>(getpid()); }

// They run on while static objects are destroyed.
bool OtherThreadsAreGone() { return false; }

void GiveMemoryBack() { malloc_trim(0); }

}  // namespace tarvex
