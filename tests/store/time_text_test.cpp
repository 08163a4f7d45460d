// Moments as text.

#include "store/time_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/os/clock.h"
#include "tarvex/settings.h"

namespace tarvex {
namespace {

CTime At(int year, int month, int day, int hour, int minute, int second) {
    return FromLocalTime(year, month, day, hour, minute, second).value();
}

struct TimeCase {
    const char* text;
    CTime expected;
};

TEST(TimeText, Parsing) {
    const CTime now = At(2011, 2, 28, 12, 34, 56);
    const std::vector<TimeCase> cases = {
        {"2009,3,15,10,20,45", At(2009, 3, 15, 10, 20, 0)},  // the seconds are dropped
        {"2009,3,15,10,20,0", At(2009, 3, 15, 10, 20, 0)},
        {"2009,3,15,10,20,x", At(2009, 3, 15, 10, 20, 0)},
        {"2009,3,15,10,20, ", At(2009, 3, 15, 10, 20, 0)},
        {"2009,3,15,10,20,1,2,3", At(2009, 3, 15, 10, 20, 0)},
        {" 2009, 3 ,15th,+10,\t20,45", At(2009, 3, 15, 10, 20, 0)},
        {"2009,3,15,0,0,0", At(2009, 3, 15, 0, 0, 0)},
        // A zero year, month or day is the current one; hour and minute are taken as they are.
        {"0,0,0,8,30,0", At(2011, 2, 28, 8, 30, 0)},
        {"0,3,15,8,30,0", At(2011, 3, 15, 8, 30, 0)},
        {"2009,0,15,8,30,0", At(2009, 2, 15, 8, 30, 0)},
        {"2009,3,0,8,30,0", At(2009, 3, 28, 8, 30, 0)},
        {"0,0,0,0,0,0", At(2011, 2, 28, 0, 0, 0)},
        {",,,,,0", At(2011, 2, 28, 0, 0, 0)},
        {"a,b,c,d,e,f", At(2011, 2, 28, 0, 0, 0)},
        // Out of range: normalised.
        {"2009,13,1,0,0,0", At(2010, 1, 1, 0, 0, 0)},
        {"2009,2,30,0,0,0", At(2009, 3, 2, 0, 0, 0)},
        {"2009,3,15,24,0,0", At(2009, 3, 16, 0, 0, 0)},
        {"2009,3,15,10,-1,0", At(2009, 3, 15, 9, 59, 0)},
        {"2009,3,-1,10,0,0", At(2009, 2, 27, 10, 0, 0)},
        // Incomplete, or without seconds: the current time.
        {"", now},
        {"2009", now},
        {"2009,3,15,10,20", now},
        {"2009,3,15,10,20,", now},
        {",,,,,", now},
        {"2009/3/15 10:20:45", now},
        // No clock shows this.
        {"-2147483648,1,1,0,0,0", now},
    };
    for (const TimeCase& c : cases) EXPECT_EQ(ParseTime(c.text, now), c.expected) << c.text;
}

TEST(TimeText, NumbersBeyond32BitsSaturateAndAreDefined) {
    const CTime now = At(2011, 2, 28, 12, 34, 56);
    EXPECT_EQ(ParseTime("99999999999,99999999999,99999999999,99999999999,99999999999,0", now),
              ParseTime("2147483647,2147483647,2147483647,2147483647,2147483647,0", now));
    EXPECT_EQ(ParseTime("2009,-99999999999,1,0,0,0", now), now);
}

TEST(TimeText, FormatIsSixNumbersWithoutPadding) {
    EXPECT_EQ(FormatTime(At(2009, 3, 15, 10, 20, 45)), "2009,3,15,10,20,45");
    EXPECT_EQ(FormatTime(At(2009, 12, 1, 0, 0, 0)), "2009,12,1,0,0,0");
    EXPECT_EQ(FormatTime(At(2009, 1, 31, 23, 9, 5)), "2009,1,31,23,9,5");
}

TEST(TimeText, AMomentOfAFullMinuteSurvives) {
    const CTime moment = At(2040, 7, 6, 5, 4, 0);  // beyond 32 bits of seconds
    EXPECT_EQ(ParseTime(FormatTime(moment), 0), moment);
}

TEST(TimeText, GetCTimeReadsTheClockForWhatIsMissing) {
    EXPECT_EQ(GetCTime("2009,3,15,10,20,45"), At(2009, 3, 15, 10, 20, 0));
    const CTime before = CurrentTime();
    const CTime now = GetCTime("2009,3,15,10,20,");
    EXPECT_LE(before, now);
    EXPECT_LE(now, CurrentTime());
}

TEST(TimeText, GetCTimeTakesTheCurrentDayForZeroes) {
    const LocalTime before = ToLocalTime(CurrentTime());
    const CTime moment = GetCTime("0,0,0,8,30,0");
    const LocalTime after = ToLocalTime(CurrentTime());
    const auto today = [](const LocalTime& time) {
        return At(static_cast<int>(time.year), time.month, time.day, 8, 30, 0);
    };
    EXPECT_TRUE(moment == today(before) || moment == today(after));  // midnight may pass in between
}

}  // namespace
}  // namespace tarvex
