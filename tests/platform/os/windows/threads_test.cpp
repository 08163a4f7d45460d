// Worker threads where none can be had, what they are given, and what is left of those that have ended.

#include "platform/os/threads.h"

#include <gtest/gtest.h>
#include <process.h>
#include <windows.h>

#include <utility>

#include "tests/platform/os/workers.h"
#include "tests/support/process_facts.h"
#include "tests/support/windows/replaced_import.h"

extern "C" {
extern void* imported_begin_thread asm("__imp___beginthreadex");
extern void* imported_get_module asm("__imp__GetModuleHandleExW@12");
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

TEST(Threads, HandlesOfEndedWorkersAreGivenBack) {
    DWORD before = 0;
    DWORD after = 0;
    const auto run_some = [](DWORD& handles) {
        const std::ptrdiff_t threads = testing::ThreadCount();
        for (int i = 0; i < 20; ++i) testing::RunToItsEnd([] {});
        ASSERT_TRUE(testing::ThreadsFallTo(threads));
        TrimProcess();
        GetProcessHandleCount(::GetCurrentProcess(), &handles);
    };
    run_some(before);
    run_some(after);
    EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace tarvex
