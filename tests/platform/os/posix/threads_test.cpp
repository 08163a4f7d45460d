// Worker threads and the memory of the process, where the system is asked for more than others offer.

#include "platform/os/threads.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/os/workers.h"
#include "tests/support/process_facts.h"

namespace tarvex {

namespace {

using namespace std::chrono_literals;
using testing::Begin;
using testing::Gate;
using testing::ResidentMemoryBytes;
using testing::RunToItsEnd;
using testing::ThreadCount;
using testing::ThreadsFallTo;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kib = 1024;
constexpr std::size_t mib = 1024 * kib;

std::size_t VirtualMemoryBytes() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// The stack of an ended thread is given back when it is joined, but for some 40 MB that are kept for new threads.
TEST(Threads, EndedWorkersAreJoinedByTheNextCall) {
    mallopt(M_ARENA_MAX, 1);  // memory that the allocator reserves for new threads would hide that of their stacks
    RunToItsEnd([] {});       // the sanitizers have a thread of their own from the first thread on
    const std::ptrdiff_t before = ThreadCount();
    std::function<void()> nothing = [] {};
    const std::function<void()> calls[] = {
        [&] { EXPECT_NE(Begin(nothing), nullptr); },
        [] { EXPECT_TRUE(WaitForThread(nullptr, 0)); },
        [] { EXPECT_EQ(TerminateThread(nullptr, 0), 1); },
        [] { TrimProcess(); },
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

// Each in a new run of the test program.
class WorkersDeathTest : public ::testing::Test {
protected:
    WorkersDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
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

TEST_F(WorkersDeathTest, NoThreadMeansNoWorker) {
    EXPECT_EXIT(StartWithoutThreadsToBeHad(), ::testing::ExitedWithCode(0), "");
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

TEST(System, MemoryThatIsFreeIsGivenBack) {
    constexpr std::size_t free_bytes = 64 * mib;
    std::vector<std::string> blocks;
    for (std::size_t bytes = 0; bytes < free_bytes; bytes += 16 * kib) blocks.emplace_back(16 * kib, 'x');
    const std::string last(16 * kib, 'x');  // keeps what is below it from being given back without being asked
    blocks.clear();
    if (mallinfo2().fordblks < free_bytes / 2) GTEST_SKIP() << "the sanitizers have their own memory";
    const std::size_t before = ResidentMemoryBytes();
    TrimProcess();
    EXPECT_LT(ResidentMemoryBytes() + free_bytes / 2, before);
}

}  // namespace

}  // namespace tarvex
