// forwardaddress.def.

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

using S = CForwardAddressSetting;

const CString kDefaultWords("\x2D\x20\x2C\x20\x81\x40", 6);

struct FieldCase {
    const char* name;
    std::function<void(S&)> change;
    std::function<bool(const S&, const S&)> same;
    bool assigned = true;
};

template <class Member>
FieldCase Field(const char* name, Member member, auto value, bool assigned = true) {
    return {name, [=](S& setting) { setting.*member = value; },
            [=](const S& a, const S& b) { return a.*member == b.*member; }, assigned};
}

std::vector<FieldCase> Fields() {
    return {
        Field("status", &S::status, 2),
        Field("spare", &S::spare, 3, false),
        Field("address", &S::address, "to@example.org"),
        Field("nickname", &S::nickname, "a nickname"),
        Field("textonly", &S::textonly, 500),
        Field("cutwhite", &S::cutwhite, -1),
        Field("htmltotext", &S::htmltotext, 0),
        Field("compress_words", &S::compress_words, "; ."),
    };
}

S AllFieldsChanged() {
    S setting;
    for (const FieldCase& field : Fields()) field.change(setting);
    return setting;
}

// A directory named forwardto3.
class ForwardAddressSetting : public ::testing::Test {
protected:
    ForwardAddressSetting() { std::filesystem::create_directory(dir_.Path() / "forwardto3"); }

    std::string Directory() const { return dir_.String() + "\\forwardto3"; }
    std::filesystem::path File() const { return dir_.Path() / "forwardto3" / "forwardaddress.def"; }

private:
    TempDir dir_;
};

TEST_F(ForwardAddressSetting, Defaults) {
    const S setting;
    EXPECT_EQ(setting.status, 1);
    EXPECT_EQ(setting.spare, 0);
    EXPECT_EQ(setting.address, "");
    EXPECT_EQ(setting.nickname, "");
    EXPECT_EQ(setting.textonly, -100);
    EXPECT_EQ(setting.cutwhite, 0);
    EXPECT_EQ(setting.htmltotext, 1);
    EXPECT_EQ(setting.compress_words, kDefaultWords);
}

TEST_F(ForwardAddressSetting, InitializeRestoresEveryDefault) {
    S setting = AllFieldsChanged();
    setting.Initialize();
    for (const FieldCase& field : Fields()) EXPECT_TRUE(field.same(setting, S())) << field.name;
}

TEST_F(ForwardAddressSetting, CopyConstructionTakesEveryFieldAndTheSpareOne) {
    const S source = AllFieldsChanged();
    const S copy(source);
    for (const FieldCase& field : Fields()) EXPECT_TRUE(field.same(copy, source)) << field.name;
}

TEST_F(ForwardAddressSetting, AssignmentTakesAllButTheSpareInteger) {
    const S source = AllFieldsChanged();
    S target;
    target = source;
    for (const FieldCase& field : Fields()) EXPECT_EQ(field.same(target, source), field.assigned) << field.name;
    EXPECT_EQ(target.spare, 0);
}

TEST_F(ForwardAddressSetting, AssignmentToItselfChangesNothing) {
    S setting = AllFieldsChanged();
    setting = static_cast<const S&>(setting);
    for (const FieldCase& field : Fields()) EXPECT_TRUE(field.same(setting, AllFieldsChanged())) << field.name;
}

TEST_F(ForwardAddressSetting, EqualityComparesAllButTheSpareInteger) {
    for (const FieldCase& field : Fields()) {
        S changed;
        field.change(changed);
        EXPECT_EQ(changed == S(), field.assigned ? 0 : 1) << field.name;
    }
}

TEST_F(ForwardAddressSetting, FileIsWrittenInItsOwnOrderWithVersionZero) {
    EXPECT_EQ(AllFieldsChanged().Save(Directory()), 1);
    EXPECT_EQ(ReadFile(File()),
              "[version]\r\n0\r\n\r\n"
              "[nickname]\r\na nickname\r\n\r\n"
              "[address]\r\nto@example.org\r\n\r\n"
              "[status]\r\n2\r\n\r\n"
              "[textonly]\r\n500\r\n\r\n"
              "[cutwhite]\r\n-1\r\n\r\n"
              "[htmltotext]\r\n0\r\n\r\n"
              "[compress_words]\r\n; .\r\n\r\n");
}

TEST_F(ForwardAddressSetting, VersionIsReadAndIgnored) {
    WriteFile(File(), "[version]\r\n7\r\n");
    S setting;
    EXPECT_EQ(setting.Load(Directory()), 1);
    EXPECT_EQ(setting.Save(Directory()), 1);
    EXPECT_TRUE(ReadFile(File()).starts_with("[version]\r\n0\r\n\r\n"));
}

TEST_F(ForwardAddressSetting, WhatWasSavedIsLoaded) {
    S saved = AllFieldsChanged();
    saved.compress_words = "- .";
    EXPECT_EQ(saved.Save(Directory()), 1);
    S loaded;
    EXPECT_EQ(loaded.Load(Directory()), 1);
    EXPECT_EQ(loaded == saved, 1);
    EXPECT_EQ(loaded.spare, 0);
}

TEST_F(ForwardAddressSetting, LoadingKeepsTheSpareInteger) {
    EXPECT_EQ(S().Save(Directory()), 1);
    S setting;
    setting.spare = 4;
    EXPECT_EQ(setting.Load(Directory()), 1);
    EXPECT_EQ(setting.spare, 4);
}

TEST_F(ForwardAddressSetting, DefaultWordsAreReadBackByteForByte) {
    EXPECT_EQ(S().Save(Directory()), 1);
    S loaded;
    loaded.compress_words = "other";
    EXPECT_EQ(loaded.Load(Directory()), 1);
    EXPECT_EQ(loaded.compress_words, kDefaultWords);
}

TEST_F(ForwardAddressSetting, BlanksAroundAValueAreTrimmed) {
    WriteFile(File(), "[nickname]\r\n   a name   \r\n[address]\r\n\tx@example.org\t \r\n");
    S setting;
    EXPECT_EQ(setting.Load(Directory()), 1);
    EXPECT_EQ(setting.nickname, "a name");
    EXPECT_EQ(setting.address, "\tx@example.org\t");
}

TEST_F(ForwardAddressSetting, JapaneseNicknameIsNoHeader) {
    S saved;
    saved.nickname = "\x81\x5B[\x81\x5D";
    EXPECT_EQ(saved.Save(Directory()), 1);
    S loaded;
    EXPECT_EQ(loaded.Load(Directory()), 1);
    EXPECT_EQ(loaded.nickname, saved.nickname);
}

TEST_F(ForwardAddressSetting, WithoutAnAddressInTheFileTheDirectoryNamesIt) {
    WriteFile(File(), "[nickname]\r\nx\r\n[address]\r\n\r\n");
    S setting;
    setting.address = "before@example.org";
    EXPECT_EQ(setting.Load(Directory()), 1);
    EXPECT_EQ(setting.address, "forwardto3");
    EXPECT_EQ(setting.nickname, "x");
}

TEST_F(ForwardAddressSetting, AlsoWithoutAFileTheDirectoryNamesTheAddressAndTheRestStays) {
    S setting = AllFieldsChanged();
    EXPECT_EQ(setting.Load(Directory()), 0);
    EXPECT_EQ(setting.address, "forwardto3");
    setting.address = AllFieldsChanged().address;
    for (const FieldCase& field : Fields()) EXPECT_TRUE(field.same(setting, AllFieldsChanged())) << field.name;
}

TEST_F(ForwardAddressSetting, LastComponentOfThePathIsWhatFollowsTheLastBackslash) {
    for (const auto& [directory, component] : std::vector<std::pair<CString, CString>>{
             {"no-such\\place", "place"},
             {"no-such-place", "no-such-place"},
             {"/no/such\\place", "place"},
             {"no-such\\place\\", ""},
             {"", ""},
         }) {
        S setting;
        setting.address = "before";
        EXPECT_EQ(setting.Load(directory), 0);
        EXPECT_EQ(setting.address, component) << directory;
    }
}

TEST_F(ForwardAddressSetting, EmptyDirectoryTextIsRefusedBySave) { EXPECT_EQ(S().Save(""), 0); }

}  // namespace
}  // namespace tarvex
