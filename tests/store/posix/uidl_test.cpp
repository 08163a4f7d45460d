// The list of ids of an address that has no path.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tarvex/tree.h"
#include "testing/temp_dir.h"

namespace tarvex {
namespace {

namespace fs = std::filesystem;

constexpr int kNotPermitted = 100;

// In the child process: with the directory as the root of the file system, and `work` in there as the current one.
int SaveWithoutPath(const fs::path& root) {
    if (::chroot(root.c_str()) != 0) {
        // An ordinary user may do so in a user namespace of its own.
        if (::unshare(CLONE_NEWUSER) != 0 || ::chroot(root.c_str()) != 0) return kNotPermitted;
    }
    if (::chdir("/work") != 0) return kNotPermitted;
    CForwardAddress address;
    address.uidls = {"a"};
    return address.SaveUidlSetting();
}

TEST(UidlFileOnPosix, EmptyPathIsNotRefusedButNamesTheRootOfTheFileSystem) {
    const testing::TempDir root;
    fs::create_directory(root.Path() / "work");
    const pid_t child = ::fork();
    if (child == 0) ::_exit(SaveWithoutPath(root.Path()));
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == kNotPermitted) GTEST_SKIP() << "no process may change its root here";
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(testing::ReadFile(root.Path() / "uidl.def"), "a\r\n");
    EXPECT_TRUE(fs::is_empty(root.Path() / "work"));
}

}  // namespace
}  // namespace tarvex
