// userset.def.

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "tarvex/settings.h"
#include "testing/temp_dir.h"

namespace tarvex {
namespace {

using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

struct FieldCase {
    const char* name;
    std::function<void(CUserSetting&)> change;
    std::function<bool(const CUserSetting&, const CUserSetting&)> same;
    bool assigned = true;
};

template <class Member>
FieldCase Field(const char* name, Member member, auto value, bool assigned = true) {
    return {name, [=](CUserSetting& setting) { setting.*member = value; },
            [=](const CUserSetting& a, const CUserSetting& b) { return a.*member == b.*member; }, assigned};
}

std::vector<FieldCase> Fields() {
    return {
        Field("status", &CUserSetting::status, 5),          Field("administrator", &CUserSetting::administrator, 1),
        Field("loginname", &CUserSetting::loginname, "x"),  Field("password", &CUserSetting::password, "x"),
        Field("version", &CUserSetting::version, 9, false),
    };
}

CUserSetting AllFieldsChanged() {
    CUserSetting setting;
    for (const FieldCase& field : Fields()) field.change(setting);
    return setting;
}

TEST(UserSetting, Defaults) {
    const CUserSetting setting;
    EXPECT_EQ(setting.status, 1);
    EXPECT_EQ(setting.administrator, 0);
    EXPECT_EQ(setting.loginname, "");
    EXPECT_EQ(setting.password, "");
    EXPECT_EQ(setting.version, 0);
}

TEST(UserSetting, InitializeRestoresEveryDefault) {
    CUserSetting setting = AllFieldsChanged();
    setting.Initialize();
    for (const FieldCase& field : Fields()) EXPECT_TRUE(field.same(setting, CUserSetting())) << field.name;
}

TEST(UserSetting, CopyConstructionTakesEveryField) {
    const CUserSetting source = AllFieldsChanged();
    const CUserSetting copy(source);
    for (const FieldCase& field : Fields()) EXPECT_TRUE(field.same(copy, source)) << field.name;
}

TEST(UserSetting, AssignmentTakesAllButTheVersion) {
    const CUserSetting source = AllFieldsChanged();
    CUserSetting target;
    target = source;
    for (const FieldCase& field : Fields()) EXPECT_EQ(field.same(target, source), field.assigned) << field.name;
    for (const FieldCase& field : Fields())
        EXPECT_EQ(field.same(target, CUserSetting()), !field.assigned) << field.name;
}

TEST(UserSetting, AssignmentToItselfChangesNothing) {
    CUserSetting setting = AllFieldsChanged();
    setting = static_cast<const CUserSetting&>(setting);
    for (const FieldCase& field : Fields()) EXPECT_TRUE(field.same(setting, AllFieldsChanged())) << field.name;
}

TEST(UserSetting, EqualityComparesAllButTheVersion) {
    for (const FieldCase& field : Fields()) {
        CUserSetting changed;
        field.change(changed);
        EXPECT_EQ(changed == CUserSetting(), field.assigned ? 0 : 1) << field.name;
    }
}

TEST(UserSetting, EqualityIsCaseSensitive) {
    CUserSetting lower, upper;
    lower.loginname = "name";
    upper.loginname = "Name";
    EXPECT_EQ(lower == upper, 0);
}

TEST(UserSetting, FileIsWrittenInItsOrderWithTheVersionKeptAndThePasswordScrambled) {
    const TempDir dir;
    CUserSetting setting;
    setting.status = -2;
    setting.administrator = 1;
    setting.loginname = "\x83\x54\x81\x5B";
    setting.password = "abc";
    setting.version = 3;
    EXPECT_EQ(setting.Save(dir.String()), 1);
    EXPECT_EQ(ReadFile(dir / "userset.def"),
              "[version]\r\n3\r\n\r\n"
              "[loginname]\r\n\x83\x54\x81\x5B\r\n\r\n"
              "[password]\r\nnp2c\r\n\r\n"
              "[status]\r\n-2\r\n\r\n"
              "[administrator]\r\n1\r\n\r\n");
}

TEST(UserSetting, WhatWasSavedIsLoaded) {
    const TempDir dir;
    const CUserSetting saved = AllFieldsChanged();
    EXPECT_EQ(saved.Save(dir.String()), 1);
    CUserSetting loaded;
    EXPECT_EQ(loaded.Load(dir.String()), 1);
    for (const FieldCase& field : Fields()) EXPECT_TRUE(field.same(loaded, saved)) << field.name;
}

TEST(UserSetting, SavingTwiceYieldsIdenticalFiles) {
    const TempDir dir;
    EXPECT_EQ(AllFieldsChanged().Save(dir.String()), 1);
    const std::string first = ReadFile(dir / "userset.def");
    CUserSetting loaded;
    EXPECT_EQ(loaded.Load(dir.String()), 1);
    EXPECT_EQ(loaded.Save(dir.String()), 1);
    EXPECT_EQ(ReadFile(dir / "userset.def"), first);
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

TEST(UserSetting, MissingFileChangesNothing) {
    const TempDir dir;
    CUserSetting setting = AllFieldsChanged();
    EXPECT_EQ(setting.Load(dir.String()), 0);
    for (const FieldCase& field : Fields()) EXPECT_TRUE(field.same(setting, AllFieldsChanged())) << field.name;
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

TEST(UserSetting, EmptyDirectoryTextIsRefusedBySave) { EXPECT_EQ(CUserSetting().Save(""), 0); }

}  // namespace
}  // namespace tarvex
