// Worker threads: how they start, how they are interrupted, and that none is left behind.

#include "platform/os/threads.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/os/system.h"
#include "tests/platform/os/workers.h"
#include "tests/support/process_facts.h"

namespace tarvex {

namespace {

using namespace std::chrono_literals;
using testing::Begin;
using testing::Gate;
using testing::Latch;
using testing::RunToItsEnd;
using testing::ThreadCount;
using testing::ThreadsFallTo;
using Clock = std::chrono::steady_clock;

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
    Latch waiting(1);
    bool saved = false;  // not atomic: the end of the worker is what orders it
    std::function<void()> body = [&] {
        EXPECT_FALSE(ThreadInterrupted());
        {
            const InterruptScope scope(gate);
            waiting.CountDown();
            EXPECT_EQ(gate.Wait(), false);
        }
        EXPECT_TRUE(ThreadInterrupted());
        saved = true;
    };
    Thread* worker = Begin(body);
    waiting.Wait();
    EXPECT_EQ(TerminateThread(worker, 0xFFFFFFFF), 1);
    EXPECT_TRUE(saved);
    EXPECT_EQ(gate.Interruptions(), 1);
    EXPECT_TRUE(WaitForThread(worker, 0));
}

TEST(Threads, AWaitThatBeginsAfterTheInterruptionFailsAtOnce) {
    Gate first;
    Gate second;
    Latch waiting(1);
    std::function<void()> body = [&] {
        {
            const InterruptScope scope(first);
            waiting.CountDown();
            EXPECT_EQ(first.Wait(), false);
        }
        for (int i = 1; i <= 3; ++i) {
            const InterruptScope scope(second);
            EXPECT_EQ(second.Interruptions(), i);
            EXPECT_EQ(second.Wait(), false);
        }
    };
    Thread* worker = Begin(body);
    waiting.Wait();
    EXPECT_EQ(TerminateThread(worker, 0), 1);
    EXPECT_EQ(second.Interruptions(), 3);
}

TEST(Threads, TerminationWakesEveryScopeThatLivesAndNoneThatDoesNot) {
    Gate outer;
    Gate inner;
    Gate twice;
    Gate before;
    Latch waiting(1);
    std::function<void()> body = [&] {
        { const InterruptScope scope(before); }
        const InterruptScope outer_scope(outer);
        const InterruptScope twice_scope(twice);
        { const InterruptScope twice_again_scope(twice); }
        const InterruptScope inner_scope(inner);
        waiting.CountDown();
        EXPECT_EQ(inner.Wait(), false);
        EXPECT_EQ(twice.Wait(), false);
        EXPECT_EQ(outer.Wait(), false);
    };
    Thread* worker = Begin(body);
    waiting.Wait();
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
    Latch waiting(1);
    std::function<void()> body = [&] {
        const InterruptScope worker_scope(waited_on);
        waiting.CountDown();
        EXPECT_EQ(waited_on.Wait(), false);
    };
    Thread* worker = Begin(body);
    waiting.Wait();
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
    Latch all_running(count);
    std::atomic<int> woken = 0;
    std::vector<Gate> gates(count);
    std::vector<std::function<void()>> bodies;
    bodies.reserve(count);
    for (Gate& gate : gates) {
        bodies.emplace_back([&] {
            const InterruptScope scope(gate);
            all_running.CountDown();
            if (gate.Wait() == false) ++woken;
        });
    }
    std::vector<Thread*> workers;
    for (auto& body : bodies) {
        workers.push_back(Begin(body));
        ASSERT_NE(workers.back(), nullptr);
    }
    all_running.Wait();
    for (Thread* worker : workers) ASSERT_EQ(TerminateThread(worker, 0xFFFFFFFF), 1);
    EXPECT_EQ(woken, count);
    EXPECT_TRUE(ThreadsFallTo(before));
}

// ---- processes

// In a new run of the test program, since its first worker decides when the workers are waited for at its end.
class ThreadsDeathTest : public ::testing::Test {
protected:
    ThreadsDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

void ExitWhileAWorkerRuns() {
    static Gate gate;
    static Latch waiting(1);
    static std::function<void()> body = [] {
        const InterruptScope scope(gate);
        waiting.CountDown();
        const bool interrupted = gate.Wait() == false;
        for (const auto end = Clock::now() + 50ms; Clock::now() < end;) {  // what it saves takes a moment
        }
        std::fputs(interrupted ? "saved" : "not interrupted", stderr);
    };
    Begin(body);
    waiting.Wait();
    std::exit(0);
}

TEST_F(ThreadsDeathTest, TheEndOfTheProgramInterruptsRunningWorkersAndWaitsForThem) {
    EXPECT_EXIT(ExitWhileAWorkerRuns(), ::testing::ExitedWithCode(0), "^saved$");
}

// ---- the rest of the system

TEST(System, TheHostNameIsTheMachines) {
    const std::string expected = testing::SystemHostName();
    EXPECT_EQ(HostName(), expected.empty() ? "localhost" : expected);
}

}  // namespace

}  // namespace tarvex
