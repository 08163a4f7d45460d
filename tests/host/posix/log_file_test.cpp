// What a log tells of the runs, and what is new in a log that was replaced.

#include "host/tree/log_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tarvex/settings.h"

namespace tarvex::host {
namespace {

using ::testing::IsEmpty;

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

const std::string kStart = "\n---- Operation starting at Sunday, March 15, 2009 10:20:00\n";
const std::string kEnd = "---- End Operation at Sunday, March 15, 2009 10:20:07\n";
const std::string kConnected = "* enabled : a\nSuccess to create pop socket\nconnecting.. pop\n+OK\n";
const std::string kPopEnd = "QUIT\n+OK\n* POP Process - success : me\n";

LoggedRun OnlyRun(const std::string& middle, const std::string& end = kEnd) {
    const std::vector<LoggedRun> runs = RunsIn(Lines(kStart + middle + end));
    EXPECT_EQ(runs.size(), 1u);
    return runs.empty() ? LoggedRun() : runs.front();
}

TEST(LogFile, ARunHasABeginningAndCountsWhatItMoved) {
    const LoggedRun run = OnlyRun(
        kConnected + "UIDL\n+OK\n1 x\n2 y\n3 z\n.\nRETR 1\nx received\nRETR 2\ny receive error\nRETR 3\nz received\n" +
        kPopEnd + "Success to create smtp socket\nMAIL FROM: <a>\n250 ok\nRCPT TO:<b>\n250 ok\nDATA\n250 taken\n" +
        "DATA\n250 taken\nDATA\n250-taken\n250 really\nQUIT\n221 bye\n* SMTP Process - success : \n");
    EXPECT_EQ(run.start, GetCTime("2009,3,15,10,20,0"));
    EXPECT_EQ(run.ending, Ending::Forwarded);
    EXPECT_EQ(run.fetched, 2);
    EXPECT_EQ(run.errors, 1);
    EXPECT_EQ(run.sent, 3);
    EXPECT_EQ(run.reason, "");
}

TEST(LogFile, ARunEndsInOneOfSeveralWays) {
    EXPECT_EQ(OnlyRun(kConnected + kPopEnd + "You have no mail to Forward\n").ending, Ending::NothingNew);
    EXPECT_EQ(OnlyRun("* disabled : a\n").ending, Ending::NobodyTook);
    EXPECT_EQ(OnlyRun(kConnected + kPopEnd + "* SMTP Process - success : \n", "").ending, Ending::Failed);
}

TEST(LogFile, AFailureHasTheReasonThatAServerGaveLast) {
    struct Case {
        std::string middle;
        std::string reason;
    };
    for (const Case& one : std::vector<Case>{
             {kConnected + "PASS ***\n-ERR wrong\n-ERR wrong\n* POP Process error : me\n", "-ERR wrong"},
             // A line of the listing looks like a refusal and is none, and neither is an unknown UIDL.
             {kConnected + "UIDL\n+OK\n500 x\n.\nRETR 500\nx receive error\nTimeoutError..Closing Socket\n"
                           "* POP Process error : me\n",
              "TimeoutError..Closing Socket"},
             {kConnected + "UIDL\n-ERR no\nLIST\n+OK\n.\n" + kPopEnd +
                  "Success to create smtp socket\nconnecting.. smtp\n421 could not connect\n\t!!Connect error\n"
                  "* SMTP Process - error to create socket : \n",
              "421 could not connect"},
             {kConnected + kPopEnd +
                  "Success to create smtp socket\nRCPT TO:<b>\n550-no\n550 such user\nQUIT\n"
                  "SomethingError..Closing Socket\n* SMTP Process - error : \n",
              "550 such user"},
             {kConnected + "* POP exception : bad\n* POP Process error : me\n", "* POP exception : bad"},
             {"* Operation exception : bad\n", "* Operation exception : bad"}}) {
        const LoggedRun run = OnlyRun(one.middle);
        EXPECT_EQ(run.ending, Ending::Failed);
        EXPECT_EQ(run.reason, one.reason);
    }
}

TEST(LogFile, RunsAreToldApartAndAPieceInFrontIsLeftOut) {
    const std::string run = kStart + "* disabled : a\n" + kEnd;
    EXPECT_THAT(RunsIn({}), IsEmpty());
    EXPECT_THAT(RunsIn(Lines("RETR 1\nx received\n" + kEnd)), IsEmpty());
    EXPECT_EQ(RunsIn(Lines("RETR 1\nx received\n" + kEnd + run + run)).size(), 2u);
    EXPECT_EQ(RunsIn(Lines("---- Operation starting at noon\n" + kEnd)).front().start, std::nullopt);
}

TEST(LogFile, NewLinesAreThoseBehindWhatWasThere) {
    struct Case {
        std::string before;
        std::string now;
        std::size_t fresh;
    };
    for (const auto& [before, now, fresh] : std::vector<Case>{{"", "", 0},
                                                              {"", "ab", 2},
                                                              {"ab", "ab", 0},
                                                              {"ab", "abcd", 2},
                                                              {"abc", "bcde", 2},    // the oldest has gone
                                                              {"abc", "de", 2},      // all have
                                                              {"aab", "aabaab", 3},  // what comes again is new
                                                              {"aaa", "aaaa", 1},
                                                              {"abab", "ababab", 2},
                                                              {"xabab", "ababc", 1},
                                                              {"abc", "", 0}}) {
        const auto lines = [](const std::string& letters) {
            std::vector<std::string> result;
            for (const char c : letters) result.emplace_back(1, c);
            return result;
        };
        EXPECT_EQ(CountNewLines(lines(before), lines(now)), fresh) << before << " " << now;
    }
}

}  // namespace
}  // namespace tarvex::host
