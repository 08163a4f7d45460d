// What is new in a log that was replaced.

#include "host/tree/log_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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

}  // namespace
}  // namespace tarvex::host
