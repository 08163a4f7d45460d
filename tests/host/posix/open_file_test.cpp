// Whether other users of the machine may read a file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "host/tree/remarks.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

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
