// Moments in words.

#include "host/terminal/wording.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/environment.h"

namespace tarvex::testing {
namespace {

TEST(Wording, IsoTimeEndsWithTheOffsetInFigures) {
    constexpr CTime kNewYear = 1'230'767'999;  // 2008-12-31 23:59:59 UTC
    const struct {
        const char* zone;
        const char* time;
    } cases[] = {{"UTC0", "2008-12-31T23:59:59+0000"},
                 {"JST-9", "2009-01-01T08:59:59+0900"},
                 {"NST3:30", "2008-12-31T20:29:59-0330"},
                 {"EST5EDT", "2008-12-31T18:59:59-0500"}};
    for (const auto& [zone, time] : cases) {
        const Variable variable("TZ", zone);
        EXPECT_EQ(host::ShowIsoTime(kNewYear), time) << zone;
    }
}

}  // namespace
}  // namespace tarvex::testing
