// appset.def.

#include <gtest/gtest.h>

#include <limits>

#include "platform/os/files.h"
#include "tarvex/settings.h"
#include "testing/temp_dir.h"
#include "tests/store/record_test.h"

namespace tarvex {

template <>
struct RecordFacts<CAppSetting> {
    using S = CAppSetting;
    static constexpr const char* kFile = "appset.def";

    static std::vector<FieldCase<S>> Fields() {
        return {Field("rootpath", &S::rootpath, "C:\\Data"), Field("allowcreatenewuser", &S::allowcreatenewuser, 1)};
    }

    static std::string FileOfAllFieldsChanged() {
        return "[version]\r\n0\r\n\r\n"
               "[rootpath]\r\nC:\\Data\r\n\r\n"
               "[allowcreatenewuser]\r\n1\r\n\r\n";
    }
};

namespace {

INSTANTIATE_TYPED_TEST_SUITE_P(App, Record, CAppSetting);

using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

CAppSetting Make(const CString& rootpath, int allowcreatenewuser) {
    CAppSetting setting;
    setting.rootpath = rootpath;
    setting.allowcreatenewuser = allowcreatenewuser;
    return setting;
}

TEST(AppSetting, DefaultsAreARootBelowTheApplicationAndNoNewUsers) {
    const CAppSetting setting;
    EXPECT_EQ(setting.rootpath, GetApplicationPath() + "\\TarvexRoot");
    EXPECT_EQ(setting.allowcreatenewuser, 0);
}

TEST(AppSetting, VersionIsReadAndIgnored) {
    const TempDir dir;
    WriteFile(dir / "appset.def", "[version]\n7\n\n[rootpath]\nroot\n");
    CAppSetting setting;
    EXPECT_EQ(setting.Load(dir.String()), 1);
    EXPECT_EQ(setting.rootpath, "root");
    EXPECT_EQ(setting.allowcreatenewuser, 0);
    EXPECT_EQ(setting.Save(dir.String()), 1);
    EXPECT_TRUE(ReadFile(dir / "appset.def").starts_with("[version]\r\n0\r\n"));
}

TEST(AppSetting, WhatWasSavedIsLoaded) {
    const TempDir dir;
    for (const int flag : {0, 1, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(Make("some root", flag).Save(dir.String()), 1);
        CAppSetting loaded;
        EXPECT_EQ(loaded.Load(dir.String()), 1);
        EXPECT_EQ(loaded.rootpath, "some root");
        EXPECT_EQ(loaded.allowcreatenewuser, flag);
    }
}

TEST(AppSetting, BlanksAroundAValueAreTrimmed) {
    const TempDir dir;
    WriteFile(dir / "appset.def", "[rootpath]\n   C:\\My Data\t  \n[allowcreatenewuser]\n  1 \n");
    CAppSetting setting;
    EXPECT_EQ(setting.Load(dir.String()), 1);
    EXPECT_EQ(setting.rootpath, "C:\\My Data\t");
    EXPECT_EQ(setting.allowcreatenewuser, 1);
}

TEST(AppSetting, EqualInOneFieldIsEqual) {
    EXPECT_EQ(Make("a", 0) == Make("a", 0), 1);
    EXPECT_EQ(Make("a", 0) == Make("b", 0), 1);
    EXPECT_EQ(Make("a", 0) == Make("a", 1), 1);
    EXPECT_EQ(Make("a", 0) == Make("b", 1), 0);
    EXPECT_EQ(Make("a", 0) == Make("A", 1), 0) << "letter case counts";
}

}  // namespace
}  // namespace tarvex
