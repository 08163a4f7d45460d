#pragma once

// Worker threads that can be interrupted, and what else the entry asks of the system. Thread-safe.
//
// A worker ends by itself: TerminateThread interrupts what it waits for (sockets, name look-ups), makes every further
// wait of that thread fail at once, and returns when the worker has ended. No thread is killed while it holds anything.
// The names AfxBeginThread and TerminateThread were given: they start a worker, and interrupt and join it.

namespace tarvex {

// A reference to a worker thread. It stays valid after the thread has ended and is never used for another one.
class Thread;

// Starts a worker: `procedure(parameter)` on a thread of its own, with a stack of 512 KiB and, on Linux, with the
// signals that a program may handle blocked. Priority, stack size, flags and security attributes are taken as 0 and
// null. An exception that leaves the procedure ends the worker and nothing else. Returns null when no thread can be
// had.
//
// Workers that still run when the program exits are interrupted and waited for. So that they can end in peace, a static
// object that workers use is built before the first of them starts, or never destroyed. Those of a DLL cannot be waited
// for: the system kills them before it tells a library of the exit. An unloaded library stays in memory until its last
// worker has ended by itself. A forked child process has no workers, and may start some only when its parent never did.
Thread* AfxBeginThread(unsigned (*procedure)(void*), void* parameter, int priority, unsigned stack_size, unsigned flags,
                       void* security);

// Interrupts the worker and returns 1 when it has ended, at once when it had ended before or is null. The exit code is
// not used. A worker must not terminate itself. On Windows one that waits for a file which others hold is not
// interrupted: it waits 5 s at most, and a minute for another writer of the same file.
int TerminateThread(Thread* thread, unsigned exit_code);

// Interrupts the worker and returns at once. Nothing happens when it has ended, or is null.
void InterruptThread(Thread* thread);

// Waits until the worker has ended, at most that long; negative = without limit. True when it has ended, also before,
// or is null. A worker must not wait for itself.
bool WaitForThread(Thread* thread, int milliseconds);

// Whether the calling thread is a worker that has been interrupted.
bool ThreadInterrupted();

// Something that a worker may wait on.
class Interruptible {
public:
    virtual void Interrupt() noexcept = 0;  // wakes the waiting worker; called from another thread

protected:
    ~Interruptible() = default;
};

// For as long as it lives, TerminateThread of the calling worker wakes `target`; at once when the worker has been
// interrupted already. Does nothing on a thread that is no worker. Once the destructor has returned, `target` is not
// touched any more. Must be destroyed on the thread that made it.
class InterruptScope {
public:
    explicit InterruptScope(Interruptible& target);
    ~InterruptScope();
    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;

private:
    Interruptible* target_;
};

// Gives memory that the process does not use back to the system; on Windows, trims its working set.
void TrimProcess();

}  // namespace tarvex
