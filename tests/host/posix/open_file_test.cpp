// Whether other users of the machine may read a file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "host/edit/edit.h"
#include "host/tree/remarks.h"
#include "testing/temp_dir.h"
#include "tests/host/edit_words.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// Without a password in it, everybody may read the rules.
TEST(OpenFile, WithRulesIsNamedAndShutWhereItHoldsAPassword) {
    const TempDir folder("/tmp");
    const std::string root = folder / "tree";
    CRootPath tree;
    ASSERT_EQ(tree.SetRootPath(root), 1);
    CPopProfile& profile = *tree.CreateNewUser("taro", "", 0)->CreateNewPopProfile("", "me@example.org");
    for (const fs::path& one : {folder.Path(), folder.Path() / "tree", folder.Path() / "tree" / "user0"})
        fs::permissions(one, fs::perms{0711});
    const fs::path rules = folder.Path() / "tree" / "host.def";
    const auto mode = [&] { return static_cast<int>(fs::status(rules).permissions()); };
    WriteFile(rules, "[version]\n0\n");
    fs::permissions(rules, fs::perms{0644});
    host::Reply reply;
    EXPECT_EQ(host::Edit(tree, EditOf({"rules", "set", "", "smtpserver=relay.example.net"}), reply), 0) << reply.error;
    EXPECT_EQ(mode(), 0644);
    EXPECT_THAT(host::RemarksOn(profile), IsEmpty());
    EXPECT_EQ(host::Edit(tree, EditOf({"rules", "set", ""}, {{"smtppassword", "secret"}}), reply), 0) << reply.error;
    EXPECT_EQ(mode(), 0600);
    fs::permissions(rules, fs::perms{0644});
    EXPECT_THAT(host::RemarksOn(profile), ElementsAre(HasSubstr("can be read by every user of the machine")));
}

TEST(OpenFile, IsNamedWhenItMayHoldAPasswordAndItsModeAndAllFoldersLetEverybodyIn) {
    const TempDir root("/tmp");  // which everybody may enter, wherever other temporary files are
    CPopProfile profile;
    profile.SetPath(root.String() + "\\user0\\from0");
    const fs::path folder = root.Path() / "user0" / "from0";
    fs::create_directories(folder);
    for (const fs::path& one : {root.Path(), folder.parent_path(), folder}) fs::permissions(one, fs::perms{0711});
    for (const char* const file : {"../userset.def", "popprofile.def", "host.def"}) {
        WriteFile(folder / file, "[version]\n0\n");
        fs::permissions(folder / file, fs::perms{0640});
    }
    EXPECT_THAT(host::RemarksOn(profile), IsEmpty());

    const auto open = HasSubstr("can be read by every user of the machine");
    fs::permissions(folder / "popprofile.def", fs::perms{0644});
    fs::permissions(folder / "host.def", fs::perms{0644});
    EXPECT_THAT(host::RemarksOn(profile), ElementsAre(AllOf(HasSubstr("popprofile.def"), open)));
    fs::permissions(folder, fs::perms{0710});
    EXPECT_THAT(host::RemarksOn(profile), IsEmpty());
    fs::permissions(folder.parent_path() / "userset.def", fs::perms{0604});
    EXPECT_THAT(host::RemarksOn(profile), ElementsAre(AllOf(HasSubstr("userset.def"), open)));
    fs::permissions(root.Path(), fs::perms{0700});
    EXPECT_THAT(host::RemarksOn(profile), IsEmpty());
}

}  // namespace
}  // namespace tarvex::testing
