// userset.def.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tarvex/settings.h"
#include "testing/temp_dir.h"
#include "tests/store/record_test.h"

namespace tarvex {

template <>
struct RecordFacts<CUserSetting> {
    using S = CUserSetting;
    static constexpr const char* kFile = "userset.def";

    static std::vector<FieldCase<S>> Fields() {
        return {
            Field("status", &S::status, -2),
            Field("administrator", &S::administrator, 5),
            Field("loginname", &S::loginname, "\x83\x54\x81\x5B"),
            Field("password", &S::password, "abc"),
            Field("version", &S::version, 3, false),
        };
    }

    // The version is kept, the password scrambled.
    static std::string FileOfAllFieldsChanged() {
        return "[version]\r\n3\r\n\r\n"
               "[loginname]\r\n\x83\x54\x81\x5B\r\n\r\n"
               "[password]\r\nnp2c\r\n\r\n"
               "[status]\r\n-2\r\n\r\n"
               "[administrator]\r\n5\r\n\r\n";
    }
};

namespace {

INSTANTIATE_TYPED_TEST_SUITE_P(User, Record, CUserSetting);

using testing::TempDir;
using testing::WriteFile;

TEST(UserSetting, Defaults) {
    const CUserSetting setting;
    EXPECT_EQ(setting.status, 1);
    EXPECT_EQ(setting.administrator, 0);
    EXPECT_EQ(setting.loginname, "");
    EXPECT_EQ(setting.password, "");
    EXPECT_EQ(setting.version, 0);
}

TEST(UserSetting, EqualityComparesAllButTheVersion) { ExpectEqualityOfAssignedFields<CUserSetting>(); }

TEST(UserSetting, EqualityIsCaseSensitive) {
    CUserSetting lower, upper;
    lower.loginname = "name";
    upper.loginname = "Name";
    EXPECT_EQ(lower == upper, 0);
}

TEST(UserSetting, LeadingWhiteSpaceIsTrimmedAndTrailingBlanksStay) {
    const TempDir dir;
    WriteFile(dir / "userset.def", "[loginname]\r\n\t \v name \t\r\n");
    CUserSetting setting;
    EXPECT_EQ(setting.Load(dir.String()), 1);
    EXPECT_EQ(setting.loginname, "name \t");
}

TEST(UserSetting, BlanksBehindAStoredPasswordGoToTheDecoderWhichSkipsThem) {
    const TempDir dir;
    WriteFile(dir / "userset.def", "[password]\r\nnp2c   \r\n");
    CUserSetting setting;
    EXPECT_EQ(setting.Load(dir.String()), 1);
    EXPECT_EQ(setting.password, "abc");
}

TEST(UserSetting, PasswordTypedInClearAsksForNoRewriting) {
    const TempDir dir;
    WriteFile(dir / "userset.def", "[password]\r\npa$$word!\r\n");
    CUserSetting setting;
    EXPECT_EQ(setting.Load(dir.String()), 1);
    EXPECT_EQ(setting.password, "pa$$word!");
}

TEST(UserSetting, EmptyValueLeavesTheFieldAsItWas) {
    const TempDir dir;
    EXPECT_EQ(CUserSetting().Save(dir.String()), 1);
    CUserSetting setting;
    setting.loginname = "before";
    setting.password = "secret";
    EXPECT_EQ(setting.Load(dir.String()), 1);
    EXPECT_EQ(setting.loginname, "before");
    EXPECT_EQ(setting.password, "secret");
}

}  // namespace
}  // namespace tarvex
