// What the clock does where the system knows more than the years from 1970 to 3000, the rules of every time zone, and
// locales.

#include "platform/os/clock.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "testing/temp_dir.h"
#include "tests/platform/time_zone.h"

namespace tarvex {

namespace {

using testing::Show;
using testing::TimeZone;
using testing::Utc;
constexpr const char* utc = testing::kUtc;
constexpr const char* tokyo = testing::kTokyo;
constexpr const char* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* lord_howe = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";  // half an hour of daylight saving time

TEST(Clock, MomentsFarAwayAndInSummerAreBrokenDownInLocalTime) {
    const struct {
        const char* zone;
        std::int64_t moment;
        std::string local;
    } cases[] = {
        {utc, -1, "1969,12,31,23,59,59,4"},
        {berlin, Utc(2009, 1, 10, 23, 0, 0), "2009,1,11,0,0,0,1"},
        {berlin, Utc(2009, 7, 10, 22, 0, 0), "2009,7,11,0,0,0,7"},
        {utc, 253402300800, "10000,1,1,0,0,0,7"},
        {utc, 67768036191676799, "2147485547,12,31,23,59,59,4"},  // the last that the system can break down
    };
    for (const auto& [zone, moment, local] : cases) {
        const TimeZone time_zone(zone);
        EXPECT_EQ(Show(ToLocalTime(moment)), local) << zone << ' ' << moment;
    }
}

TEST(Clock, LocalTimesFarAwayAndInSummerBecomeMoments) {
    const struct {
        const char* zone;
        std::array<int, 6> local;
        std::int64_t moment;
    } cases[] = {
        {utc, {1969, 12, 31, 23, 59, 59}, -1},  // the value that mktime also returns for a failure
        {berlin, {2009, 1, 15, 12, 0, 0}, Utc(2009, 1, 15, 11, 0, 0)},
        {berlin, {2009, 7, 15, 12, 0, 0}, Utc(2009, 7, 15, 10, 0, 0)},
        {tokyo, {1, 1, 1, 9, 0, 0}, Utc(1, 1, 1, 0, 0, 0)},
        {tokyo, {-5, 1, 1, 9, 0, 0}, Utc(-5, 1, 1, 0, 0, 0)},
        {utc,
         {1970, 1, 1, INT_MAX, INT_MAX, INT_MAX},
         std::int64_t{INT_MAX} * 3600 + std::int64_t{INT_MAX} * 60 + INT_MAX},
    };
    for (const auto& [zone, local, moment] : cases) {
        const TimeZone time_zone(zone);
        const auto [year, month, day, hour, minute, second] = local;
        EXPECT_EQ(FromLocalTime(year, month, day, hour, minute, second), moment) << zone << ' ' << moment;
    }
}

TEST(Clock, ExtremeDatesEitherRoundTripOrAreNothing) {
    const TimeZone time_zone(utc);
    EXPECT_EQ(FromLocalTime(INT_MIN, 1, 1, 0, 0, 0), std::nullopt);
    EXPECT_EQ(FromLocalTime(2009, INT_MIN, 1, 0, 0, 0), std::nullopt);
    EXPECT_EQ(FromLocalTime(INT_MAX, INT_MAX, 1, 0, 0, 0), std::nullopt);
    const auto last = FromLocalTime(INT_MAX, 12, 31, 23, 59, 59);
    ASSERT_TRUE(last);
    EXPECT_EQ(Show(ToLocalTime(*last)), "2147483647,12,31,23,59,59,3");

    for (const char* zone : {utc, tokyo, berlin}) {
        const TimeZone other_zone(zone);
        const std::array values = {INT_MIN, INT_MIN + 1900, -1, 0, 1, 1900, INT_MAX};
        for (const int year : values) {
            for (const int month : values) {
                for (const int rest : values) {  // for the sanitizers
                    if (const auto moment = FromLocalTime(year, month, rest, rest, rest, rest)) {
                        ToLocalTime(*moment);
                    }
                }
            }
        }
    }
}

TEST(Clock, ATimeThatIsSkippedIsShiftedByWhatIsSkipped) {
    const TimeZone time_zone(berlin);  // from 2:00 to 3:00 on 29 March 2009
    EXPECT_EQ(FromLocalTime(2009, 3, 29, 1, 59, 59), Utc(2009, 3, 29, 0, 59, 59));
    EXPECT_EQ(FromLocalTime(2009, 3, 29, 2, 30, 0), Utc(2009, 3, 29, 1, 30, 0));
    EXPECT_EQ(FromLocalTime(2009, 3, 29, 3, 0, 0), Utc(2009, 3, 29, 1, 0, 0));
}

TEST(Clock, OfATimeThatComesTwiceTheFirstIsTakenWhateverWasAskedBefore) {
    const std::array<std::int64_t, 2> asked_before = {Utc(2009, 1, 15, 0, 0, 0), Utc(2009, 7, 15, 0, 0, 0)};
    for (const std::int64_t before : asked_before) {
        {
            const TimeZone time_zone(berlin);  // from 3:00 to 2:00 on 25 October 2009
            const LocalTime time = ToLocalTime(before);
            FromLocalTime(2009, time.month, time.day, time.hour, 0, 0);
            EXPECT_EQ(FromLocalTime(2009, 10, 25, 1, 59, 59), Utc(2009, 10, 24, 23, 59, 59));
            EXPECT_EQ(FromLocalTime(2009, 10, 25, 2, 0, 0), Utc(2009, 10, 25, 0, 0, 0));
            FromLocalTime(2009, time.month, time.day, time.hour, 0, 0);
            EXPECT_EQ(FromLocalTime(2009, 10, 25, 2, 59, 59), Utc(2009, 10, 25, 0, 59, 59));
            EXPECT_EQ(FromLocalTime(2009, 10, 25, 3, 0, 0), Utc(2009, 10, 25, 2, 0, 0));
        }
        {
            const TimeZone time_zone(lord_howe);  // from 2:00 to 1:30 on 5 April 2009
            const LocalTime time = ToLocalTime(before);
            FromLocalTime(2009, time.month, time.day, time.hour, 0, 0);
            EXPECT_EQ(FromLocalTime(2009, 4, 5, 1, 45, 0), Utc(2009, 4, 4, 14, 45, 0));
            EXPECT_EQ(FromLocalTime(2009, 4, 5, 1, 15, 0), Utc(2009, 4, 4, 14, 15, 0));
            EXPECT_EQ(FromLocalTime(2009, 4, 5, 2, 0, 0), Utc(2009, 4, 4, 15, 30, 0));
        }
    }
}

TEST(Clock, EveryHourOfAYearRoundTrips) {
    const TimeZone time_zone(berlin);
    int twice = 0;
    for (std::int64_t moment = Utc(2009, 1, 1, 0, 0, 0); moment < Utc(2010, 1, 1, 0, 0, 0); moment += 3600) {
        const LocalTime time = ToLocalTime(moment);
        const auto back =
            FromLocalTime(static_cast<int>(time.year), time.month, time.day, time.hour, time.minute, time.second);
        if (back == moment - 3600) {
            ++twice;
        } else {
            ASSERT_EQ(back, moment);
        }
    }
    EXPECT_EQ(twice, 1);
}

// A German locale, compiled for this test, since the system may have none but English ones.
TEST(Clock, LongTimesAreEnglishInEveryLocale) {
    const testing::TempDir locales;
    const std::string compile = "localedef -c -i de_DE -f UTF-8 " + (locales / "de_DE.UTF-8") + " >/dev/null 2>&1";
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the test has one thread
    if (std::system(compile.c_str()) != 0) GTEST_SKIP() << "localedef or its sources are missing (package locales)";
    const testing::Variable path("LOCPATH", locales.String());
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);

    const TimeZone time_zone(utc);
    EXPECT_EQ(FormatLongTime(Utc(2009, 3, 15, 10, 20, 5)), "Sunday, March 15, 2009 10:20:05");
    std::setlocale(LC_ALL, "C");
}

}  // namespace

}  // namespace tarvex
