// The entry where no thread can be had, and the memory that the process gives back.

#include <gtest/gtest.h>
#include <process.h>
#include <windows.h>

#include <utility>
#include <vector>

#include "tarvex/tarvex.h"
#include "testing/scripted_server.h"
#include "tests/support/busy_profile.h"
#include "tests/support/forwarding.h"
#include "tests/support/windows/replaced_import.h"

extern "C" {
extern void* imported_begin_thread asm("__imp___beginthreadex");
extern void* imported_set_working_set asm("__imp__SetProcessWorkingSetSize@12");
}

namespace tarvex {
namespace {

std::uintptr_t NoThread(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*) { return 0; }

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

}  // namespace
}  // namespace tarvex
