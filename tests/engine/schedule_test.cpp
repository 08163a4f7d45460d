// Schedules: the matching rule, the list of terms, schedule.def.

#include "engine/schedule.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "platform/os/clock.h"
#include "tarvex/schedule.h"
#include "testing/temp_dir.h"

namespace tarvex {
namespace {

using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

// ---- the matching rule

constexpr int kWeekdays = 7;
const std::array<const char*, kWeekdays + 1> kDayNames = {"", "Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

// A moment on a day of the week that began on Sunday, 15 March 2009.
CTime On(int weekday, int hour, int minute, int second = 0) {
    return FromLocalTime(2009, 3, 14 + weekday, hour, minute, second).value();
}

// Where the moment lies: before, at or behind the start, and before, at or behind the end.
struct MomentCase {
    const char* name;
    int hour, minute, second;
    bool matches;  // on the right day
};

constexpr std::array kNineToFive = {
    MomentCase{"midnight", 0, 0, 0, false},      MomentCase{"a second before", 8, 59, 59, false},
    MomentCase{"the start", 9, 0, 0, false},     MomentCase{"a second in", 9, 0, 1, true},
    MomentCase{"noon", 12, 0, 0, true},          MomentCase{"a second left", 17, 29, 59, true},
    MomentCase{"the end", 17, 30, 0, false},     MomentCase{"a second behind", 17, 30, 1, false},
    MomentCase{"end of day", 23, 59, 59, false},
};

TEST(Schedule, TermOfAWeekdayMatchesInsideItsSpanOnThatDayOnly) {
    for (int kind = TERM_EVERY_SUN; kind <= TERM_EVERY_SAT; ++kind) {
        for (int today = 1; today <= kWeekdays; ++today) {
            for (const MomentCase& c : kNineToFive) {
                EXPECT_EQ(TermMatches(kind, On(today, 9, 0), On(today, 17, 30), On(today, c.hour, c.minute, c.second)),
                          c.matches && today == kind)
                    << "kind " << kind << ", " << kDayNames[today] << ", " << c.name;
            }
        }
    }
}

TEST(Schedule, TermOfEveryDayMatchesInsideItsSpanOnEveryDay) {
    for (int today = 1; today <= kWeekdays; ++today) {
        for (const MomentCase& c : kNineToFive) {
            EXPECT_EQ(
                TermMatches(TERM_EVERY_DAY, On(today, 9, 0), On(today, 17, 30), On(today, c.hour, c.minute, c.second)),
                c.matches)
                << kDayNames[today] << ", " << c.name;
        }
    }
}

TEST(Schedule, DefinedTermMatchesInsideItsSpan) {
    for (const MomentCase& c : kNineToFive) {
        EXPECT_EQ(TermMatches(TERM_DEFINED_TERM, On(3, 9, 0), On(3, 17, 30), On(3, c.hour, c.minute, c.second)),
                  c.matches)
            << c.name;
    }
    EXPECT_TRUE(TermMatches(TERM_DEFINED_TERM, On(2, 22, 0), On(6, 6, 0), On(4, 12, 0))) << "over several days";
    EXPECT_FALSE(TermMatches(TERM_DEFINED_TERM, On(2, 22, 0), On(6, 6, 0), On(6, 12, 0)));
}

// From 22:00 to 6:00: the span that wraps.
enum class Part { None, Evening, Morning };

struct NightCase {
    const char* name;
    int hour, minute, second;
    Part part;
};

constexpr std::array kTenToSix = {
    NightCase{"midnight", 0, 0, 0, Part::Morning},
    NightCase{"a second left", 5, 59, 59, Part::Morning},
    NightCase{"the end", 6, 0, 0, Part::None},
    NightCase{"a second behind", 6, 0, 1, Part::None},
    NightCase{"noon", 12, 0, 0, Part::None},
    NightCase{"a second before", 21, 59, 59, Part::None},
    NightCase{"the start", 22, 0, 0, Part::None},
    NightCase{"a second in", 22, 0, 1, Part::Evening},
    NightCase{"end of day", 23, 59, 59, Part::Evening},
};

TEST(Schedule, TermOfEveryDayThatWrapsMatchesInTheEveningAndInTheMorning) {
    for (int today = 1; today <= kWeekdays; ++today) {
        for (const NightCase& c : kTenToSix) {
            EXPECT_EQ(
                TermMatches(TERM_EVERY_DAY, On(today, 22, 0), On(today, 6, 0), On(today, c.hour, c.minute, c.second)),
                c.part != Part::None)
                << kDayNames[today] << ", " << c.name;
        }
    }
}

// The morning that belongs to a weekday's term; none for Friday.
std::optional<int> MorningOf(int kind) {
    switch (kind) {
        case TERM_EVERY_SUN:
            return 2;
        case TERM_EVERY_MON:
            return 3;
        case TERM_EVERY_TUE:
            return 4;
        case TERM_EVERY_WED:
            return 5;
        case TERM_EVERY_THU:
            return 6;
        case TERM_EVERY_SAT:
            return 1;
        default:
            return std::nullopt;
    }
}

TEST(Schedule, TermOfAWeekdayThatWrapsMatchesThatEveningAndTheNextMorning) {
    for (int kind = TERM_EVERY_SUN; kind <= TERM_EVERY_SAT; ++kind) {
        for (int today = 1; today <= kWeekdays; ++today) {
            for (const NightCase& c : kTenToSix) {
                const bool evening = c.part == Part::Evening && today == kind;
                const bool morning = c.part == Part::Morning && today == MorningOf(kind);
                EXPECT_EQ(TermMatches(kind, On(today, 22, 0), On(today, 6, 0), On(today, c.hour, c.minute, c.second)),
                          evening || morning)
                    << "kind " << kind << ", " << kDayNames[today] << ", " << c.name;
            }
        }
    }
}

TEST(Schedule, FridayTermDoesNotWrapIntoSaturday) {
    EXPECT_TRUE(TermMatches(TERM_EVERY_FRI, On(6, 22, 0), On(6, 6, 0), On(6, 23, 0)));
    for (int today = 1; today <= kWeekdays; ++today) {
        EXPECT_FALSE(TermMatches(TERM_EVERY_FRI, On(today, 22, 0), On(today, 6, 0), On(today, 3, 0)));
    }
}

TEST(Schedule, SaturdayTermWrapsIntoSunday) {
    EXPECT_TRUE(TermMatches(TERM_EVERY_SAT, On(7, 22, 0), On(7, 6, 0), On(7, 23, 0)));
    EXPECT_TRUE(TermMatches(TERM_EVERY_SAT, On(1, 22, 0), On(1, 6, 0), On(1, 3, 0)));
    EXPECT_FALSE(TermMatches(TERM_EVERY_SAT, On(7, 22, 0), On(7, 6, 0), On(7, 3, 0)));
}

TEST(Schedule, SpanWhoseEndIsItsStartWraps) {
    const CTime start = On(4, 12, 0);
    struct {
        int kind;
        CTime moment;
        bool matches;
    } const cases[] = {
        {TERM_EVERY_DAY, On(4, 11, 59), true},
        {TERM_EVERY_DAY, start, false},
        {TERM_EVERY_DAY, On(4, 12, 1), true},
        {TERM_EVERY_WED, On(4, 12, 1), true},
        {TERM_EVERY_WED, start, false},
        {TERM_EVERY_WED, On(4, 11, 59), false},
        {TERM_EVERY_TUE, On(4, 11, 59), true},
        {TERM_EVERY_TUE, On(4, 12, 1), false},
        {TERM_DEFINED_TERM, On(4, 11, 59), false},
        {TERM_DEFINED_TERM, start, false},
        {TERM_DEFINED_TERM, On(4, 12, 1), false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(TermMatches(c.kind, start, start, c.moment), c.matches) << c.kind << " at " << c.moment - start;
    }
}

TEST(Schedule, DefinedTermThatEndsBeforeItStartsNeverMatches) {
    for (const NightCase& c : kTenToSix) {
        EXPECT_FALSE(TermMatches(TERM_DEFINED_TERM, On(4, 22, 0), On(4, 6, 0), On(4, c.hour, c.minute, c.second)))
            << c.name;
    }
}

TEST(Schedule, TermOfAnyOtherKindNeverMatches) {
    for (const int kind : {-1, 9, 13, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        for (int today = 1; today <= kWeekdays; ++today) {
            EXPECT_FALSE(TermMatches(kind, On(today, 9, 0), On(today, 17, 0), On(today, 12, 0))) << kind;
            EXPECT_FALSE(TermMatches(kind, On(today, 22, 0), On(today, 6, 0), On(today, 23, 0))) << kind;
            EXPECT_FALSE(TermMatches(kind, On(today, 22, 0), On(today, 6, 0), On(today, 3, 0))) << kind;
        }
    }
}

// ---- the list of terms

CTerm Term(int status, int kind, const CString& start, const CString& end) {
    CTerm term;
    term.status = status;
    term.kind = kind;
    term.start = start;
    term.end = end;
    return term;
}

CScheduleSetting ScheduleOf(const std::vector<CTerm>& terms) {
    CScheduleSetting schedule;
    for (const CTerm& term : terms) schedule.AddNewTerm(&term);
    return schedule;
}

TEST(Term, NewOneIsOffAndEmpty) {
    const CTerm term;
    EXPECT_EQ(term.status, 0);
    EXPECT_EQ(term.kind, 0);
    EXPECT_EQ(term.start, "");
    EXPECT_EQ(term.end, "");
}

TEST(Term, EqualityComparesEveryMember) {
    const CTerm term = Term(1, 2, "start", "end");
    EXPECT_EQ(term == Term(1, 2, "start", "end"), 1);
    EXPECT_EQ(term == Term(2, 2, "start", "end"), 0);
    EXPECT_EQ(term == Term(1, 3, "start", "end"), 0);
    EXPECT_EQ(term == Term(1, 2, "Start", "end"), 0);
    EXPECT_EQ(term == Term(1, 2, "start", "End"), 0);
}

TEST(Term, CopyTakesEveryMember) {
    const CTerm term = Term(1, 2, "start", "end");
    const CTerm copy(term);
    CTerm assigned;
    assigned = term;
    EXPECT_EQ(copy == term, 1);
    EXPECT_EQ(assigned == term, 1);
}

TEST(ScheduleSetting, NewOneIsEmpty) { EXPECT_TRUE(CScheduleSetting().terms.empty()); }

TEST(ScheduleSetting, AddNewTermAppendsACopyAndReturnsItsIndex) {
    CScheduleSetting schedule;
    CTerm term = Term(1, 2, "a", "b");
    EXPECT_EQ(schedule.AddNewTerm(&term), 0);
    term.start = "changed";
    EXPECT_EQ(schedule.AddNewTerm(&term), 1);
    ASSERT_EQ(schedule.terms.size(), 2u);
    EXPECT_NE(schedule.terms[0].get(), &term);
    EXPECT_EQ(*schedule.terms[0] == Term(1, 2, "a", "b"), 1);
    EXPECT_EQ(*schedule.terms[1] == Term(1, 2, "changed", "b"), 1);
}

TEST(ScheduleSetting, AddNewTermRefusesANullPointer) {
    CScheduleSetting schedule;
    EXPECT_EQ(schedule.AddNewTerm(nullptr), -1);
    EXPECT_TRUE(schedule.terms.empty());
}

TEST(ScheduleSetting, ATermOfTheScheduleItselfCanBeAdded) {
    CScheduleSetting schedule = ScheduleOf({Term(1, 2, "a", "b")});
    for (int i = 1; i < 20; ++i) EXPECT_EQ(schedule.AddNewTerm(schedule.terms[0].get()), i);
    EXPECT_EQ(*schedule.terms[19] == Term(1, 2, "a", "b"), 1);
}

TEST(ScheduleSetting, DeleteTermTakesTheVeryObjectAndClosesTheGap) {
    CScheduleSetting schedule = ScheduleOf({Term(1, 0, "a", ""), Term(1, 0, "b", ""), Term(1, 0, "b", "")});
    EXPECT_EQ(schedule.DeleteTerm(schedule.terms[1].get()), 1);
    EXPECT_EQ(schedule == ScheduleOf({Term(1, 0, "a", ""), Term(1, 0, "b", "")}), 1);
    EXPECT_EQ(schedule.DeleteTerm(schedule.terms[0].get()), 1);
    EXPECT_EQ(schedule == ScheduleOf({Term(1, 0, "b", "")}), 1);
}

TEST(ScheduleSetting, DeleteTermRefusesAnEqualTermOfSomebodyElse) {
    CScheduleSetting schedule = ScheduleOf({Term(1, 0, "a", "")});
    const CTerm equal = Term(1, 0, "a", "");
    EXPECT_EQ(schedule.DeleteTerm(&equal), 0);
    EXPECT_EQ(schedule.DeleteTerm(nullptr), 0);
    EXPECT_EQ(schedule.terms.size(), 1u);
}

TEST(ScheduleSetting, ResetDestroysEveryTerm) {
    CScheduleSetting schedule = ScheduleOf({Term(1, 0, "a", ""), Term(1, 0, "b", "")});
    schedule.Reset();
    EXPECT_TRUE(schedule.terms.empty());
    EXPECT_EQ(schedule.terms.capacity(), 0u);
}

TEST(ScheduleSetting, AssignmentReplacesTheTermsByCopies) {
    const CScheduleSetting source = ScheduleOf({Term(1, 3, "a", "b"), Term(2, 4, "c", "d")});
    CScheduleSetting target = ScheduleOf({Term(1, 0, "old", "")});
    target = source;
    EXPECT_EQ(target == source, 1);
    EXPECT_NE(target.terms[0].get(), source.terms[0].get());
    const CScheduleSetting copy(source);
    EXPECT_EQ(copy == source, 1);
    EXPECT_NE(copy.terms[0].get(), source.terms[0].get());
}

TEST(ScheduleSetting, AssignmentToItselfChangesNothing) {
    CScheduleSetting schedule = ScheduleOf({Term(1, 3, "a", "b")});
    schedule = static_cast<const CScheduleSetting&>(schedule);
    EXPECT_EQ(schedule == ScheduleOf({Term(1, 3, "a", "b")}), 1);
}

TEST(ScheduleSetting, EqualityComparesTermsInOrder) {
    const CTerm a = Term(1, 0, "a", ""), b = Term(1, 0, "b", "");
    EXPECT_EQ(CScheduleSetting() == CScheduleSetting(), 1);
    EXPECT_EQ(ScheduleOf({a, b}) == ScheduleOf({a, b}), 1);
    EXPECT_EQ(ScheduleOf({a, b}) == ScheduleOf({b, a}), 0);
    EXPECT_EQ(ScheduleOf({a, b}) == ScheduleOf({a}), 0);
    EXPECT_EQ(ScheduleOf({a}) == ScheduleOf({a, b}), 0);
}

// ---- schedule.def

class ScheduleFile : public ::testing::Test {
protected:
    std::filesystem::path File() const { return dir_.Path() / "schedule.def"; }

    CScheduleSetting Loaded(const std::string& content) const {
        WriteFile(File(), content);
        CScheduleSetting schedule;
        EXPECT_EQ(schedule.Load(dir_.String()), 1);
        return schedule;
    }

    std::string Saved(const CScheduleSetting& schedule) const {
        EXPECT_EQ(schedule.Save(dir_.String()), 1);
        return ReadFile(File());
    }

    TempDir dir_;
};

TEST_F(ScheduleFile, EmptyScheduleIsJustTheVersion) { EXPECT_EQ(Saved(CScheduleSetting()), "[version]\r\n0\r\n\r\n"); }

TEST_F(ScheduleFile, EachTermIsASection) {
    EXPECT_EQ(Saved(ScheduleOf({Term(1, TERM_EVERY_MON, "0,0,0,9,0,0", "0,0,0,17,30,0"),
                                Term(0, TERM_DEFINED_TERM, "2009,3,15,0,0,0", "2009,4,1,0,0,0")})),
              "[version]\r\n0\r\n\r\n"
              "[schedule]\r\nstatus=1\r\nmode=TERM_EVERY_MON\r\nterm=0,0,0,9,0,0:0,0,0,17,30,0\r\n\r\n"
              "[schedule]\r\nstatus=0\r\nmode=TERM_DEFINED_TERM\r\nterm=2009,3,15,0,0,0:2009,4,1,0,0,0\r\n\r\n");
}

TEST_F(ScheduleFile, OnlyAStatusOfExactlyOneIsSavedAsOn) {
    for (const int status : {0, 2, -1, 10}) {
        EXPECT_NE(Saved(ScheduleOf({Term(status, 0, "", "")})).find("status=0\r\n"), std::string::npos) << status;
    }
    EXPECT_NE(Saved(ScheduleOf({Term(1, 0, "", "")})).find("status=1\r\n"), std::string::npos);
}

const std::array<const char*, 9> kKindNames = {
    "TERM_EVERY_DAY", "TERM_EVERY_SUN", "TERM_EVERY_MON", "TERM_EVERY_TUE",    "TERM_EVERY_WED",
    "TERM_EVERY_THU", "TERM_EVERY_FRI", "TERM_EVERY_SAT", "TERM_DEFINED_TERM",
};

TEST_F(ScheduleFile, EveryKindIsWrittenAndReadByItsName) {
    for (int kind = 0; kind < static_cast<int>(kKindNames.size()); ++kind) {
        const std::string file = Saved(ScheduleOf({Term(1, kind, "a", "b")}));
        EXPECT_NE(file.find(std::string("mode=") + kKindNames[kind] + "\r\n"), std::string::npos);
        EXPECT_EQ(Loaded(file) == ScheduleOf({Term(1, kind, "a", "b")}), 1) << kKindNames[kind];
    }
}

TEST_F(ScheduleFile, UnknownKindIsWrittenAsAnEmptyName) {
    for (const int kind : {-1, 9, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        EXPECT_NE(Saved(ScheduleOf({Term(1, kind, "", "")})).find("mode=\r\n"), std::string::npos) << kind;
    }
}

TEST_F(ScheduleFile, LineBreakInATermIsWrittenAsABlank) {
    EXPECT_NE(
        Saved(ScheduleOf({Term(1, 0, "a\r\n[schedule]", "b\nstatus=1")})).find("term=a  [schedule]:b status=1\r\n"),
        std::string::npos);
}

TEST_F(ScheduleFile, WhatWasSavedIsLoadedInItsOrderAndSavedIdentically) {
    const CScheduleSetting schedule =
        ScheduleOf({Term(1, TERM_EVERY_SAT, "0,0,0,22,0,0", "0,0,0,6,0,0"), Term(0, TERM_EVERY_DAY, "", ""),
                    Term(1, TERM_EVERY_SUN, "a", "b:c")});
    const std::string file = Saved(schedule);
    EXPECT_EQ(Loaded(file) == schedule, 1);
    EXPECT_EQ(Saved(Loaded(file)), file);
}

TEST_F(ScheduleFile, LoadingAppendsToTheTermsAlreadyHeld) {
    WriteFile(File(), "[schedule]\nterm=b:\n[schedule]\nterm=c:\n");
    CScheduleSetting schedule = ScheduleOf({Term(0, 0, "a", "")});
    EXPECT_EQ(schedule.Load(dir_.String()), 1);
    EXPECT_EQ(schedule == ScheduleOf({Term(0, 0, "a", ""), Term(0, 0, "b", ""), Term(0, 0, "c", "")}), 1);
}

TEST_F(ScheduleFile, MissingFileLeavesTheSchedule) {
    CScheduleSetting schedule = ScheduleOf({Term(1, 0, "a", "")});
    EXPECT_EQ(schedule.Load(dir_.String()), 0);
    EXPECT_EQ(schedule == ScheduleOf({Term(1, 0, "a", "")}), 1);
}

struct LoadCase {
    const char* content;
    std::vector<CTerm> expected;
};

TEST_F(ScheduleFile, TolerantReading) {
    const std::vector<LoadCase> cases = {
        {"", {}},
        {"; comment\r\n\r\n// comment\r\n", {}},
        {"[version]\r\n0\r\n\r\n[schedule]\r\nstatus=1\r\nmode=TERM_EVERY_MON\r\nterm=a:b\r\n\r\n",
         {Term(1, TERM_EVERY_MON, "a", "b")}},
        // A term has no status and no kind until a line gives them.
        {"[schedule]\n", {Term(0, 0, "", "")}},
        {"[schedule]\n[schedule]\n", {Term(0, 0, "", ""), Term(0, 0, "", "")}},
        // Headers: anywhere in a line, in either case.
        {"  x [Schedule] y\nstatus=1\n", {Term(1, 0, "", "")}},
        {"[SCHEDULE]\n[VERSION]\nstatus=1\n", {Term(0, 0, "", "")}},
        {"[schedule][version]\nstatus=1\n", {}},
        // Lines outside of a schedule section say nothing.
        {"status=1\nmode=TERM_EVERY_MON\nterm=a:b\n[schedule]\n", {Term(0, 0, "", "")}},
        {"[schedule]\nstatus=1\n[version]\nstatus=0\n", {Term(1, 0, "", "")}},
        {"[schedule]\nstatus=1\n[other]\nstatus=0\nterm=a:b\n", {Term(1, 0, "", "")}},
        {"[schedule]\nstatus=1\nx]y[z\nstatus=0\n", {Term(1, 0, "", "")}},
        // Comments and blanks inside a section.
        {"[schedule]\n;status=1\n//status=1\n\n   \n  term=a:b  \n", {Term(0, 0, "a", "b")}},
        {"[schedule]\n;[schedule]\n//[schedule]\n ;[other]\nstatus=1\n", {Term(1, 0, "", "")}},
        // Blanks around key and value; other white space is kept.
        {"[schedule]\n  status   =   1  \n  term  =  a : b  \n", {Term(1, 0, "a ", " b")}},
        {"[schedule]\nstatus\t=1\nterm=\ta:b\t\n", {Term(0, 0, "\ta", "b\t")}},
        {"[schedule]\n\tstatus=1\n", {Term(0, 0, "", "")}},
        // Keys are case-sensitive, the kind is not.
        {"[schedule]\nMODE=TERM_EVERY_SUN\nStatus=1\nTERM=a:b\n", {Term(0, 0, "", "")}},
        {"[schedule]\nmode=term_every_sun\n", {Term(0, TERM_EVERY_SUN, "", "")}},
        {"[schedule]\nmode=Term_Defined_Term\n", {Term(0, TERM_DEFINED_TERM, "", "")}},
        // An unknown kind leaves the one before.
        {"[schedule]\nmode=TERM_EVERY_SAT\nmode=TERM_NEVER\nmode=\nmode=3\n", {Term(0, TERM_EVERY_SAT, "", "")}},
        {"[schedule]\nmode=TERM_EVERY_SAT\nmode=TERM_EVERY_SUN\n", {Term(0, TERM_EVERY_SUN, "", "")}},
        // The span.
        {"[schedule]\nterm=a:b:c\n", {Term(0, 0, "a", "b:c")}},
        {"[schedule]\nterm=a\n", {Term(0, 0, "", "a")}},
        {"[schedule]\nterm=x:y\nterm=a\n", {Term(0, 0, "", "a")}},
        {"[schedule]\nterm=:b\n", {Term(0, 0, "", "b")}},
        {"[schedule]\nterm=a:\n", {Term(0, 0, "a", "")}},
        {"[schedule]\nterm=x:y\nterm=\n", {Term(0, 0, "", "")}},
        {"[schedule]\nterm=a=b:c\n", {Term(0, 0, "a=b", "c")}},
        // The status.
        {"[schedule]\nstatus=2\n", {Term(2, 0, "", "")}},
        {"[schedule]\nstatus=1x\n", {Term(1, 0, "", "")}},
        {"[schedule]\nstatus=1\nstatus=x\n", {Term(0, 0, "", "")}},
        // What is no key and what has no "=".
        {"[schedule]\nstatus 1\n=1\nstatuses=1\nother=1\nstatus\n", {Term(0, 0, "", "")}},
        // A trail byte is no bracket.
        {"[schedule]\nterm=\x81\x5B\x81\x5D:b\n", {Term(0, 0, "\x81\x5B\x81\x5D", "b")}},
        // No line end at the end.
        {"[schedule]\r\nstatus=1", {Term(1, 0, "", "")}},
    };
    for (const LoadCase& c : cases) {
        EXPECT_EQ(Loaded(c.content) == ScheduleOf(c.expected), 1) << c.content;
    }
}

TEST_F(ScheduleFile, EmptyDirectoryTextIsRefusedBySave) { EXPECT_EQ(CScheduleSetting().Save(""), 0); }

TEST_F(ScheduleFile, FileThatCannotBeWrittenIsAFailure) {
    EXPECT_EQ(CScheduleSetting().Save(dir_ / "missing"), 0);
    std::filesystem::create_directory(File());
    EXPECT_EQ(CScheduleSetting().Save(dir_.String()), 0);
}

}  // namespace
}  // namespace tarvex
