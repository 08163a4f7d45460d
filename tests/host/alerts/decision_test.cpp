// Who is told what, and when, over simulated days.

#include "host/alerts/decision.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/alerts/alert_text.h"

namespace tarvex::host {
namespace {

constexpr CTime kStart = 1'800'000'000;
constexpr CTime kLook_s = 30;
constexpr CTime kHour = 3600;
constexpr CTime kDay = 24 * kHour;

std::string Name(int number) { return "user0/from" + std::to_string(number); }

// A reader over time: what is wrong, and the alerts that come of it.
class Day {
public:
    void Break(int number) { Add({Name(number), Problem::Failing, ""}); }
    void Add(const ProblemKey& key) { wrong_[key] = now_; }
    void Mend(int number) { wrong_.erase({Name(number), Problem::Failing, ""}); }
    void MendAll() { wrong_.clear(); }

    void Pass(CTime seconds) {
        for (const CTime end = now_ + seconds; now_ < end; now_ += kLook_s) Look();
    }
    void Look() {
        Situation situation;
        situation.whole = whole;
        situation.quiet_s = quiet_s;
        for (int i = 0; i < profiles; ++i) situation.known.insert(Name(i));
        for (const auto& [key, since] : wrong_) {
            situation.wrong.emplace_back().key = key;
            situation.wrong.back().since = since;
        }
        const std::optional<Alert> alert = AlertFor(situation, state, gathering, now_);
        if (!alert) return;
        ++tries;
        if (!way_is_open) return WasNotSent("no", state, now_);
        WasSent(*alert, state, now_);
        alerts.push_back(*alert);
    }

    ReaderState state;
    Gathering gathering;
    std::vector<Alert> alerts;
    int tries = 0;
    int profiles = 10;
    bool way_is_open = true;
    bool whole = true;
    CTime quiet_s = kQuiet_s;

private:
    CTime now_ = kStart;
    std::map<ProblemKey, CTime> wrong_;
};

TEST(Alerts, OneMatterIsOneAlertInADayAndOneWhenItIsOver) {
    Day day;
    day.Break(0);
    day.Pass(kDay - kHour);
    ASSERT_EQ(day.alerts.size(), 1U);
    EXPECT_EQ(day.alerts[0].news.size(), 1U);
    day.MendAll();
    day.Pass(kDay);
    ASSERT_EQ(day.alerts.size(), 2U);
    EXPECT_EQ(day.alerts[1].over.size(), 1U);
    EXPECT_TRUE(day.alerts[1].news.empty() && day.alerts[1].lasting.empty());
}

TEST(Alerts, TwoHundredAtOnceAreOneAlertAndSoAreTwoHundredWithinTenMinutes) {
    for (const CTime pause : {CTime{0}, kLook_s}) {
        Day day;
        day.profiles = 200;
        for (int i = 0; i < 200; ++i) {
            day.Break(i);
            if (i % 10 == 9) day.Pass(pause);
        }
        day.Pass(kHour / 2);
        ASSERT_EQ(day.alerts.size(), 1U);
        EXPECT_EQ(day.alerts[0].news.size(), 200U);
        day.Pass(kDay / 2);
        EXPECT_EQ(day.alerts.size(), 1U);
    }
}

TEST(Alerts, WhatGoesOnAndOnIsToldAfterAQuarterOfAnHour) {
    Day day;
    day.profiles = 200;
    for (int i = 0; i < 200; ++i, day.Pass(kLook_s)) day.Break(i);
    ASSERT_FALSE(day.alerts.empty());
    EXPECT_GE(day.alerts[0].news.size(), 29U);
    EXPECT_LE(day.alerts[0].news.size(), 31U);
}

TEST(Alerts, WhatLastsIsToldOnceADay) {
    Day day;
    day.Break(0);
    day.Pass(5 * kDay + kHour);
    ASSERT_EQ(day.alerts.size(), 6U);
    for (std::size_t i = 1; i < day.alerts.size(); ++i) {
        EXPECT_TRUE(day.alerts[i].news.empty());
        EXPECT_EQ(day.alerts[i].lasting.size(), 1U);
    }
}

TEST(Alerts, WhatIsOverBeforeItWasToldIsNotTold) {
    Day day;
    day.Break(0);
    day.Pass(kLook_s);
    day.MendAll();
    day.Pass(kDay);
    day.way_is_open = false;
    day.Break(1);
    day.Pass(kHour);
    EXPECT_GT(day.state.tries, 0);
    day.MendAll();
    day.way_is_open = true;
    day.Pass(kDay);
    EXPECT_TRUE(day.alerts.empty());
    EXPECT_EQ(day.state.tries, 0) << "nothing waits any more";
}

TEST(Alerts, WhatIsNewWithinTheHourIsCollected) {
    Day day;
    day.Break(0);
    day.Pass(5 * 60);
    for (int i = 1; i < 8; ++i, day.Pass(5 * 60)) day.Break(i);
    EXPECT_EQ(day.alerts.size(), 1U);
    day.Pass(kHour);
    ASSERT_EQ(day.alerts.size(), 2U);
    EXPECT_EQ(day.alerts[1].news.size(), 7U);
    EXPECT_EQ(day.alerts[1].lasting.size(), 1U);
}

TEST(Alerts, AThousandChangesStayBounded) {
    Day day;
    for (int i = 0; i < 500; ++i) {
        day.Break(0);
        day.Pass(3 * 60);
        day.MendAll();
        day.Pass(3 * 60);
    }
    EXPECT_LE(day.alerts.size(), 2U * (500 * 6 / 60) + 2);
    EXPECT_GE(day.alerts.size(), 2U);
}

TEST(Alerts, SayHowManyMattersTheyDoNotName) {
    Alert alert;
    for (int i = 0; i < 502; ++i) alert.over[{Name(i), Problem::Failing, ""}] = 0;
    EXPECT_THAT(TextOf(alert, "/tree").body, ::testing::HasSubstr("\n    and 2 more\n"));
    EXPECT_EQ(CommandFor({"", Problem::FolderUnreadable, "why"}), "tarvex status");
}

TEST(Alerts, ThatDoNotGoOutAreTriedAgainWithGrowingPauses) {
    Day day;
    day.way_is_open = false;
    day.Break(0);
    day.Pass(kDay);
    EXPECT_EQ(day.state.words, "no");
    EXPECT_EQ(day.state.tries, day.tries);
    EXPECT_GE(day.tries, 24);
    EXPECT_LE(day.tries, 24 + 8);
    day.way_is_open = true;
    day.Pass(kHour + kLook_s);
    EXPECT_EQ(day.alerts.size(), 1U);
    EXPECT_EQ(day.state.tries, 0);
}

TEST(Alerts, NothingCountsAsGoodAgainWhileNotAllCanBeLookedAt) {
    Day day;
    day.Break(0);
    day.Pass(kHour);
    day.whole = false;
    day.MendAll();
    day.Pass(kDay / 2);
    EXPECT_EQ(day.alerts.size(), 1U);
    day.whole = true;
    day.Pass(kHour);
    EXPECT_EQ(day.alerts.size(), 2U);
}

TEST(Alerts, AProfileThatWasRemovedIsForgotten) {
    Day day;
    day.Break(7);
    day.Pass(kHour);
    day.profiles = 7;
    day.MendAll();
    day.Pass(kDay);
    EXPECT_EQ(day.alerts.size(), 1U);
    EXPECT_TRUE(day.state.told.empty());
}

TEST(Alerts, OfACallThatComesOnceDoNotWait) {
    Day day;
    day.quiet_s = 0;
    day.Break(0);
    day.Look();
    EXPECT_EQ(day.alerts.size(), 1U);
}

TEST(Alerts, GoOnAfterTheClockWasSetBack) {
    Day day;
    day.state.last_alert = day.state.last_news = kStart + 100 * kDay;
    day.state.next_try = kStart + 100 * kDay;
    day.Break(0);
    day.Pass(kHour);
    EXPECT_EQ(day.alerts.size(), 1U);
}

TEST(DiskRoom, IsShortBelowAHundredMegabytesOrTwoPercent) {
    constexpr std::uint64_t kMB = 1'000'000;
    EXPECT_FALSE(IsShort({0, 0})) << "not known";
    EXPECT_TRUE(IsShort({99 * kMB, 200 * kMB}));
    EXPECT_FALSE(IsShort({101 * kMB, 200 * kMB}));
    EXPECT_TRUE(IsShort({700 * kMB, 40'000 * kMB}));
    EXPECT_FALSE(IsShort({900 * kMB, 40'000 * kMB}));
    EXPECT_FALSE(IsShort({1'100 * kMB, 4'000'000 * kMB})) << "there is room enough on a large one";
}

}  // namespace
}  // namespace tarvex::host
