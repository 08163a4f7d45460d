// Worker threads where none can be had, and what is left of those that have ended.

#include "platform/os/threads.h"

#include <gtest/gtest.h>
#include <process.h>

#include "tarvex/tarvex.h"
#include "testing/scripted_server.h"
#include "tests/forwarding.h"
#include "tests/process_facts.h"
#include "tests/windows/replaced_import.h"
#include "tests/workers.h"

extern "C" {
extern void* imported_begin_thread asm("__imp___beginthreadex");
}

namespace tarvex {
namespace {

std::uintptr_t NoThread(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*) { return 0; }

TEST(Threads, NoThreadMeansNoWorker) {
    std::function<void()> body = [] { ADD_FAILURE() << "it runs"; };
    const testing::ReplacedImport none(imported_begin_thread, NoThread);
    EXPECT_EQ(testing::Begin(body), nullptr);
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
