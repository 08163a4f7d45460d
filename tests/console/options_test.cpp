// The command line of tarvex-console.

#include "console/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/system/command_error.h"

namespace tarvex::console {
namespace {

using ::testing::Contains;

TypedOptions At(const std::string& place) {
    TypedOptions typed;
    typed.listen = place;
    return typed;
}

TEST(ConsoleOptions, APlaceIsAPathOrAnAddress) {
    EXPECT_EQ(PlaceOf("unix:/run/x.sock").path, "/run/x.sock");
    EXPECT_EQ(PlaceOf("[::1]:8080").address, "::1");
    EXPECT_EQ(PlaceOf("192.0.2.1:443").port, 443);
    for (const char* const wrong :
         {"", "unix:", "8080", "localhost:80", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "127.0.0.1:8x", "::1"})
        EXPECT_THROW((void)PlaceOf(wrong), host::CommandError) << wrong;
}

TEST(ConsoleOptions, PasswordsDoNotTravelInClear) {
    for (const char* const open : {"0.0.0.0:80", "192.0.2.1:80", "[::]:80"}) {
        EXPECT_THROW((void)Understand(At(open)), host::CommandError) << open;
        TypedOptions typed = At(open);
        typed.certificate = "c";
        EXPECT_THROW((void)Understand(typed), host::CommandError);
        typed.key = "k";
        EXPECT_TRUE(Understand(typed).site.is_encrypted);
    }
    for (const char* const closed : {"127.0.0.1:80", "[::1]:80", "unix:/x"})
        EXPECT_NO_THROW((void)Understand(At(closed)));
}

TEST(ConsoleOptions, OnlyAUnixSocketHasAProxyBeforeItUnlessToldSo) {
    EXPECT_EQ(Understand(At("unix:/x")).site.trusted_proxies, 1U);
    TypedOptions typed = At("127.0.0.1:80");
    EXPECT_EQ(Understand(typed).site.trusted_proxies, 0U);
    typed.trusted_proxies = 2;
    EXPECT_EQ(Understand(typed).site.trusted_proxies, 2U);
}

TEST(ConsoleOptions, ItsNamesAreTheMachinesAndThoseThatWereGiven) {
    TypedOptions typed = At("127.0.0.9:80");
    typed.hosts = {"Console.Example.org", "[2001:DB8::1]"};
    const auto names = Understand(typed).site.names;
    for (const char* const name : {"localhost", "127.0.0.1", "127.0.0.9", "console.example.org", "[2001:db8::1]"})
        EXPECT_THAT(names, Contains(name));
}

TEST(ConsoleOptions, TheDeskIsTheServicesOrThatOfATree) {
    TypedOptions typed;
    EXPECT_EQ(Understand(typed).server.desk, Usual().desk);
    typed.root = "/srv/tree";
    EXPECT_EQ(Understand(typed).server.desk, "/srv/tree/.tarvex/console.sock");
    typed.desk = "/x";
    EXPECT_THROW((void)Understand(typed), host::CommandError);
}

}  // namespace
}  // namespace tarvex::console
