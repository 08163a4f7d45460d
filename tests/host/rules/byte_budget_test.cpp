// Whose turn it is when the messages of all runs do not fit into the memory at once.

#include "host/rules/byte_budget.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;

class Budget : public ::testing::Test {
protected:
    host::ByteBudget::Time now_{};
    host::ByteBudget budget_{100, [this] { return now_; }};
};

TEST_F(Budget, LargerOneThanTheLimitGoesAlone) {
    ASSERT_TRUE(budget_.Ask("a", 0, 1));
    EXPECT_FALSE(budget_.Ask("b", 0, 200));
    budget_.Leave("a");
    EXPECT_TRUE(budget_.Ask("b", 0, 200));
    EXPECT_FALSE(budget_.Ask("a", 0, 1));
}

TEST_F(Budget, LargeOneIsNotPassedByManySmallOnes) {
    ASSERT_TRUE(budget_.Ask("small 1", 0, 40));
    ASSERT_FALSE(budget_.Ask("large", 0, 100));
    EXPECT_FALSE(budget_.Ask("small 2", 0, 40)) << "although there is room";
    EXPECT_FALSE(budget_.HasRoomFor("small 2"));
    EXPECT_FALSE(budget_.Ask("small 1", 40, 1)) << "nor may who has something have more";
    budget_.Leave("small 1");
    EXPECT_FALSE(budget_.HasRoomFor("small 2"));
    EXPECT_TRUE(budget_.HasRoomFor("large"));
    EXPECT_TRUE(budget_.Ask("large", 0, 100));
    budget_.Leave("large");
    EXPECT_TRUE(budget_.HasRoomFor("small 2"));
}

TEST_F(Budget, SmallOnesMayUseWhatTheLargeOneLeaves) {
    ASSERT_TRUE(budget_.Ask("a", 0, 60));
    ASSERT_FALSE(budget_.Ask("b", 0, 50));
    budget_.Hold("a", 20);
    EXPECT_TRUE(budget_.Ask("c", 0, 30));
    EXPECT_TRUE(budget_.Ask("b", 0, 50));
}

TEST_F(Budget, WhoHasNotAskedForTwoMinutesHasLostItsPlace) {
    ASSERT_TRUE(budget_.Ask("a", 0, 40));
    ASSERT_FALSE(budget_.Ask("gone", 0, 100));
    now_ += 2min;
    EXPECT_FALSE(budget_.Ask("b", 0, 1));
    now_ += 1s;
    EXPECT_TRUE(budget_.Ask("b", 0, 1));
}

TEST_F(Budget, NobodyIsHeldUpForLongerThanTenMinutesByOneThatWaits) {
    ASSERT_TRUE(budget_.Ask("slow", 0, 40));
    ASSERT_FALSE(budget_.Ask("large", 0, 100));
    int refused = 0;
    for (int minute = 0; minute < 40; ++minute, now_ += 1min) {
        EXPECT_FALSE(budget_.HasRoomFor("large"));
        refused += budget_.Ask("small", 0, 1) ? 0 : 1;
        budget_.Leave("small");
    }
    EXPECT_EQ(refused, 20);
}

TEST_F(Budget, WhatIsReceivedCountsAtOnceAndWhatWasClaimedUntilThen) {
    std::atomic<std::int64_t> received = 1000;
    ASSERT_TRUE(budget_.Ask("a", 10, 20, &received));
    EXPECT_EQ(budget_.Used(), 30);
    received += 70;
    EXPECT_EQ(budget_.Used(), 80);
    EXPECT_FALSE(budget_.Ask("b", 0, 30));
    EXPECT_TRUE(budget_.Ask("a", 15, 5, &received));
    EXPECT_EQ(budget_.Used(), 20);
    received += 3;
    budget_.Settle("a");
    EXPECT_EQ(budget_.Used(), 18);
}

}  // namespace
}  // namespace tarvex::testing
