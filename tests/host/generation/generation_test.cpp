// The number of a tree: reading, raising, comparing, and what is wrong with a file.

#include "host/generation/generation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/system/command_error.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

using host::GenerationOf;
using host::TreeAge;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class Generation : public ::testing::Test {
protected:
    Generation() { std::filesystem::create_directory(folder_ / ".tarvex"); }

    std::string Root() const { return folder_.String(); }
    std::string File() const { return folder_ / ".tarvex/generation"; }

    void Raise(TreeAge& age) {
        age.Raise([this](const std::string& sentence) { told_.push_back(sentence); });
    }

    TempDir folder_;
    std::vector<std::string> told_;
};

TEST_F(Generation, IsRaisedOncePerProcess) {
    EXPECT_EQ(GenerationOf(Root()), 0);
    for (int start = 1; start <= 3; ++start) {
        TreeAge age(Root(), start - 1);
        for (int tick = 0; tick < 3; ++tick) Raise(age);
        EXPECT_EQ(GenerationOf(Root()), start);
    }
    EXPECT_EQ(ReadFile(File()), "3\n");
    EXPECT_THAT(told_, IsEmpty());
}

TEST_F(Generation, FolderIsMadeWhereThereIsNone) {
    std::filesystem::remove(folder_ / ".tarvex");
    EXPECT_EQ(GenerationOf(Root()), 0);
    TreeAge age(Root(), std::nullopt);
    Raise(age);
    EXPECT_EQ(GenerationOf(Root()), 1);
}

TEST_F(Generation, WhatIsNoNumberCountsAsOlderThanAnyAndIsNotReplaced) {
    const std::string too_high = std::to_string(host::kHighestGeneration + 1);
    const std::vector<std::string> damaged = {"",
                                              "x\n",
                                              "-1\n",
                                              "5 \n",
                                              "5\n\n",
                                              "0x5\n",
                                              " 5",
                                              "5\r\n",
                                              too_high,
                                              "99999999999999999999999999",
                                              std::string(100'000, '1'),
                                              std::string("5\0", 2)};
    for (const std::string& content : damaged) {
        SCOPED_TRACE(content.substr(0, 40));
        WriteFile(File(), content);
        EXPECT_THROW(GenerationOf(Root()), host::CommandError);
        EXPECT_FALSE(host::ReadableGeneration(Root()));
        EXPECT_FALSE(TreeAge(Root(), 0).Old()->generation);
        TreeAge age(Root(), std::nullopt);
        EXPECT_FALSE(age.Old());
        Raise(age);
        EXPECT_EQ(ReadFile(File()), content);
    }
    EXPECT_EQ(told_.size(), damaged.size());
}

TEST_F(Generation, NumberThatCannotBeRaisedIsToldOnceAndRaisedLater) {
    WriteFile(File(), "x");
    TreeAge age(Root(), std::nullopt);
    for (int tick = 0; tick < 3; ++tick) Raise(age);
    EXPECT_THAT(told_, ElementsAre(HasSubstr("cannot be raised")));
    WriteFile(File(), "7\n");
    for (int tick = 0; tick < 3; ++tick) Raise(age);
    EXPECT_THAT(told_, ElementsAre(HasSubstr("cannot be raised"), HasSubstr("raised again")));
    EXPECT_EQ(GenerationOf(Root()), 8);
}

TEST_F(Generation, HighestNumberStays) {
    WriteFile(File(), std::to_string(host::kHighestGeneration) + '\n');
    TreeAge age(Root(), host::kHighestGeneration - 1);
    EXPECT_FALSE(age.Old());
    Raise(age);
    EXPECT_EQ(GenerationOf(Root()), host::kHighestGeneration);
    EXPECT_THAT(told_, ElementsAre(HasSubstr("cannot be raised")));
}

TEST_F(Generation, OldCopyIsNotRaisedBeforeItIsAccepted) {
    WriteFile(File(), "5\n");
    EXPECT_FALSE(TreeAge(Root(), 5).Old());
    TreeAge age(Root(), 6);
    ASSERT_TRUE(age.Old());
    EXPECT_THAT(host::WhyHeldBack(*age.Old()), HasSubstr("its generation is 5, and should be 6"));
    Raise(age);
    EXPECT_EQ(GenerationOf(Root()), 5);
    EXPECT_EQ(age.Accept(std::nullopt), 7);
    EXPECT_FALSE(age.Old());
    Raise(age);
    EXPECT_EQ(GenerationOf(Root()), 7);
    EXPECT_THROW(age.Accept(std::nullopt), host::CommandError);
}

TEST_F(Generation, AcceptanceCountsFromTheHigherExpectation) {
    WriteFile(File(), "5\n");
    EXPECT_EQ(TreeAge(Root(), 6).Accept(20), 21);
    WriteFile(File(), "broken");
    EXPECT_EQ(TreeAge(Root(), 30).Accept(20), 31);
    EXPECT_EQ(TreeAge(Root(), std::nullopt).Accept(40), 41);
    EXPECT_THROW(TreeAge(Root(), std::nullopt).Accept(41), host::CommandError);
    EXPECT_THROW(TreeAge(Root(), std::nullopt).Accept(std::nullopt), host::CommandError);
    EXPECT_EQ(GenerationOf(Root()), 41);
}

TEST_F(Generation, WhatAKilledStartLeftIsNotInTheWay) {
    WriteFile(folder_ / ".tarvex/generation.new", "9999");
    TreeAge age(Root(), std::nullopt);
    Raise(age);
    EXPECT_EQ(GenerationOf(Root()), 1);
}

}  // namespace
}  // namespace tarvex::testing
