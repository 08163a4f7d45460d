// The clock as far as the C runtime knows it.

#include "platform/os/clock.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>

#include "tests/platform/time_zone.h"

namespace tarvex {
namespace {

using testing::Show;
using testing::TimeZone;
using testing::Utc;

TEST(Clock, KnowsTheYearsFrom1970To3000) {
    const TimeZone time_zone(testing::kUtc);
    EXPECT_EQ(FromLocalTime(1970, 1, 1, 0, 0, 0), 0);
    EXPECT_EQ(FromLocalTime(1969, 12, 31, 23, 59, 59), std::nullopt);
    EXPECT_EQ(FromLocalTime(3000, 12, 31, 23, 59, 59), Utc(3000, 12, 31, 23, 59, 59));
    EXPECT_EQ(FromLocalTime(3002, 1, 1, 0, 0, 0), std::nullopt);
    EXPECT_EQ(FromLocalTime(std::numeric_limits<int>::max(), 1, 1, 0, 0, 0), std::nullopt);
    EXPECT_EQ(ToLocalTime(Utc(3000, 12, 31, 0, 0, 0)).year, 3000);
    EXPECT_LT(ToLocalTime(Utc(3002, 1, 1, 0, 0, 0)).year, 3000);
}

}  // namespace
}  // namespace tarvex
