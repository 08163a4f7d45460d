// Worker threads: how they start, how they are interrupted, and that none is left behind.

#include "platform/os/threads.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <latch>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/os/system.h"

namespace tarvex {

namespace {

constexpr std::size_t kib = 1024;
constexpr std::size_t mib = 1024 * kib;

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

unsigned CallBody(void* body) {
    (*static_cast<std::function<void()>*>(body))();
    return 1;
}

// `body` must outlive the worker.
Thread* Begin(std::function<void()>& body) { return AfxBeginThread(CallBody, &body, 0, 0, 0, nullptr); }

void RunToItsEnd(std::function<void()> body) {
    Thread* worker = Begin(body);
    ASSERT_NE(worker, nullptr);
    ASSERT_TRUE(WaitForThread(worker, -1));
}

// Something to wait on: a wait ends when Open or Interrupt was called.
class Gate final : public Interruptible {
public:
    ~Gate() = default;
    void Interrupt() noexcept override {
        const std::scoped_lock lock(mutex_);
        ++interruptions_;
        changed_.notify_all();
    }
    void Open() {
        const std::scoped_lock lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    // True when opened, false when interrupted, nothing when neither happens in a minute.
    std::optional<bool> Wait() {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, 60s, [this] { return open_ || interruptions_ > 0; })) return std::nullopt;
        return open_;
    }
    int Interruptions() {
        const std::scoped_lock lock(mutex_);
        return interruptions_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
    int interruptions_ = 0;
};

// The threads that the system counts in this process; a joined one may be counted for a moment longer.
std::ptrdiff_t ThreadCount() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::distance(begin(tasks), end(tasks));
}

bool ThreadsFallTo(std::ptrdiff_t count) {
    const auto deadline = Clock::now() + 60s;
    while (ThreadCount() > count) {
        if (Clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

// The sanitizers have a thread of their own from the first thread on.
std::ptrdiff_t ThreadCountWithoutWorkers() {
    RunToItsEnd([] {});
    return ThreadCount();
}

TEST(Threads, AWorkerRunsTheProcedureWithItsParameterOnAThreadOfItsOwn) {
    struct Seen {
        std::thread::id thread;
        void* parameter = nullptr;
    } seen;
    const auto procedure = [](void* parameter) -> unsigned {
        *static_cast<Seen*>(parameter) = {std::this_thread::get_id(), parameter};
        return 1;
    };
    Thread* worker = AfxBeginThread(procedure, &seen, 0, 0, 0, nullptr);
    ASSERT_NE(worker, nullptr);
    ASSERT_TRUE(WaitForThread(worker, -1));
    EXPECT_EQ(seen.parameter, &seen);
    EXPECT_NE(seen.thread, std::thread::id());
    EXPECT_NE(seen.thread, std::this_thread::get_id());
}

TEST(Threads, TheStartDoesNotWaitForTheWorker) {
    Gate gate;
    std::function<void()> body = [&] { EXPECT_EQ(gate.Wait(), true); };
    Thread* worker = Begin(body);
    EXPECT_FALSE(WaitForThread(worker, 0));
    EXPECT_FALSE(WaitForThread(worker, 1));
    gate.Open();
    EXPECT_TRUE(WaitForThread(worker, 10'000));
    EXPECT_TRUE(WaitForThread(worker, 0));
}

TEST(Threads, AnExceptionEndsTheWorkerAndNothingElse) {
    RunToItsEnd([] { throw std::runtime_error("lost"); });
    RunToItsEnd([] { throw 1; });
}

TEST(Threads, ReferencesAreNeverUsedForAnotherWorker) {
    std::set<Thread*> references;
    for (int i = 0; i < 2'000; ++i) {
        std::function<void()> body = [] {};
        Thread* worker = Begin(body);
        ASSERT_NE(worker, nullptr);
        ASSERT_TRUE(references.insert(worker).second);
        ASSERT_TRUE(WaitForThread(worker, -1));
    }
}

TEST(Threads, TheReferenceOfAnEndedWorkerStopsNobodyElse) {
    std::function<void()> nothing = [] {};
    Thread* ended = Begin(nothing);
    ASSERT_TRUE(WaitForThread(ended, -1));

    Gate gate;
    std::function<void()> body = [&] {
        const InterruptScope scope(gate);
        EXPECT_EQ(gate.Wait(), true);
        EXPECT_FALSE(ThreadInterrupted());
    };
    Thread* running = Begin(body);
    EXPECT_EQ(TerminateThread(ended, 0xFFFFFFFF), 1);
    EXPECT_EQ(TerminateThread(nullptr, 0xFFFFFFFF), 1);
    EXPECT_TRUE(WaitForThread(ended, -1));
    EXPECT_TRUE(WaitForThread(nullptr, -1));
    gate.Open();
    EXPECT_TRUE(WaitForThread(running, -1));
}

TEST(Threads, TerminationWakesWhatTheWorkerWaitsForAndReturnsWhenItHasEnded) {
    Gate gate;
    std::latch waiting(1);
    bool saved = false;  // not atomic: the end of the worker is what orders it
    std::function<void()> body = [&] {
        EXPECT_FALSE(ThreadInterrupted());
        {
            const InterruptScope scope(gate);
            waiting.count_down();
            EXPECT_EQ(gate.Wait(), false);
        }
        EXPECT_TRUE(ThreadInterrupted());
        saved = true;
    };
    Thread* worker = Begin(body);
    waiting.wait();
    EXPECT_EQ(TerminateThread(worker, 0xFFFFFFFF), 1);
    EXPECT_TRUE(saved);
    EXPECT_EQ(gate.Interruptions(), 1);
    EXPECT_TRUE(WaitForThread(worker, 0));
}

TEST(Threads, AWaitThatBeginsAfterTheInterruptionFailsAtOnce) {
    Gate first;
    Gate second;
    std::latch waiting(1);
    std::function<void()> body = [&] {
        {
            const InterruptScope scope(first);
            waiting.count_down();
            EXPECT_EQ(first.Wait(), false);
        }
        for (int i = 1; i <= 3; ++i) {
            const InterruptScope scope(second);
            EXPECT_EQ(second.Interruptions(), i);
            EXPECT_EQ(second.Wait(), false);
        }
    };
    Thread* worker = Begin(body);
    waiting.wait();
    EXPECT_EQ(TerminateThread(worker, 0), 1);
    EXPECT_EQ(second.Interruptions(), 3);
}

TEST(Threads, TerminationWakesEveryScopeThatLivesAndNoneThatDoesNot) {
    Gate outer;
    Gate inner;
    Gate twice;
    Gate before;
    std::latch waiting(1);
    std::function<void()> body = [&] {
        { const InterruptScope scope(before); }
        const InterruptScope outer_scope(outer);
        const InterruptScope twice_scope(twice);
        { const InterruptScope twice_again_scope(twice); }
        const InterruptScope inner_scope(inner);
        waiting.count_down();
        EXPECT_EQ(inner.Wait(), false);
        EXPECT_EQ(twice.Wait(), false);
        EXPECT_EQ(outer.Wait(), false);
    };
    Thread* worker = Begin(body);
    waiting.wait();
    TerminateThread(worker, 0);
    EXPECT_EQ(outer.Interruptions(), 1);
    EXPECT_EQ(twice.Interruptions(), 1);
    EXPECT_EQ(inner.Interruptions(), 1);
    EXPECT_EQ(before.Interruptions(), 0);
}

TEST(Threads, AThreadThatIsNoWorkerIsNeverInterrupted) {
    Gate gate;
    const InterruptScope scope(gate);
    EXPECT_FALSE(ThreadInterrupted());
    Gate waited_on;
    std::latch waiting(1);
    std::function<void()> body = [&] {
        const InterruptScope worker_scope(waited_on);
        waiting.count_down();
        EXPECT_EQ(waited_on.Wait(), false);
    };
    Thread* worker = Begin(body);
    waiting.wait();
    TerminateThread(worker, 0);
    EXPECT_FALSE(ThreadInterrupted());
    EXPECT_EQ(gate.Interruptions(), 0);
}

TEST(Threads, SeveralThreadsMayStopOneWorker) {
    Gate gate;
    std::function<void()> body = [&] {
        const InterruptScope scope(gate);
        EXPECT_EQ(gate.Wait(), false);
    };
    Thread* worker = Begin(body);
    std::vector<std::jthread> stoppers;
    for (int i = 0; i < 4; ++i) {
        stoppers.emplace_back([worker] { EXPECT_EQ(TerminateThread(worker, 0), 1); });
        stoppers.emplace_back([worker] { EXPECT_TRUE(WaitForThread(worker, -1)); });
    }
}

TEST(Threads, AWorkerMayStartAndStopAnother) {
    RunToItsEnd([] {
        Gate gate;
        std::function<void()> body = [&] {
            const InterruptScope scope(gate);
            EXPECT_EQ(gate.Wait(), false);
            EXPECT_TRUE(ThreadInterrupted());
        };
        Thread* other = Begin(body);
        ASSERT_NE(other, nullptr);
        EXPECT_EQ(TerminateThread(other, 0), 1);
        EXPECT_FALSE(ThreadInterrupted());
    });
}

TEST(Threads, TerminationMeetsAWorkerThatEndsAtTheSameMoment) {
    for (int round = 0; round < 4'000; ++round) {
        std::atomic<bool> go = false;
        Gate gate;
        gate.Open();
        int work = 0;  // gone when the round is over: the sanitizers see a worker that is still there
        std::function<void()> body = [&] {
            while (!go && !ThreadInterrupted()) {
            }
            const InterruptScope scope(gate);
            gate.Wait();
            ++work;
        };
        Thread* worker = Begin(body);
        ASSERT_NE(worker, nullptr);
        go = round % 4 != 0;
        for (std::atomic<int> spin = round % 64 * 20; spin > 0;) --spin;
        ASSERT_EQ(TerminateThread(worker, 0xFFFFFFFF), 1);
        ASSERT_EQ(work, 1);
    }
}

TEST(Threads, AThousandWorkersRunAtOnce) {
    constexpr int count = 1'000;
    const std::ptrdiff_t before = ThreadCountWithoutWorkers();
    std::latch all_running(count);
    std::atomic<int> woken = 0;
    std::vector<Gate> gates(count);
    std::vector<std::function<void()>> bodies;
    bodies.reserve(count);
    for (Gate& gate : gates) {
        bodies.emplace_back([&] {
            const InterruptScope scope(gate);
            all_running.arrive_and_wait();
            if (gate.Wait() == false) ++woken;
        });
    }
    std::vector<Thread*> workers;
    for (auto& body : bodies) {
        workers.push_back(Begin(body));
        ASSERT_NE(workers.back(), nullptr);
    }
    all_running.wait();
    for (Thread* worker : workers) ASSERT_EQ(TerminateThread(worker, 0xFFFFFFFF), 1);
    EXPECT_EQ(woken, count);
    EXPECT_TRUE(ThreadsFallTo(before));
}

std::size_t VirtualMemoryBytes() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// The stack of an ended thread is given back when it is joined, but for some 40 MB that are kept for new threads.
TEST(Threads, EndedWorkersAreJoinedByTheNextCall) {
    mallopt(M_ARENA_MAX, 1);  // memory that the allocator reserves for new threads would hide that of their stacks
    const std::ptrdiff_t before = ThreadCountWithoutWorkers();
    std::function<void()> nothing = [] {};
    const std::function<void()> calls[] = {
        [&] { EXPECT_NE(Begin(nothing), nullptr); },
        [] { EXPECT_TRUE(WaitForThread(nullptr, 0)); },
        [] { EXPECT_EQ(TerminateThread(nullptr, 0), 1); },
        [] { EXPECT_EQ(SetProcessWorkingSetSize(GetCurrentProcess(), -1, -1), 1); },
    };
    for (const auto& call : calls) {
        Gate gate;
        std::function<void()> body = [&] { EXPECT_EQ(gate.Wait(), true); };
        for (int i = 0; i < 200; ++i) ASSERT_NE(Begin(body), nullptr);
        const std::size_t running_bytes = VirtualMemoryBytes();
        gate.Open();
        ASSERT_TRUE(ThreadsFallTo(before));
        call();
        EXPECT_LT(VirtualMemoryBytes() + 32 * mib, running_bytes);
        ASSERT_TRUE(ThreadsFallTo(before));
    }
}

struct AsksAtTheEndOfItsThread {
    ~AsksAtTheEndOfItsThread() { *interrupted = ThreadInterrupted(); }
    bool* interrupted;
};

TEST(Threads, WhatTheThreadDoesAfterTheProcedureIsNotTheWorkersAnyMore) {
    bool interrupted = true;
    Gate gate;
    std::function<void()> body = [&] {
        thread_local const AsksAtTheEndOfItsThread last{&interrupted};
        EXPECT_EQ(last.interrupted, &interrupted);
        const InterruptScope scope(gate);
        EXPECT_EQ(gate.Wait(), false);
        EXPECT_TRUE(ThreadInterrupted());
    };
    TerminateThread(Begin(body), 0);  // joined here, so that the assertion comes after the end of the thread
    EXPECT_FALSE(interrupted);
}

TEST(Threads, AWorkerHasAModestStack) {
    RunToItsEnd([] {
        pthread_attr_t attributes;
        ASSERT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
        std::size_t bytes = 0;
        EXPECT_EQ(pthread_attr_getstacksize(&attributes, &bytes), 0);
        pthread_attr_destroy(&attributes);
        EXPECT_GE(bytes, 256 * kib);
        EXPECT_LE(bytes, 4 * mib);
    });
}

TEST(Threads, TheSignalsOfTheHostAreBlockedInWorkersAndNowhereElse) {
    const auto blocked = [](int signal) {
        sigset_t mask;
        sigemptyset(&mask);
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        return sigismember(&mask, signal) == 1;
    };
    const std::array host_signals = {SIGINT, SIGTERM, SIGHUP, SIGCHLD, SIGALRM, SIGPIPE, SIGUSR1, SIGXFSZ};
    RunToItsEnd([&] {
        for (const int signal : host_signals) EXPECT_TRUE(blocked(signal)) << signal;
        for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) EXPECT_FALSE(blocked(signal)) << signal;
    });
    for (const int signal : host_signals) EXPECT_FALSE(blocked(signal)) << signal;
}

// ---- processes

// Each in a new run of the test program, since its first worker decides when the workers are waited for at its end.
class ThreadsDeathTest : public ::testing::Test {
protected:
    ThreadsDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

void StartWithoutThreadsToBeHad() {
    const rlimit none{0, 0};
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(2);
    if (setrlimit(RLIMIT_NPROC, &none) != 0) _exit(3);
    std::function<void()> body = [] { _exit(4); };
    Thread* worker = Begin(body);
    if (worker != nullptr) WaitForThread(worker, -1);
    _exit(worker == nullptr ? 0 : 5);
}

TEST_F(ThreadsDeathTest, NoThreadMeansNoWorker) {
    EXPECT_EXIT(StartWithoutThreadsToBeHad(), ::testing::ExitedWithCode(0), "");
}

void ExitWhileAWorkerRuns() {
    static Gate gate;
    static std::latch waiting(1);
    static std::function<void()> body = [] {
        const InterruptScope scope(gate);
        waiting.count_down();
        const bool interrupted = gate.Wait() == false;
        for (const auto end = Clock::now() + 50ms; Clock::now() < end;) {  // what it saves takes a moment
        }
        std::fputs(interrupted ? "saved" : "not interrupted", stderr);
    };
    Begin(body);
    waiting.wait();
    std::exit(0);
}

TEST_F(ThreadsDeathTest, TheEndOfTheProgramInterruptsRunningWorkersAndWaitsForThem) {
    EXPECT_EXIT(ExitWhileAWorkerRuns(), ::testing::ExitedWithCode(0), "^saved$");
}

// The exit status of a forked child that exits at once; nothing when that takes more than a minute.
std::optional<int> ExitStatusOfForkedChild() {
    const pid_t child = fork();
    if (child == 0) std::exit(0);
    const auto deadline = Clock::now() + 60s;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return std::nullopt;
        }
        std::this_thread::yield();
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Threads, TheEndOfAForkedChildDoesNotWaitForTheWorkersOfItsParent) {
    Gate gate;
    std::function<void()> body = [&] { EXPECT_EQ(gate.Wait(), true); };
    Thread* worker = Begin(body);
    EXPECT_EQ(ExitStatusOfForkedChild(), 0);
    EXPECT_FALSE(WaitForThread(worker, 0));
    gate.Open();
    EXPECT_TRUE(WaitForThread(worker, -1));
}

// ---- the rest of the system

TEST(System, TheCurrentProcessIsNotNull) { EXPECT_NE(GetCurrentProcess(), nullptr); }

std::size_t ResidentMemoryBytes() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(System, MemoryThatIsFreeIsGivenBack) {
    constexpr std::size_t free_bytes = 64 * mib;
    std::vector<std::string> blocks;
    for (std::size_t bytes = 0; bytes < free_bytes; bytes += 16 * kib) blocks.emplace_back(16 * kib, 'x');
    const std::string last(16 * kib, 'x');  // keeps what is below it from being given back without being asked
    blocks.clear();
    if (mallinfo2().fordblks < free_bytes / 2) GTEST_SKIP() << "the sanitizers have their own memory";
    const std::size_t before = ResidentMemoryBytes();
    EXPECT_EQ(SetProcessWorkingSetSize(GetCurrentProcess(), -1, -1), 1);
    EXPECT_LT(ResidentMemoryBytes() + free_bytes / 2, before);
}

TEST(System, TheHostNameIsTheMachines) {
    std::array<char, 256> name{};
    ASSERT_EQ(gethostname(name.data(), name.size() - 1), 0);
    const std::string expected = name.data();
    EXPECT_EQ(HostName(), expected.empty() ? "localhost" : expected);
}

}  // namespace

}  // namespace tarvex
