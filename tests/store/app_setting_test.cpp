// appset.def.

#include <gtest/gtest.h>

#include <limits>

#include "platform/os/files.h"
#include "tarvex/settings.h"
#include "testing/temp_dir.h"

namespace tarvex {
namespace {

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

TEST(AppSetting, InitializeRestoresTheDefaults) {
    CAppSetting setting = Make("elsewhere", 1);
    setting.Initialize();
    EXPECT_EQ(setting.rootpath, CAppSetting().rootpath);
    EXPECT_EQ(setting.allowcreatenewuser, 0);
}

TEST(AppSetting, FileIsWrittenInItsOrderWithVersionZero) {
    const TempDir dir;
    EXPECT_EQ(Make("C:\\Data", 1).Save(dir.String()), 1);
    EXPECT_EQ(ReadFile(dir / "appset.def"),
              "[version]\r\n0\r\n\r\n"
              "[rootpath]\r\nC:\\Data\r\n\r\n"
              "[allowcreatenewuser]\r\n1\r\n\r\n");
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

TEST(AppSetting, MissingFileChangesNothing) {
    const TempDir dir;
    CAppSetting setting = Make("kept", 1);
    EXPECT_EQ(setting.Load(dir.String()), 0);
    EXPECT_EQ(setting.rootpath, "kept");
    EXPECT_EQ(setting.allowcreatenewuser, 1);
}

TEST(AppSetting, EmptyDirectoryTextIsRefusedBySave) { EXPECT_EQ(CAppSetting().Save(""), 0); }

TEST(AppSetting, EqualInOneFieldIsEqual) {
    EXPECT_EQ(Make("a", 0) == Make("a", 0), 1);
    EXPECT_EQ(Make("a", 0) == Make("b", 0), 1);
    EXPECT_EQ(Make("a", 0) == Make("a", 1), 1);
    EXPECT_EQ(Make("a", 0) == Make("b", 1), 0);
    EXPECT_EQ(Make("a", 0) == Make("A", 1), 0) << "letter case counts";
}

TEST(AppSetting, CopyAndAssignmentTakeBothFields) {
    const CAppSetting source = Make("a", 1);
    const CAppSetting copy(source);
    EXPECT_EQ(copy.rootpath, "a");
    EXPECT_EQ(copy.allowcreatenewuser, 1);
    CAppSetting assigned;
    assigned = source;
    EXPECT_EQ(assigned.rootpath, "a");
    EXPECT_EQ(assigned.allowcreatenewuser, 1);
    assigned = static_cast<const CAppSetting&>(assigned);
    EXPECT_EQ(assigned.rootpath, "a");
}

}  // namespace
}  // namespace tarvex
