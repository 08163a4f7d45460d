// When a profile is due: the interval that follows from its timer, and the judgement.

#include "engine/interval.h"

#include <gtest/gtest.h>

#include <limits>
#include <ostream>
#include <string>

#include "platform/os/clock.h"
#include "tarvex/tarvex.h"

namespace tarvex {
namespace {

constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();

struct IntervalCase {
    std::int32_t timer_minutes;
    std::int32_t interval_s;
};

std::ostream& operator<<(std::ostream& out, const IntervalCase& shown) {
    return out << shown.timer_minutes << " minutes";
}

std::string Name(const ::testing::TestParamInfo<IntervalCase>& test) {
    const std::string digits = std::to_string(test.param.timer_minutes);
    return digits.starts_with('-') ? "Minus" + digits.substr(1) : digits;
}

class IntervalTable : public ::testing::TestWithParam<IntervalCase> {};

TEST_P(IntervalTable, GivesTheInterval) {
    EXPECT_EQ(IntervalSeconds(GetParam().timer_minutes), GetParam().interval_s) << "timer " << GetParam().timer_minutes;
}

INSTANTIATE_TEST_SUITE_P(BelowADayItIsTheTimerItself, IntervalTable,
                         ::testing::Values(IntervalCase{1, 60}, IntervalCase{59, 3540}, IntervalCase{60, 3600},
                                           IntervalCase{61, 3660}, IntervalCase{90, 5400}, IntervalCase{119, 7140},
                                           IntervalCase{120, 7200}, IntervalCase{1380, 82800},
                                           IntervalCase{1439, 86340}),
                         Name);

INSTANTIATE_TEST_SUITE_P(FromADayOnTheHoursAreTakenModuloSixty, IntervalTable,
                         ::testing::Values(IntervalCase{1440, 172800}, IntervalCase{1441, 172860},
                                           IntervalCase{1500, 176400}, IntervalCase{2880, 345600},
                                           IntervalCase{3599, 388740}, IntervalCase{3600, 172800},
                                           IntervalCase{3601, 172860}, IntervalCase{7199, 561540},
                                           IntervalCase{7200, 432000}, IntervalCase{10080, 777600},
                                           IntervalCase{525600, 31536000}),
                         Name);

INSTANTIATE_TEST_SUITE_P(NegativeTimersGiveNegativeIntervals, IntervalTable,
                         ::testing::Values(IntervalCase{-1, -60}, IntervalCase{-60, -3600},
                                           IntervalCase{-1440, -86400}),
                         Name);

INSTANTIATE_TEST_SUITE_P(WhatDoesNotFitIn32BitsWrapsAround, IntervalTable,
                         ::testing::Values(IntervalCase{35789759, 2147428740}, IntervalCase{35789760, -2147452096},
                                           IntervalCase{-35791394, -2147483640}, IntervalCase{-35791395, 2147483596},
                                           IntervalCase{kMax - 1, 43080}, IntervalCase{kMax, 43140},
                                           IntervalCase{kMin, 0}),
                         Name);

TEST(Interval, IsTheTimerPlusWholeDaysBetweenOneDayAndSixtyHours) {
    for (std::int32_t timer = 1; timer < 1440; ++timer) ASSERT_EQ(IntervalSeconds(timer), timer * 60) << timer;
    for (std::int32_t timer = 1440; timer < 3600; ++timer) {
        const std::int32_t days = timer / 1440;
        ASSERT_EQ(IntervalSeconds(timer), timer * 60 + days * 86400) << timer;
    }
}

TEST(Due, AsSoonAsTheIntervalHasPassedAndNotASecondBefore) {
    constexpr CTime kLast = 1'237'080'000;
    for (const std::int32_t timer : {1, 59, 60, 61, 1439, 1440, 3599, 3600, 10080}) {
        const CTime due = kLast + IntervalSeconds(timer);
        EXPECT_FALSE(IsDue(timer, kLast, due - 1)) << timer;
        EXPECT_TRUE(IsDue(timer, kLast, due)) << timer;
        EXPECT_TRUE(IsDue(timer, kLast, due + 1)) << timer;
    }
}

TEST(Due, AlwaysWithoutATimerEvenWhenLasttimeLiesAhead) {
    EXPECT_TRUE(IsDue(0, 1000, 1000));
    EXPECT_TRUE(IsDue(0, 2000, 1000));
    EXPECT_TRUE(IsDue(0, std::numeric_limits<CTime>::max(), 0));
}

TEST(Due, NegativeTimerIsDueBeforeLasttime) {
    EXPECT_FALSE(IsDue(-1, 1000, 939));
    EXPECT_TRUE(IsDue(-1, 1000, 940));
    EXPECT_FALSE(IsDue(kMin, 1000, 999));
    EXPECT_TRUE(IsDue(kMin, 1000, 1000));
}

TEST(Due, LasttimeFarInThePastOrBeyond32Bits) {
    constexpr CTime kNow = 1'700'000'000;
    EXPECT_TRUE(IsDue(10080, 0, kNow));
    EXPECT_TRUE(IsDue(10080, -5'000'000'000, kNow));
    EXPECT_TRUE(IsDue(10080, std::numeric_limits<CTime>::min(), kNow));
    EXPECT_FALSE(IsDue(1, 253'402'300'799, kNow)) << "the end of the year 9999";
    EXPECT_FALSE(IsDue(1, 5'000'000'000, 5'000'000'059));
    EXPECT_TRUE(IsDue(1, 5'000'000'000, 5'000'000'060));
}

TEST(Judgement, ProfileThatIsSwitchedOffIsNeverDueAndKeepsItsLasttime) {
    for (const int timer : {0, 1, -1, kMin}) {
        CPopProfile profile;
        profile.setting.status = 0;
        profile.setting.timer = timer;
        profile.setting.lasttime = 17;
        EXPECT_EQ(profile.JudgeDoOperation(), 0) << timer;
        EXPECT_EQ(profile.setting.lasttime, 17) << timer;
    }
}

TEST(Judgement, SetsLasttimeToNowWhenDue) {
    for (const int status : {1, 2, -1}) {
        CPopProfile profile;
        profile.setting.status = status;
        profile.setting.timer = 60;
        const CTime before = CurrentTime();
        profile.setting.lasttime = before - 3600;
        EXPECT_EQ(profile.JudgeDoOperation(), 1) << status;
        EXPECT_GE(profile.setting.lasttime, before) << status;
        EXPECT_LE(profile.setting.lasttime, CurrentTime()) << status;
    }
}

TEST(Judgement, KeepsLasttimeWhenNotDue) {
    CPopProfile profile;
    profile.setting.timer = 60;
    const CTime last = CurrentTime() - 60;
    profile.setting.lasttime = last;
    EXPECT_EQ(profile.JudgeDoOperation(), 0);
    EXPECT_EQ(profile.setting.lasttime, last);
}

TEST(Judgement, OneDayOfTimerWaitsTwoDays) {
    CPopProfile profile;
    profile.setting.timer = 1440;
    profile.setting.lasttime = CurrentTime() - CTime{47} * 3600;
    EXPECT_EQ(profile.JudgeDoOperation(), 0);
    profile.setting.lasttime = CurrentTime() - CTime{48} * 3600;
    EXPECT_EQ(profile.JudgeDoOperation(), 1);
}

TEST(Judgement, WithoutATimerEveryCallIsDueAndMovesLasttime) {
    CPopProfile profile;
    profile.setting.timer = 0;
    for (const CTime last : {CTime{0}, CurrentTime(), CurrentTime() + 1'000'000}) {
        profile.setting.lasttime = last;
        const CTime before = CurrentTime();
        EXPECT_EQ(profile.JudgeDoOperation(), 1);
        EXPECT_GE(profile.setting.lasttime, before);
        EXPECT_LE(profile.setting.lasttime, CurrentTime());
    }
}

TEST(Judgement, LasttimeInTheFutureWaitsForItsInterval) {
    CPopProfile profile;
    profile.setting.timer = 1;
    const CTime last = CurrentTime() + 1'000'000;
    profile.setting.lasttime = last;
    EXPECT_EQ(profile.JudgeDoOperation(), 0);
    EXPECT_EQ(profile.setting.lasttime, last);
}

TEST(Judgement, NewProfileCountsAsHavingJustRun) {
    CPopProfile profile;
    EXPECT_EQ(profile.setting.timer, 10);
    EXPECT_EQ(profile.JudgeDoOperation(), 0);
}

}  // namespace
}  // namespace tarvex
