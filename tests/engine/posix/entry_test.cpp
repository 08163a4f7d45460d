// The entry where threads cannot be had, and the memory that it gives back.

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "testing/scripted_server.h"
#include "tests/support/busy_profile.h"
#include "tests/support/forwarding.h"
#include "tests/support/process_facts.h"

namespace tarvex::testing {
namespace {

// In a child process, since the limit counts for the whole process and not at all for root.
void StartWithoutThreadsToBeHad(CRootPath& root) {
    const rlimit none{0, 0};
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(2);
    if (setrlimit(RLIMIT_NPROC, &none) != 0) _exit(3);
    Tarvex(&root);
    const bool not_running = root.running_copies.size() == 1 && !root.running_copies[0]->worker_thread.load() &&
                             root.running_copies[0]->result.ending == CRunEnding::CouldNotBegin;
    root.RefreshThread();
    if (!not_running || !root.running_copies.empty()) _exit(4);
    CPopProfile& profile = *root.users[0]->profiles[0];
    profile.setting.lasttime = 1000;
    const bool refused = StartRun(root, profile) == CStartResult::CouldNotBegin && root.running_copies.empty();
    _exit(refused && profile.setting.lasttime == 1000 ? 0 : 5);
}

TEST(EntryDeathTest, CopyForWhichNoThreadIsToBeHadIsReaped) {
    GTEST_FLAG_SET(death_test_style, "fast");
    DataTree tree;
    tree.AddProfile(UnusedPort(), UnusedPort());
    EXPECT_EXIT(StartWithoutThreadsToBeHad(tree.root), ::testing::ExitedWithCode(0), "");
}

TEST(RefreshThread, GivesFreeMemoryBackOnlyWhenNoCopyIsLeft) {
    DataTree tree;
    SilentServer pop;
    AddBusyProfile(tree, pop.Port());
    Tarvex(&tree.root);
    ASSERT_TRUE(pop.WaitForConnections(1));

    constexpr std::size_t kFreeBytes = 64 << 20;
    constexpr std::size_t kBlockBytes = 16 << 10;
    std::vector<std::string> blocks;
    for (std::size_t bytes = 0; bytes < kFreeBytes; bytes += kBlockBytes) blocks.emplace_back(kBlockBytes, 'x');
    const std::string last(kBlockBytes, 'x');  // keeps what is below it from being given back without being asked
    blocks.clear();
    if (mallinfo2().fordblks < kFreeBytes / 2) GTEST_SKIP() << "the sanitizers have their own memory";
    const std::size_t before = ResidentMemoryBytes();

    tree.root.RefreshThread();
    EXPECT_EQ(tree.root.running_copies.size(), 1U);
    EXPECT_GT(ResidentMemoryBytes() + kFreeBytes / 2, before);
    tree.root.KillThread();  // looks before it frees the copy
    EXPECT_GT(ResidentMemoryBytes() + kFreeBytes / 2, before);
    tree.root.KillThread();
    EXPECT_LT(ResidentMemoryBytes() + kFreeBytes / 2, before);
}

}  // namespace
}  // namespace tarvex::testing
