// How the runs that are under way fit a terminal.

#include "host/commands/arguments/progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/terminal/table.h"

namespace tarvex::testing {
namespace {

using host::Columns;
using host::LinesTaken;
using host::ProgressLines;
using host::RunNow;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::SizeIs;
using ::testing::StartsWith;

std::vector<RunNow> Runs(int count) {
    std::vector<RunNow> runs;
    for (int i = 0; i < count; ++i) runs.push_back({"user" + std::to_string(i) + "/from0", 12'000'000, 345, 9, 3, 2});
    return runs;
}

TEST(RunProgress, ManyRunsTakeALineLessThanTheTerminalHasAndTheLastLineCountsTheRest) {
    for (const std::size_t lines : {2, 3, 24, 50}) {
        const std::vector<std::string> text = ProgressLines(Runs(200), lines, 80);
        ASSERT_THAT(text, SizeIs(lines - 1));
        const std::size_t rest = 200 - (lines - 2);
        EXPECT_EQ(text.back(), "and " + std::to_string(rest) + " more: fetched " + std::to_string(3 * rest) + " of " +
                                   std::to_string(9 * rest) + ", delivered " + std::to_string(2 * rest));
        for (const std::string& line : text) EXPECT_LE(Columns(line), 80U) << line;
    }
    EXPECT_THAT(ProgressLines(Runs(23), 24, 80), SizeIs(23));  // each its own
    EXPECT_THAT(ProgressLines({}, 24, 80), ElementsAre());
}

TEST(RunProgress, ALongNameIsCutInTheMiddleAndWhatItDoesStaysWhole) {
    RunNow run = Runs(1).front();
    EXPECT_THAT(ProgressLines({run}, 24, 80),
                ElementsAre("user0/from0  fetched 3 of 9, delivered 2  (12 MB in, 345 bytes out)"));
    run.profile = std::string(100, 'a') + "/from0";
    const std::string line = ProgressLines({run}, 24, 80).front();
    EXPECT_THAT(line, EndsWith("aaa/from0  fetched 3 of 9, delivered 2"));
    EXPECT_EQ(Columns(line), 80U);
    EXPECT_EQ(Columns(ProgressLines({run}, 24, 20).front()), 20U);
    EXPECT_THAT(ProgressLines({run}, 24, 0).front(), StartsWith(run.profile));  // of unknown width
}

TEST(RunProgress, WhatATerminalBreaksThatWasMadeNarrowerIsWipedToo) {
    const std::vector<std::string> lines = {std::string(80, 'a'), std::string(40, 'b'), ""};
    EXPECT_EQ(LinesTaken(lines, 80), 3U);
    EXPECT_EQ(LinesTaken(lines, 40), 4U);
    EXPECT_EQ(LinesTaken(lines, 39), 6U);
    EXPECT_EQ(LinesTaken(lines, 0), 3U);
}

}  // namespace
}  // namespace tarvex::testing
