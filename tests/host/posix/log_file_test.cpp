// What is new in a log that was replaced, and how its lines are shown.

#include "host/tree/log_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/system/display.h"
#include "platform/codec/base64.h"

namespace tarvex::host {
namespace {

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

// S and E stand for a run's start and end line, H for the heading of a report, a dot for an empty line. In `shown` a
// question mark stands at each line that has one in front.
TEST(LogFile, StartAndEndLinesAreMarkedWhereNoRunWritesThem) {
    const auto text_of = [](char letter) -> std::string {
        if (letter == 'S') return "---- Operation starting at noon";
        if (letter == 'E') return "---- End Operation at noon";
        if (letter == 'H') return "== user0/from0: nothing new";
        return letter == '.' ? "" : "+OK";
    };
    struct Case {
        std::string lines;
        std::string shown;
    };
    for (const auto& [letters, shown] : std::vector<Case>{{".SxxE.SxE", "........."},
                                                          {"SxE.SE", "......"},  // the oldest have gone
                                                          {"xE.SxE", "......"},
                                                          {".SxSxE", "...?.."},  // no run ends in front of it
                                                          {".Sx.SxE", "....?.."},
                                                          {".SxESxE", "...??.."},  // nor without an empty line
                                                          {".SExE", "..?.."},      // and none begins behind it
                                                          {".SE.xE", "..?..."},
                                                          {".SE.", "..?."},
                                                          {".SHxE", "..?.."}}) {
        std::vector<std::string> lines;
        for (const char letter : letters) lines.push_back(text_of(letter));
        for (std::size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(ShowLogLine(lines, i), (shown[i] == '?' ? "? " : "") + lines[i]) << letters << " " << i;
        }
    }
}

TEST(ShowText, StarsTheResponseOfAuthPlain) {
    const auto encoded = [](std::string bytes) {
        Base64Encode(&bytes, &bytes);
        return bytes;
    };
    using namespace std::literals;
    const std::string login = encoded("user\0user\0secret"s);
    const std::string stars(login.size(), '*');
    ASSERT_TRUE(login.ends_with('='));
    struct Case {
        std::string text;
        std::string shown;
    };
    for (const auto& [text, shown] :
         std::vector<Case>{{login, stars},
                           {"535 no <" + login + ">: " + login, "535 no <" + stars + ">: " + stars},
                           {encoded("user"), encoded("user")},  // as in LOGIN
                           {encoded("user\0other\0secret"s), encoded("user\0other\0secret"s)},
                           {"1 AAAB", "1 AAAB"},  // an id: two NULs and no user
                           {"+OK\n" + login + "\n", "+OK\n" + stars + "\n"}}) {
        EXPECT_EQ(ShowText(text), shown);
    }
}

}  // namespace
}  // namespace tarvex::host
