// The account tree where names are bytes, letter case counts, and files have modes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tarvex/tree.h"
#include "testing/temp_dir.h"

namespace tarvex {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

class TreeOnPosix : public ::testing::Test {
protected:
    const fs::path& Path() const { return dir_.Path(); }
    std::string Root() const { return dir_.String(); }

    void Put(const fs::path& file, const std::string& content) const {
        fs::create_directories((Path() / file).parent_path());
        testing::WriteFile(Path() / file, content);
    }

    TempDir dir_;
    CRootPath root_;
};

TEST_F(TreeOnPosix, TheLetterCaseOfThePrefixCounts) {
    Put("User3/userset.def", "");
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    EXPECT_TRUE(root_.users.empty());
}

TEST_F(TreeOnPosix, LinkToADirectoryCountsAsADirectory) {
    Put("elsewhere/userset.def", "[loginname]\nlinked\n");
    fs::create_directory_symlink(Path() / "elsewhere", Path() / "user0");
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    ASSERT_EQ(root_.users.size(), 1U);
    EXPECT_EQ(root_.users[0]->setting.loginname, "linked");
}

TEST_F(TreeOnPosix, PathInMemoryKeepsTheBackslashAlsoBehindABytePairOfACodePage) {
    const std::string name = "data\x83";  // followed by the separator, not by a trail byte
    Put(name + "/user0/userset.def", "[loginname]\nx\n");
    ASSERT_EQ(root_.SetRootPath(Root() + "\\" + name), 1);
    ASSERT_EQ(root_.users.size(), 1U);
    EXPECT_EQ(root_.users[0]->path, Root() + "\\" + name + "\\user0");
    EXPECT_EQ(root_.users[0]->setting.loginname, "x");
}

// Passwords are only scrambled.
TEST_F(TreeOnPosix, NobodyElseMayReadWhatIsCreated) {
    ASSERT_EQ(root_.SetRootPath(Root() + "\\data"), 1);
    CForwardAddress* address =
        root_.CreateNewUser("n", "p", 0)->CreateNewPopProfile("n", "a")->CreateNewForwardAddress("n", "a");
    EXPECT_EQ(address->SaveUidlSetting(), 1);
    EXPECT_EQ(address->SaveScheduleSetting(), 1);
    int files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(Path())) {
        const fs::perms expected = entry.is_directory() ? fs::perms::owner_all : fs::perms(0600);
        EXPECT_EQ(entry.status().permissions(), expected) << entry.path();
        ++files;
    }
    EXPECT_EQ(files, 9);
}

}  // namespace
}  // namespace tarvex
