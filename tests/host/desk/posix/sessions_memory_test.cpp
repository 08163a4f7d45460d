// How much memory the sessions of a console take.

#include <gtest/gtest.h>
#include <malloc.h>

#include <string>

#include "host/desk/login/sessions.h"

namespace tarvex::testing {
namespace {

constexpr std::size_t kSessions = 1000;
constexpr std::size_t kMostOfSession_bytes = 1024;

TEST(Sessions, AThousandTakeLessThanAMegabyteAndGiveItBack) {
    const auto now = host::Sessions::Clock::now();
    const std::size_t before = mallinfo2().uordblks;
    host::Sessions sessions;
    for (std::size_t i = 0; i < kSessions; ++i) {
        host::Session session;
        session.user = "user" + std::to_string(i / host::Sessions::kMostOfUser);
        session.password = host::DigestOf("x");
        session.address = "2001:db8:0:1234:5678:9abc:def0:1234";
        sessions.Begin(session, now);
    }
    const std::size_t taken = mallinfo2().uordblks - before;
    if (taken == 0) GTEST_SKIP() << "the sanitizers have their own memory";
    RecordProperty("bytes", static_cast<int>(taken));
    EXPECT_GT(taken, kSessions * sizeof(host::Session));  // it is their memory that was measured
    EXPECT_LT(taken, kSessions * kMostOfSession_bytes);
    EXPECT_EQ(sessions.Of("user0", now).size(), host::Sessions::kMostOfUser);
    EXPECT_TRUE(sessions.Of("user0", now + host::Sessions::kIdle + std::chrono::seconds(1)).empty());
    EXPECT_LT(mallinfo2().uordblks - before, taken / 10);
}

}  // namespace
}  // namespace tarvex::testing
