// The local clock, in time zones that the tests set themselves.

#include "platform/os/clock.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <limits>
#include <string>

#include "tests/platform/time_zone.h"

namespace tarvex {

namespace {

using testing::Show;
using testing::TimeZone;
using testing::Utc;
constexpr const char* utc = testing::kUtc;
constexpr const char* tokyo = testing::kTokyo;

TEST(Clock, CurrentTimeIsTheSystemsInWholeSeconds) {
    const std::int64_t before = std::time(nullptr);
    const std::int64_t now = CurrentTime();
    EXPECT_LE(before, now);
    EXPECT_LE(now, std::time(nullptr));
}

TEST(Clock, MomentsAreBrokenDownInLocalTime) {
    const struct {
        const char* zone;
        std::int64_t moment;
        std::string local;
    } cases[] = {
        {utc, 0, "1970,1,1,0,0,0,5"},
        {tokyo, 0, "1970,1,1,9,0,0,5"},
        {tokyo, Utc(2009, 3, 15, 1, 20, 5), "2009,3,15,10,20,5,1"},
        {utc, Utc(2038, 1, 19, 3, 14, 8), "2038,1,19,3,14,8,3"},  // past 32 bits
        {utc, Utc(2000, 2, 29, 12, 0, 0), "2000,2,29,12,0,0,3"},
    };
    for (const auto& [zone, moment, local] : cases) {
        const TimeZone time_zone(zone);
        EXPECT_EQ(Show(ToLocalTime(moment)), local) << zone << ' ' << moment;
    }
}

TEST(Clock, WeekdaysRunFromSundayOneToSaturdaySeven) {
    const TimeZone time_zone(utc);
    for (int day = 15; day <= 21; ++day) {  // 15 March 2009 was a Sunday
        EXPECT_EQ(ToLocalTime(Utc(2009, 3, day, 12, 0, 0)).weekday, day - 14);
    }
}

TEST(Clock, AMomentThatCannotBeBrokenDownIsNow) {
    const TimeZone time_zone(tokyo);
    for (const std::int64_t moment : {std::numeric_limits<std::int64_t>::max(),
                                      std::numeric_limits<std::int64_t>::min(), std::int64_t{67768036191676800}}) {
        const std::string before = Show(ToLocalTime(CurrentTime()));
        const std::string got = Show(ToLocalTime(moment));
        const std::string after = Show(ToLocalTime(CurrentTime()));
        EXPECT_TRUE(got == before || got == after) << got;
    }
}

TEST(Clock, LocalTimesBecomeMoments) {
    const struct {
        const char* zone;
        std::array<int, 6> local;
        std::int64_t moment;
    } cases[] = {
        {utc, {1970, 1, 1, 0, 0, 0}, 0},
        {tokyo, {2009, 3, 15, 10, 20, 5}, Utc(2009, 3, 15, 1, 20, 5)},
        {tokyo, {2040, 1, 1, 9, 0, 0}, Utc(2040, 1, 1, 0, 0, 0)},
    };
    for (const auto& [zone, local, moment] : cases) {
        const TimeZone time_zone(zone);
        const auto [year, month, day, hour, minute, second] = local;
        EXPECT_EQ(FromLocalTime(year, month, day, hour, minute, second), moment) << zone << ' ' << moment;
    }
}

TEST(Clock, FieldsOutOfRangeAreNormalised) {
    const TimeZone time_zone(utc);
    EXPECT_EQ(FromLocalTime(2009, 13, 1, 0, 0, 0), Utc(2010, 1, 1, 0, 0, 0));
    EXPECT_EQ(FromLocalTime(2009, 0, 1, 0, 0, 0), Utc(2008, 12, 1, 0, 0, 0));
    EXPECT_EQ(FromLocalTime(2009, 3, 0, 0, 0, 0), Utc(2009, 2, 28, 0, 0, 0));
    EXPECT_EQ(FromLocalTime(2009, 2, 30, 0, 0, 0), Utc(2009, 3, 2, 0, 0, 0));
    EXPECT_EQ(FromLocalTime(2009, 3, 15, 24, 0, 0), Utc(2009, 3, 16, 0, 0, 0));
    EXPECT_EQ(FromLocalTime(2009, 3, 15, 0, -1, 3600), Utc(2009, 3, 15, 0, 59, 0));
    EXPECT_EQ(FromLocalTime(2009, -12, 1, 0, 0, 0), Utc(2007, 12, 1, 0, 0, 0));
}

TEST(Clock, LongTimesAreWrittenOutInEnglish) {
    const struct {
        const char* zone;
        std::int64_t moment;
        std::string text;
    } cases[] = {
        {tokyo, Utc(2009, 3, 15, 1, 20, 5), "Sunday, March 15, 2009 10:20:05"},
        {utc, Utc(2009, 1, 5, 0, 0, 0), "Monday, January 05, 2009 00:00:00"},
        {utc, Utc(2009, 2, 3, 1, 2, 3), "Tuesday, February 03, 2009 01:02:03"},
        {utc, Utc(2009, 4, 1, 23, 59, 59), "Wednesday, April 01, 2009 23:59:59"},
        {utc, Utc(2009, 5, 7, 12, 0, 0), "Thursday, May 07, 2009 12:00:00"},
        {utc, Utc(2009, 6, 12, 12, 0, 0), "Friday, June 12, 2009 12:00:00"},
        {utc, Utc(2009, 7, 18, 12, 0, 0), "Saturday, July 18, 2009 12:00:00"},
        {utc, Utc(2009, 8, 2, 12, 0, 0), "Sunday, August 02, 2009 12:00:00"},
        {utc, Utc(2009, 9, 7, 12, 0, 0), "Monday, September 07, 2009 12:00:00"},
        {utc, Utc(2009, 10, 6, 12, 0, 0), "Tuesday, October 06, 2009 12:00:00"},
        {utc, Utc(2009, 11, 4, 12, 0, 0), "Wednesday, November 04, 2009 12:00:00"},
        {utc, Utc(2009, 12, 31, 12, 0, 0), "Thursday, December 31, 2009 12:00:00"},
    };
    for (const auto& [zone, moment, text] : cases) {
        const TimeZone time_zone(zone);
        EXPECT_EQ(FormatLongTime(moment), text);
    }
}

}  // namespace

}  // namespace tarvex
