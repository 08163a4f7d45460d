// The servers themselves: they start, several at once, and end without a trace.

#include <gtest/gtest.h>

#include "tests/real/servers/real_servers.h"

namespace tarvex::testing {
namespace {

TEST(RealServers, DovecotStartsAndStops) {
    if (const std::string reason = PopServer::Missing(); !reason.empty()) GTEST_SKIP() << reason;
    int port = 0;
    {
        const PopServer first;
        const PopServer second;
        EXPECT_TRUE(Answers(first.Port(), "+OK"));
        EXPECT_TRUE(Answers(second.Port(), "+OK"));
        port = first.Port();
    }
    EXPECT_FALSE(Answers(port, "+OK"));
}

TEST(RealServers, PostfixStartsAndStops) {
    if (const std::string reason = SmtpServer::Missing(); !reason.empty()) GTEST_SKIP() << reason;
    int port = 0;
    {
        const SmtpServer server;
        for (int each : {server.AuthPort(), server.PlainPort(), server.AuthLastPort(), server.NoEhloPort()}) {
            EXPECT_TRUE(Answers(each, "220 "));
        }
        port = server.PlainPort();
    }
    EXPECT_FALSE(Answers(port, "220 "));
}

TEST(RealServers, GeneratedMailIsTheSameEveryTime) {
    for (std::string_view kind : OrdinaryKinds()) {
        const std::string text = MakeMail(kind, 7, 4096).text;
        EXPECT_EQ(text, MakeMail(kind, 7, 4096).text) << kind;
        EXPECT_NE(text, MakeMail(kind, 8, 4096).text) << kind;
        EXPECT_NEAR(static_cast<double>(text.size()), 4096, 1500) << kind;
    }
    EXPECT_EQ(MakeAwkwardMails().size(), AwkwardKinds().size());
}

}  // namespace
}  // namespace tarvex::testing
