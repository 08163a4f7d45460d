// Worker threads where none can be had, what they are given, and what is left of those that have ended.

#include "platform/os/threads.h"

#include <gtest/gtest.h>
#include <process.h>
#include <windows.h>

#include <utility>
#include <vector>

#include "tarvex/tarvex.h"
#include "testing/scripted_server.h"
#include "tests/busy_profile.h"
#include "tests/forwarding.h"
#include "tests/process_facts.h"
#include "tests/windows/replaced_import.h"
#include "tests/workers.h"

extern "C" {
extern void* imported_begin_thread asm("__imp___beginthreadex");
extern void* imported_get_module asm("__imp__GetModuleHandleExW@12");
extern void* imported_set_working_set asm("__imp__SetProcessWorkingSetSize@12");
}

namespace tarvex {
namespace {

std::uintptr_t NoThread(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*) { return 0; }

TEST(Threads, NoThreadMeansNoWorker) {
    std::function<void()> body = [] { ADD_FAILURE() << "it runs"; };
    const testing::ReplacedImport none(imported_begin_thread, NoThread);
    EXPECT_EQ(testing::Begin(body), nullptr);
}

BOOL WINAPI NoModule(DWORD, LPCWSTR, HMODULE*) { return FALSE; }

TEST(Threads, NoWorkerRunsInALibraryThatItCannotHold) {
    std::function<void()> body = [] { ADD_FAILURE() << "it runs"; };
    const testing::ReplacedImport none(imported_get_module, NoModule);
    EXPECT_EQ(testing::Begin(body), nullptr);
}

std::pair<unsigned, unsigned> stack_and_flags;

std::uintptr_t NoThreadAsAsked(void*, unsigned stack_bytes, unsigned(__stdcall*)(void*), void*, unsigned flags,
                               unsigned*) {
    stack_and_flags = {stack_bytes, flags};
    return 0;
}

TEST(Threads, AWorkerHasAModestStack) {
    std::function<void()> body = [] {};
    const testing::ReplacedImport none(imported_begin_thread, NoThreadAsAsked);
    EXPECT_EQ(testing::Begin(body), nullptr);
    EXPECT_EQ(stack_and_flags, (std::pair<unsigned, unsigned>(512U * 1024, STACK_SIZE_PARAM_IS_A_RESERVATION)));
}

std::vector<std::pair<SIZE_T, SIZE_T>> working_sets;

BOOL WINAPI RecordedWorkingSet(HANDLE process, SIZE_T minimum, SIZE_T maximum) {
    EXPECT_EQ(process, ::GetCurrentProcess());
    working_sets.emplace_back(minimum, maximum);
    return TRUE;
}

TEST(RefreshThread, TrimsTheProcessWhenNoCopyIsLeft) {
    constexpr SIZE_T kAll = static_cast<SIZE_T>(-1);
    testing::DataTree tree;
    testing::SilentServer pop;
    testing::AddBusyProfile(tree, pop.Port());
    const testing::ReplacedImport recorded(imported_set_working_set, RecordedWorkingSet);
    Tarvex(&tree.root);
    ASSERT_TRUE(pop.WaitForConnections(1));
    working_sets.clear();

    tree.root.RefreshThread();
    tree.root.KillThread();  // looks before it frees the copy
    EXPECT_TRUE(working_sets.empty());
    tree.root.RefreshThread();
    tree.root.RefreshThread();
    EXPECT_EQ(working_sets, (std::vector<std::pair<SIZE_T, SIZE_T>>{{kAll, kAll}, {kAll, kAll}}));
}

TEST(Entry, CopyForWhichNoThreadIsToBeHadIsReaped) {
    testing::DataTree tree;
    tree.AddProfile(testing::UnusedPort(), testing::UnusedPort());
    const testing::ReplacedImport none(imported_begin_thread, NoThread);
    Tarvex(&tree.root);
    ASSERT_EQ(tree.root.running_copies.size(), 1U);
    EXPECT_EQ(tree.root.running_copies[0]->worker_thread.load(), nullptr);
    tree.root.RefreshThread();
    EXPECT_TRUE(tree.root.running_copies.empty());
}

TEST(Threads, HandlesOfEndedWorkersAreGivenBack) {
    DWORD before = 0;
    DWORD after = 0;
    const auto run_some = [](DWORD& handles) {
        const std::ptrdiff_t threads = testing::ThreadCount();
        for (int i = 0; i < 20; ++i) testing::RunToItsEnd([] {});
        ASSERT_TRUE(testing::ThreadsFallTo(threads));
        ASSERT_EQ(SetProcessWorkingSetSize(GetCurrentProcess(), -1, -1), 1);
        GetProcessHandleCount(::GetCurrentProcess(), &handles);
    };
    run_some(before);
    run_some(after);
    EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace tarvex
