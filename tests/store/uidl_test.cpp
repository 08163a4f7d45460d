// The UIDL list: its operations and uidl.def.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

#include "tarvex/tree.h"
#include "tarvex/uidl.h"
#include "testing/temp_dir.h"

namespace tarvex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

TEST(Uidl, FindOrAppendReturnsTheFirstEqualEntryAndLeavesTheList) {
    CStringArray list = {"a", "b", "a", "b"};
    EXPECT_EQ(FindOrAppendUidl(list, "b"), 1);
    EXPECT_EQ(FindOrAppendUidl(list, "a"), 0);
    EXPECT_THAT(list, ElementsAre("a", "b", "a", "b"));
}

TEST(Uidl, FindOrAppendAppendsWhatIsMissing) {
    CStringArray list;
    EXPECT_EQ(FindOrAppendUidl(list, "a"), 0);
    EXPECT_EQ(FindOrAppendUidl(list, "b"), 1);
    EXPECT_EQ(FindOrAppendUidl(list, "A"), 2) << "letter case counts";
    EXPECT_EQ(FindOrAppendUidl(list, "a "), 3) << "blanks count";
    EXPECT_EQ(FindOrAppendUidl(list, ""), 4);
    EXPECT_EQ(FindOrAppendUidl(list, ""), 4);
    EXPECT_THAT(list, ElementsAre("a", "b", "A", "a ", ""));
}

TEST(Uidl, RemoveOneTakesTheFirstEqualEntryAndClosesTheGap) {
    CStringArray list = {"a", "b", "c", "b"};
    EXPECT_EQ(RemoveOneUidl(list, "b"), 1);
    EXPECT_THAT(list, ElementsAre("a", "c", "b"));
    EXPECT_EQ(RemoveOneUidl(list, "B"), 0);
    EXPECT_THAT(list, ElementsAre("a", "c", "b"));
    EXPECT_EQ(RemoveOneUidl(list, "b"), 1);
    EXPECT_EQ(RemoveOneUidl(list, "b"), 0);
    EXPECT_THAT(list, ElementsAre("a", "c"));
}

TEST(Uidl, RemoveOneTakesAnEntryOfTheListItself) {
    CStringArray list = {"a", "b", "c"};
    EXPECT_EQ(RemoveOneUidl(list, list[0]), 1);
    EXPECT_THAT(list, ElementsAre("b", "c"));
}

TEST(Uidl, KeepOnlyDropsWhatTheOtherListLacksAndKeepsOrderAndDuplicates) {
    CStringArray list = {"d", "a", "x", "b", "a", "X", ""};
    KeepOnlyUidl(list, {"a", "b", "c", "d", "a"});
    EXPECT_THAT(list, ElementsAre("d", "a", "b", "a"));
}

TEST(Uidl, KeepOnlyWithAnEmptyListEmptiesTheList) {
    CStringArray list = {"a", "b"};
    KeepOnlyUidl(list, {});
    EXPECT_THAT(list, IsEmpty());
}

TEST(Uidl, KeepOnlyWithTheListItselfKeepsAll) {
    CStringArray list = {"a", "b", "a"};
    KeepOnlyUidl(list, list);
    EXPECT_THAT(list, ElementsAre("a", "b", "a"));
}

TEST(Uidl, RemoveAllEmptiesTheList) {
    CStringArray list = {"a", "b"};
    RemoveAllUidl(list);
    EXPECT_THAT(list, IsEmpty());
}

class UidlFile : public ::testing::Test {
protected:
    UidlFile() { address_.path = dir_.String(); }

    std::filesystem::path File() const { return dir_.Path() / "uidl.def"; }

    TempDir dir_;
    CForwardAddress address_;
};

TEST_F(UidlFile, LeadingBlanksAreTrimmedTrailingOnesStayAndEmptyLinesAreSkipped) {
    WriteFile(File(), "  abc\r\n\r\n   \r\nabc \r\n");
    EXPECT_EQ(address_.LoadUidlSetting(), 1);
    EXPECT_THAT(address_.uidls, ElementsAre("abc", "abc "));
}

TEST_F(UidlFile, NothingIsAComment) {
    WriteFile(File(), ";a\r\n//b\r\n[version]\r\n\tc\r\n");
    EXPECT_EQ(address_.LoadUidlSetting(), 1);
    EXPECT_THAT(address_.uidls, ElementsAre(";a", "//b", "[version]", "\tc"));
}

TEST_F(UidlFile, OneIdPerLineInOrderWithDuplicates) {
    address_.uidls = {"b", "a", "b", ";c", "[d]"};
    EXPECT_EQ(address_.SaveUidlSetting(), 1);
    EXPECT_EQ(ReadFile(File()), "b\r\na\r\nb\r\n;c\r\n[d]\r\n");
    CForwardAddress other;
    other.path = address_.path;
    EXPECT_EQ(other.LoadUidlSetting(), 1);
    EXPECT_EQ(other.uidls, address_.uidls);
}

TEST_F(UidlFile, EmptyIdIsAnEmptyLineAndNotReadBack) {
    address_.uidls = {"a", "", "b"};
    EXPECT_EQ(address_.SaveUidlSetting(), 1);
    EXPECT_EQ(ReadFile(File()), "a\r\n\r\nb\r\n");
    EXPECT_EQ(address_.LoadUidlSetting(), 1);
    EXPECT_THAT(address_.uidls, ElementsAre("a", "b"));
}

TEST_F(UidlFile, IdThatWouldBeReadBackAsTwoIsNotSaved) {
    address_.uidls = {"a", "b\nc", "d"};
    EXPECT_EQ(address_.SaveUidlSetting(), 1);
    EXPECT_EQ(ReadFile(File()), "a\r\nd\r\n");
}

TEST_F(UidlFile, EmptyListIsAnEmptyFile) {
    WriteFile(File(), "old\r\n");
    EXPECT_EQ(address_.SaveUidlSetting(), 1);
    EXPECT_TRUE(std::filesystem::exists(File()));
    EXPECT_EQ(ReadFile(File()), "");
    address_.uidls = {"x"};
    EXPECT_EQ(address_.LoadUidlSetting(), 1);
    EXPECT_THAT(address_.uidls, IsEmpty());
}

TEST_F(UidlFile, LoadingReplacesTheListAlsoWhenTheFileIsMissing) {
    address_.uidls = {"old"};
    EXPECT_EQ(address_.LoadUidlSetting(), 0);
    EXPECT_THAT(address_.uidls, IsEmpty());
    address_.uidls = {"old"};
    WriteFile(File(), "new\n");
    EXPECT_EQ(address_.LoadUidlSetting(), 1);
    EXPECT_THAT(address_.uidls, ElementsAre("new"));
}

TEST_F(UidlFile, FileThatCannotBeWrittenIsAFailure) {
    address_.path = dir_ / "missing";
    EXPECT_EQ(address_.SaveUidlSetting(), 0);
    address_.path = dir_.String();
    std::filesystem::create_directory(File());
    EXPECT_EQ(address_.SaveUidlSetting(), 0);
}

TEST_F(UidlFile, HundredThousandIdsAreSavedAndLoaded) {
    for (int i = 0; i < 100000; ++i) address_.uidls.push_back("id-" + std::to_string(i));
    const CStringArray saved = address_.uidls;
    EXPECT_EQ(address_.SaveUidlSetting(), 1);
    EXPECT_EQ(address_.LoadUidlSetting(), 1);
    EXPECT_EQ(address_.uidls, saved);
}

}  // namespace
}  // namespace tarvex
