// The local clock, in time zones that the tests set themselves.

#include "platform/os/clock.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <optional>
#include <string>

#include "testing/temp_dir.h"

namespace tarvex {

namespace {

// Written out, so that no installed time zone data is needed.
constexpr const char* utc = "UTC0";
constexpr const char* tokyo = "JST-9";
constexpr const char* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* lord_howe = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";  // half an hour of daylight saving time

class TimeZone {
public:
    explicit TimeZone(const char* name) {
        if (const char* old = std::getenv("TZ")) old_ = old;
        Set(name);
    }
    ~TimeZone() { Set(old_ ? old_->c_str() : nullptr); }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    static void Set(const char* name) {
        if (name == nullptr) {
            unsetenv("TZ");
        } else {
            setenv("TZ", name, 1);
        }
    }
    std::optional<std::string> old_;
};

// What a clock in Greenwich shows at the moment, as seconds.
std::int64_t Utc(int year, int month, int day, int hour, int minute, int second) {
    tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    return timegm(&parts);
}

std::string Show(const LocalTime& time) {
    std::string text = std::to_string(time.year);
    for (const int field : {time.month, time.day, time.hour, time.minute, time.second, time.weekday}) {
        text += ',' + std::to_string(field);
    }
    return text;
}

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
        {utc, -1, "1969,12,31,23,59,59,4"},
        {tokyo, 0, "1970,1,1,9,0,0,5"},
        {tokyo, Utc(2009, 3, 15, 1, 20, 5), "2009,3,15,10,20,5,1"},
        {berlin, Utc(2009, 1, 10, 23, 0, 0), "2009,1,11,0,0,0,1"},
        {berlin, Utc(2009, 7, 10, 22, 0, 0), "2009,7,11,0,0,0,7"},
        {utc, Utc(2038, 1, 19, 3, 14, 8), "2038,1,19,3,14,8,3"},  // past 32 bits
        {utc, Utc(2000, 2, 29, 12, 0, 0), "2000,2,29,12,0,0,3"},
        {utc, 253402300800, "10000,1,1,0,0,0,7"},
        {utc, 67768036191676799, "2147485547,12,31,23,59,59,4"},  // the last that the system can break down
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
        {utc, {1969, 12, 31, 23, 59, 59}, -1},  // the value that mktime also returns for a failure
        {tokyo, {2009, 3, 15, 10, 20, 5}, Utc(2009, 3, 15, 1, 20, 5)},
        {berlin, {2009, 1, 15, 12, 0, 0}, Utc(2009, 1, 15, 11, 0, 0)},
        {berlin, {2009, 7, 15, 12, 0, 0}, Utc(2009, 7, 15, 10, 0, 0)},
        {tokyo, {2040, 1, 1, 9, 0, 0}, Utc(2040, 1, 1, 0, 0, 0)},
        {tokyo, {1, 1, 1, 9, 0, 0}, Utc(1, 1, 1, 0, 0, 0)},
        {tokyo, {-5, 1, 1, 9, 0, 0}, Utc(-5, 1, 1, 0, 0, 0)},
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
    EXPECT_EQ(FromLocalTime(1970, 1, 1, INT_MAX, INT_MAX, INT_MAX),
              std::int64_t{INT_MAX} * 3600 + std::int64_t{INT_MAX} * 60 + INT_MAX);
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

// A German locale, compiled for this test, since the system may have none but English ones.
TEST(Clock, LongTimesAreEnglishInEveryLocale) {
    const testing::TempDir locales;
    const std::string compile = "localedef -c -i de_DE -f UTF-8 " + (locales / "de_DE.UTF-8") + " >/dev/null 2>&1";
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the test has one thread
    if (std::system(compile.c_str()) != 0) GTEST_SKIP() << "localedef or its sources are missing (package locales)";
    setenv("LOCPATH", locales.String().c_str(), 1);
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);

    const TimeZone time_zone(utc);
    EXPECT_EQ(FormatLongTime(Utc(2009, 3, 15, 10, 20, 5)), "Sunday, March 15, 2009 10:20:05");
    std::setlocale(LC_ALL, "C");
}

}  // namespace

}  // namespace tarvex
