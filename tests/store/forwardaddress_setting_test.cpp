// forwardaddress.def.

#include <gtest/gtest.h>

#include <vector>

#include "tarvex/settings.h"
#include "testing/temp_dir.h"
#include "tests/store/record_test.h"

namespace tarvex {

template <>
struct RecordFacts<CForwardAddressSetting> {
    using S = CForwardAddressSetting;
    static constexpr const char* kFile = "forwardaddress.def";

    static std::vector<FieldCase<S>> Fields() {
        return {
            Field("status", &S::status, 2),
            Field("spare", &S::spare, 3, false, false),
            Field("address", &S::address, "to@example.org"),
            Field("nickname", &S::nickname, "a nickname"),
            Field("textonly", &S::textonly, 500),
            Field("cutwhite", &S::cutwhite, -1),
            Field("htmltotext", &S::htmltotext, 0),
            Field("compress_words", &S::compress_words, "- ."),
        };
    }

    static std::string FileOfAllFieldsChanged() {
        return "[version]\r\n0\r\n\r\n"
               "[nickname]\r\na nickname\r\n\r\n"
               "[address]\r\nto@example.org\r\n\r\n"
               "[status]\r\n2\r\n\r\n"
               "[textonly]\r\n500\r\n\r\n"
               "[cutwhite]\r\n-1\r\n\r\n"
               "[htmltotext]\r\n0\r\n\r\n"
               "[compress_words]\r\n- .\r\n\r\n";
    }
};

namespace {

INSTANTIATE_TYPED_TEST_SUITE_P(ForwardAddress, Record, CForwardAddressSetting);

using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

using S = CForwardAddressSetting;

const CString kDefaultWords("\x2D\x20\x2C\x20\x81\x40", 6);

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

TEST_F(ForwardAddressSetting, EqualityComparesAllButTheSpareInteger) { ExpectEqualityOfAssignedFields<S>(); }

TEST_F(ForwardAddressSetting, VersionIsReadAndIgnored) {
    WriteFile(File(), "[version]\r\n7\r\n");
    S setting;
    EXPECT_EQ(setting.Load(Directory()), 1);
    EXPECT_EQ(setting.Save(Directory()), 1);
    EXPECT_TRUE(ReadFile(File()).starts_with("[version]\r\n0\r\n\r\n"));
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

TEST_F(ForwardAddressSetting, AlsoWithoutAFileTheDirectoryNamesTheAddress) {
    S setting;
    EXPECT_EQ(setting.Load(Directory()), 0);
    EXPECT_EQ(setting.address, "forwardto3");
}

TEST_F(ForwardAddressSetting, LastComponentOfThePathIsWhatFollowsTheLastBackslash) {
    for (const auto& [directory, component] : std::vector<std::pair<CString, CString>>{
             {"no-such\\place", "place"},
             {"no-such-place", "no-such-place"},
             {"/no/such\\place", "place"},
             {"no-such\\place/of mine", "place/of mine"},
             {"no-such\\place\\", ""},
             {"", ""},
         }) {
        S setting;
        setting.address = "before";
        EXPECT_EQ(setting.Load(directory), 0);
        EXPECT_EQ(setting.address, component) << directory;
    }
}

}  // namespace
}  // namespace tarvex
