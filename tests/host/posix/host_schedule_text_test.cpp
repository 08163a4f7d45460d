// Terms as people write them, held against the rule by which the engine judges them.

#include "host/settings/schedule_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "engine/schedule.h"
#include "host/system/command_error.h"
#include "store/time_text.h"

namespace tarvex::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::vector<std::string> Written(const std::string& text) {
    std::vector<std::string> written;
    for (const CTerm& term : host::ParseTerms(text)) written.push_back(host::WriteTerm(term));
    return written;
}

std::string Described(const std::string& text) {
    const std::vector<CTerm> terms = host::ParseTerms(text);
    EXPECT_EQ(terms.size(), 1U) << text;
    return host::DescribeTerm(terms.front());
}

CTerm Term(int kind, const std::string& start, const std::string& end) {
    CTerm term;
    term.status = 1;
    term.kind = kind;
    term.start = start;
    term.end = end;
    return term;
}

bool Holds(const std::vector<CTerm>& terms, CTime moment) {
    return std::ranges::any_of(terms, [&](const CTerm& term) {
        return TermMatches(term.kind, ParseTime(term.start, moment), ParseTime(term.end, moment), moment);
    });
}

TEST(ScheduleText, EveryDayThatIsNamedGetsATerm) {
    EXPECT_THAT(Written("mon-fri 9:00-17:30"),
                ElementsAre("mon 9:00-17:30", "tue 9:00-17:30", "wed 9:00-17:30", "thu 9:00-17:30", "fri 9:00-17:30"));
    EXPECT_THAT(Written("fri-mon 9:00-10:00"),
                ElementsAre("fri 9:00-10:00", "sat 9:00-10:00", "sun 9:00-10:00", "mon 9:00-10:00"));
    EXPECT_THAT(Written("Sat,Wednesday,sat 09:00 - 10:00"), ElementsAre("sat 9:00-10:00", "wed 9:00-10:00"));
    EXPECT_THAT(Written("weekends 9:00-10:00"), ElementsAre("sat 9:00-10:00", "sun 9:00-10:00"));
    EXPECT_EQ(Written("weekdays"), Written("mon-fri 0:00-24:00"));
    EXPECT_THAT(Written(" daily 22:00-6:00 "), ElementsAre("daily 22:00-6:00"));
    EXPECT_THAT(Written("sun"), ElementsAre("sun 0:00-24:00"));
}

TEST(ScheduleText, APeriodHasDates) {
    EXPECT_THAT(Written("2026-12-24 18:00 .. 2026-12-26 9:00"), ElementsAre("2026-12-24 18:00 .. 2026-12-26 9:00"));
    EXPECT_THAT(Written("2026-12-24 18:00..22:00"), ElementsAre("2026-12-24 18:00 .. 2026-12-24 22:00"));
    EXPECT_THAT(Written("2026-12-24 .. 2026-12-26"), ElementsAre("2026-12-24 0:00 .. 2026-12-26 24:00"));
}

TEST(ScheduleText, WhatIsWrittenIsReadBackAsTheSameTerm) {
    for (const char* const text :
         {"mon 9:00-17:30", "daily 22:00-6:00", "sun 0:00-24:00", "2028-02-29 0:00 .. 2028-03-01 24:00"}) {
        EXPECT_THAT(Written(text), ElementsAre(text));
    }
    const CTerm term = host::ParseTerms("tue 9:05-17:30").front();
    EXPECT_EQ(term.status, 1);
    EXPECT_EQ(term.kind, TERM_EVERY_TUE);
    EXPECT_EQ(term.start, "0,0,0,9,5,0");
    EXPECT_EQ(term.end, "0,0,0,17,30,0");
}

TEST(ScheduleText, WhatIsNoTermIsRefusedWithAnExample) {
    for (const char* const text : {"",
                                   "9:00-17:30",
                                   "monday 9:00",
                                   "mo 9:00-17:30",
                                   "mon 25:00-26:00",
                                   "mon 9:60-10:00",
                                   "mon 24:00-24:00",
                                   "mon 9-17",
                                   "mon 9:00-24:01",
                                   "mon,,tue 9:00-10:00",
                                   "mon- 9:00-10:00",
                                   "mon 9:00-10:00-11:00",
                                   "daily,mon 9:00-10:00",
                                   "2026-12-24 18:00",
                                   "2026-02-29 18:00 .. 2026-03-01 9:00",
                                   "2026-12-24 18:00 .. 2026-12-24 18:00",
                                   "2026-12-26 18:00 .. 2026-12-24 9:00",
                                   "18:00 .. 2026-12-24 9:00",
                                   "2026-12-24 18:00 ..",
                                   "mon 9:00 .. 17:00",
                                   "mon -9:00-10:00",
                                   "0000-01-01 .. 0000-01-02",
                                   "😀"}) {
        try {
            host::ParseTerms(text);
            ADD_FAILURE() << text;
        } catch (const host::CommandError& trouble) {
            EXPECT_EQ(trouble.ExitCode(), host::kBadUsage);
            EXPECT_THAT(trouble.what(), HasSubstr("mon-fri 9:00-17:30"));
        }
    }
}

TEST(ScheduleText, SaysWhatATermDoes) {
    EXPECT_EQ(Described("mon 9:00-17:30"), "every Monday from 9:00 to 17:30");
    EXPECT_EQ(Described("daily 9:00-17:30"), "every day from 9:00 to 17:30");
    EXPECT_EQ(Described("daily 22:00-6:00"), "every day from 22:00 over midnight to 6:00");
    EXPECT_EQ(Described("daily 22:00-0:00"), "every day from 22:00 to midnight");
    EXPECT_EQ(Described("daily"), "always");
    EXPECT_EQ(Described("daily 9:00-9:00"), "always");
    EXPECT_EQ(Described("wed"), "every Wednesday, all day");
    EXPECT_EQ(Described("fri 22:00-0:00"), "every Friday from 22:00 to midnight");
    EXPECT_EQ(Described("2026-12-24 18:00 .. 2026-12-26 9:00"), "once, from 2026-12-24 18:00 to 2026-12-26 9:00");
}

TEST(ScheduleText, SaysWhereATermOverMidnightGoesOnAndWhereNot) {
    EXPECT_EQ(Described("mon 22:00-6:00"),
              "every Monday from 22:00 to midnight, and every Tuesday from midnight to 6:00");
    EXPECT_EQ(Described("sat 22:00-6:00"),
              "every Saturday from 22:00 to midnight, and every Sunday from midnight to 6:00");
    EXPECT_THAT(Described("fri 22:00-6:00"), HasSubstr("every Friday from 22:00 to midnight, and not on Saturday"));
    EXPECT_THAT(Described("fri 22:00-6:00"), HasSubstr("\"sat 0:00-6:00\""));
}

TEST(ScheduleText, SaysWhatTermsOfOtherHandsDo) {
    CTerm off = host::ParseTerms("mon 9:00-17:30").front();
    off.status = 0;
    EXPECT_EQ(host::DescribeTerm(off), "(switched off) every Monday from 9:00 to 17:30");
    EXPECT_EQ(host::DescribeTerm(Term(9, "0,0,0,9,0,0", "0,0,0,10,0,0")), "never: its kind is unknown");
    EXPECT_EQ(host::DescribeTerm(Term(TERM_DEFINED_TERM, "2026,12,26,9,0,0", "2026,12,24,9,0,0")),
              "never: it ends before it begins");
    for (const CTerm& term :
         {Term(TERM_EVERY_MON, "", "0,0,0,10,0,0"), Term(TERM_EVERY_MON, "2026,1,1,9,0,0", "0,0,0,10,0,0"),
          Term(TERM_DEFINED_TERM, "0,0,0,9,0,0", "0,0,0,10,0,0"), Term(TERM_EVERY_DAY, "0,0,0,25,0,0", "x"),
          Term(TERM_EVERY_DAY, "0,0,0,9,0,0,0", "0,0,0,10,0,0")}) {
        EXPECT_THAT(host::DescribeTerm(term), HasSubstr("unusual form")) << term.start;
        EXPECT_EQ(host::WriteTerm(term), "?");
    }
}

// The words, checked against the engine for every quarter of an hour of a week.
struct Week {
    const char* term;
    std::function<bool(int day, double hour)> holds;  // 0 = Sunday
};

TEST(ScheduleText, DoesWhatItsWordsSay) {
    const CTime sunday = ParseTime("2026,11,22,0,0,0", 0);
    for (const auto& [text, holds] : {
             Week{"mon-fri 9:00-17:30",
                  [](int day, double hour) { return day >= 1 && day <= 5 && hour > 9 && hour < 17.5; }},
             Week{"daily 22:00-6:00", [](int, double hour) { return hour > 22 || hour < 6; }},
             Week{"daily", [](int, double) { return true; }},
             Week{"daily 9:00-9:00", [](int, double) { return true; }},
             Week{"wed", [](int day, double) { return day == 3; }},
             Week{"mon 22:00-6:00",
                  [](int day, double hour) { return (day == 1 && hour > 22) || (day == 2 && hour < 6); }},
             Week{"sat 22:00-6:00",
                  [](int day, double hour) { return (day == 6 && hour > 22) || (day == 0 && hour < 6); }},
             Week{"fri 22:00-6:00", [](int day, double hour) { return day == 5 && hour > 22; }},
             Week{"fri 22:00-0:00", [](int day, double hour) { return day == 5 && hour > 22; }},
             Week{"sun 22:00-0:00", [](int day, double hour) { return day == 0 && hour > 22; }},
             Week{"2026-11-23 18:00 .. 2026-11-25 9:00",
                  [](int day, double hour) { return day * 24 + hour > 24 + 18 && day * 24 + hour < 3 * 24 + 9; }},
             Week{"2026-11-24 .. 2026-11-25", [](int day, double) { return day == 2 || day == 3; }},
         }) {
        const std::vector<CTerm> terms = host::ParseTerms(text);
        for (int quarter = 0; quarter < 7 * 24 * 4; ++quarter) {
            const double hour = quarter % 96 / 4.0 + 1.0 / 60;  // a minute after it: on the edge nothing holds
            const CTime moment = sunday + quarter * 15 * 60 + 60;
            ASSERT_EQ(Holds(terms, moment), holds(quarter / 96, hour))
                << text << " on day " << quarter / 96 << " at " << hour;
        }
    }
}

}  // namespace
}  // namespace tarvex::testing
