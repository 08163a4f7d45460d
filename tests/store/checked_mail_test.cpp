// The list of unique ids.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tarvex/mail.h"

namespace tarvex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

CStringArray Ids(const CCheckedMail& list) {
    CStringArray ids;
    for (int i = 0; i < list.GetSize(); ++i) ids.push_back(list.GetAt(i));
    return ids;
}

TEST(CheckedMail, AddReturnsTheIndexAndAppendsOnlyWhatIsNew) {
    CCheckedMail list;
    EXPECT_EQ(list.Add("a"), 0);
    EXPECT_EQ(list.Add("b"), 1);
    EXPECT_EQ(list.Add("a"), 0);
    EXPECT_EQ(list.Add("A"), 2) << "letter case counts";
    EXPECT_EQ(list.Add(""), 3);
    EXPECT_EQ(list.Add("b"), 1);
    EXPECT_THAT(Ids(list), ElementsAre("a", "b", "A", ""));
    EXPECT_TRUE(list.Contains("b"));
    EXPECT_FALSE(list.Contains("B"));
}

TEST(CheckedMail, RemoveLastForgetsTheId) {
    CCheckedMail list;
    list.Add("a");
    list.Add("b");
    list.RemoveLast();
    EXPECT_FALSE(list.Contains("b"));
    EXPECT_THAT(Ids(list), ElementsAre("a"));
    EXPECT_EQ(list.Add("c"), 1);
    EXPECT_EQ(list.Add("b"), 2);
    EXPECT_THAT(Ids(list), ElementsAre("a", "c", "b"));
}

// As a mailbox whose messages are all deleted, or every second one, with more ids than the first hash table holds.
TEST(CheckedMail, ManyIdsAreFoundAfterAddingAndRemovingInTurn) {
    CCheckedMail list;
    CStringArray expected;
    for (int number = 0; number < 3000; ++number) {
        const CString id = "id" + std::to_string(number);
        EXPECT_EQ(list.Add(id), static_cast<int>(expected.size()));
        expected.push_back(id);
        if (number % 2 == 0) {
            list.RemoveLast();
            expected.pop_back();
            EXPECT_FALSE(list.Contains(id));
        }
    }
    EXPECT_EQ(Ids(list), expected);
    for (std::size_t index = 0; index < expected.size(); ++index) {
        EXPECT_TRUE(list.Contains(expected[index]));
        EXPECT_EQ(list.Add(expected[index]), static_cast<int>(index));
    }
    EXPECT_FALSE(list.Contains("id0"));
    EXPECT_FALSE(list.Contains("id3000"));
}

// So many that some have the same hash of 32 bits, whatever its key.
TEST(CheckedMail, IdsOfOneHashAreToldApart) {
    CCheckedMail list;
    constexpr int kIds = 400'000;
    for (int number = 0; number < kIds; ++number) list.Add("id" + std::to_string(number));
    EXPECT_EQ(list.GetSize(), kIds);
}

TEST(CheckedMail, RemoveLastOfAnEmptyListDoesNothing) {
    CCheckedMail list;
    list.RemoveLast();
    EXPECT_EQ(list.GetSize(), 0);
    EXPECT_EQ(list.Add("a"), 0);
}

TEST(CheckedMail, RemoveAllEmptiesTheList) {
    CCheckedMail list;
    list.Add("a");
    list.Add("b");
    list.RemoveAll();
    EXPECT_THAT(Ids(list), IsEmpty());
    EXPECT_FALSE(list.Contains("a"));
    EXPECT_EQ(list.Add("b"), 0);
}

TEST(CheckedMail, AnIdOfTheListItselfIsFound) {
    CCheckedMail list;
    list.Add("a");
    EXPECT_EQ(list.Add(list.GetAt(0)), 0);
    EXPECT_EQ(list.GetSize(), 1);
}

}  // namespace
}  // namespace tarvex
