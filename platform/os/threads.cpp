// Worker threads, and what else the entry asks of the system.
//
// A reference is an ever-increasing number and never an address, so one that outlived its thread is recognised. What
// the system keeps of a thread that has ended is freed by the next call that starts, stops or waits for one, and at the
// latest when the library is unloaded: no thread is inside the library then.

#include "platform/os/threads.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <vector>

#include "platform/os/system_thread.h"

namespace tarvex {

namespace {

// What a worker and those who stop it share.
class Worker {
public:
    Worker(unsigned (*procedure)(void*), void* parameter) : procedure_(procedure), parameter_(parameter) {}

    // Nothing that the procedure throws may end the process, and there is nobody to hand it to.
    void Run() const noexcept {
        try {
            procedure_(parameter_);
        } catch (...) {  // NOLINT(bugprone-empty-catch)
        }
    }

    bool Interrupted() const { return interrupted_; }

    void Interrupt() {
        const std::scoped_lock lock(mutex_);
        interrupted_ = true;
        for (Interruptible* target : targets_) target->Interrupt();
    }

    void Add(Interruptible& target) {
        const std::scoped_lock lock(mutex_);
        targets_.push_back(&target);
        if (interrupted_) target.Interrupt();
    }

    void Remove(Interruptible& target) {
        const std::scoped_lock lock(mutex_);
        const auto last = std::find(targets_.rbegin(), targets_.rend(), &target);
        if (last != targets_.rend()) targets_.erase(std::next(last).base());
    }

    void SetEnded() {
        const std::scoped_lock lock(mutex_);
        ended_ = true;
        ended_changed_.notify_all();
    }

    void WaitUntilEnded() {
        std::unique_lock lock(mutex_);
        ended_changed_.wait(lock, [this] { return ended_; });
    }

    bool WaitUntilEnded(std::chrono::milliseconds time) {
        std::unique_lock lock(mutex_);
        return ended_changed_.wait_for(lock, time, [this] { return ended_; });
    }

private:
    unsigned (*procedure_)(void*);
    void* parameter_;
    std::mutex mutex_;  // guards what follows
    std::vector<Interruptible*> targets_;
    std::atomic<bool> interrupted_ = false;  // read without the lock as well
    bool ended_ = false;
    std::condition_variable ended_changed_;
};

thread_local Worker* current_worker = nullptr;

// Every worker thread that has not been freed.
class Registry {
public:
    static Registry& Get() {
        static Registry registry;
        return registry;
    }

    ~Registry();
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;

    // 0 when no thread can be had.
    std::uintptr_t Start(unsigned (*procedure)(void*), void* parameter);

    // Null when the worker has ended.
    std::shared_ptr<Worker> FindRunning(std::uintptr_t id);

    void FreeFinished();

private:
    struct Entry {
        std::shared_ptr<Worker> worker;
        SystemThread thread;
    };
    // What a new thread is handed.
    struct Task {
        Registry* registry = nullptr;
        std::uintptr_t id = 0;
        std::shared_ptr<Worker> worker;
    };
    using Entries = std::map<std::uintptr_t, Entry>;

    Registry() = default;
    static void ThreadMain(void* task);
    void SetFinished(std::uintptr_t id) noexcept;
    void InterruptRunning();
    std::shared_ptr<Worker> AnyRunning();

    const std::uint64_t process_ = ProcessNumber();
    std::mutex mutex_;  // guards what follows
    std::uintptr_t last_id_ = 0;
    Entries running_;
    Entries finished_;
};

// All are interrupted before the first is waited for, so that they end side by side; one that a worker started
// meanwhile is interrupted when its turn comes. In a child process that was forked there is no thread but the one that
// forked, so nothing can be waited for.
Registry::~Registry() {
    if (ProcessNumber() != process_ || OtherThreadsAreGone() || current_worker != nullptr) return;
    InterruptRunning();
    while (const std::shared_ptr<Worker> worker = AnyRunning()) {
        worker->Interrupt();
        worker->WaitUntilEnded();
    }
    FreeFinished();
}

std::uintptr_t Registry::Start(unsigned (*procedure)(void*), void* parameter) {
    auto task = std::make_unique<Task>();
    task->registry = this;
    task->worker = std::make_shared<Worker>(procedure, parameter);

    // The lock keeps a worker that ends at once from looking for its entry before it is complete.
    const std::scoped_lock lock(mutex_);
    task->id = ++last_id_;
    const auto entry = running_.emplace(task->id, Entry{task->worker, {}}).first;
    const std::optional<SystemThread> thread = SystemThread::Start(ThreadMain, task.get());
    if (!thread) {
        running_.erase(entry);
        return 0;
    }
    static_cast<void>(task.release());  // the thread's own
    entry->second.thread = *thread;
    return entry->first;
}

void Registry::ThreadMain(void* task) {
    const std::unique_ptr<Task> own(static_cast<Task*>(task));
    current_worker = own->worker.get();
    own->worker->Run();
    current_worker = nullptr;
    own->registry->SetFinished(own->id);
    own->worker->SetEnded();
}

// Moves the entry without allocating, since a worker must be able to end when there is no memory left.
void Registry::SetFinished(std::uintptr_t id) noexcept {
    const std::scoped_lock lock(mutex_);
    finished_.insert(running_.extract(id));
}

std::shared_ptr<Worker> Registry::FindRunning(std::uintptr_t id) {
    const std::scoped_lock lock(mutex_);
    const auto entry = running_.find(id);
    return entry == running_.end() ? nullptr : entry->second.worker;
}

void Registry::InterruptRunning() {
    const std::scoped_lock lock(mutex_);
    for (const auto& [id, entry] : running_) entry.worker->Interrupt();
}

std::shared_ptr<Worker> Registry::AnyRunning() {
    const std::scoped_lock lock(mutex_);
    return running_.empty() ? nullptr : running_.begin()->second.worker;
}

void Registry::FreeFinished() {
    Entries finished;
    {
        const std::scoped_lock lock(mutex_);
        finished.swap(finished_);
    }
    for (auto& [id, entry] : finished) entry.thread.Free();
}

std::uintptr_t IdOf(Thread* thread) { return reinterpret_cast<std::uintptr_t>(thread); }

}  // namespace

Thread* AfxBeginThread(unsigned (*procedure)(void*), void* parameter, int /*priority*/, unsigned /*stack_size*/,
                       unsigned /*flags*/, void* /*security*/) {
    Registry::Get().FreeFinished();
    try {
        const std::uintptr_t id = Registry::Get().Start(procedure, parameter);
        return reinterpret_cast<Thread*>(id);  // NOLINT(performance-no-int-to-ptr): it is never followed
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

int TerminateThread(Thread* thread, unsigned /*exit_code*/) {
    if (const auto worker = Registry::Get().FindRunning(IdOf(thread))) {
        worker->Interrupt();
        worker->WaitUntilEnded();
    }
    Registry::Get().FreeFinished();
    return 1;
}

void InterruptThread(Thread* thread) {
    if (const auto worker = Registry::Get().FindRunning(IdOf(thread))) worker->Interrupt();
}

bool WaitForThread(Thread* thread, int milliseconds) {
    if (const auto worker = Registry::Get().FindRunning(IdOf(thread))) {
        if (milliseconds < 0) {
            worker->WaitUntilEnded();
        } else if (!worker->WaitUntilEnded(std::chrono::milliseconds(milliseconds))) {
            return false;
        }
    }
    Registry::Get().FreeFinished();
    return true;
}

bool ThreadInterrupted() { return current_worker != nullptr && current_worker->Interrupted(); }

InterruptScope::InterruptScope(Interruptible& target) : target_(&target) {
    if (current_worker != nullptr) current_worker->Add(target);
}

InterruptScope::~InterruptScope() {
    if (current_worker != nullptr) current_worker->Remove(*target_);
}

void TrimProcess() {
    Registry::Get().FreeFinished();
    GiveMemoryBack();
}

}  // namespace tarvex
