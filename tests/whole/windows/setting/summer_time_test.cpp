// The clock in New York, whose rules the process must have been started with.

#include <gtest/gtest.h>

#include "platform/os/clock.h"
#include "tests/platform/time_zone.h"

namespace tarvex {
namespace {

using testing::Show;
using testing::Utc;

TEST(SummerTime, IsTheSystems) {
    EXPECT_EQ(Show(ToLocalTime(Utc(2009, 1, 11, 5, 0, 0))), "2009,1,11,0,0,0,1");
    EXPECT_EQ(Show(ToLocalTime(Utc(2009, 7, 11, 4, 0, 0))), "2009,7,11,0,0,0,7");
    EXPECT_EQ(FromLocalTime(2009, 1, 15, 12, 0, 0), Utc(2009, 1, 15, 17, 0, 0));
    EXPECT_EQ(FromLocalTime(2009, 7, 15, 12, 0, 0), Utc(2009, 7, 15, 16, 0, 0));
}

// From 2:00 to 1:00 on 1 November 2009.
TEST(SummerTime, OfATimeThatComesTwiceTheFirstIsTaken) {
    EXPECT_EQ(FromLocalTime(2009, 11, 1, 0, 59, 59), Utc(2009, 11, 1, 4, 59, 59));
    EXPECT_EQ(FromLocalTime(2009, 11, 1, 1, 0, 0), Utc(2009, 11, 1, 5, 0, 0));
    EXPECT_EQ(FromLocalTime(2009, 11, 1, 1, 59, 59), Utc(2009, 11, 1, 5, 59, 59));
    EXPECT_EQ(FromLocalTime(2009, 11, 1, 2, 0, 0), Utc(2009, 11, 1, 7, 0, 0));
}

}  // namespace
}  // namespace tarvex
