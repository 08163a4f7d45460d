// Which servers are this machine, and which logins go over a network in clear.

#include "host/tree/clear_login.h"

#include <gtest/gtest.h>

namespace tarvex::host {
namespace {

TEST(ClearLogin, OfThisMachineIsOne) {
    for (const char* const name :
         {"localhost", "LocalHost", "localhost.", "pop.localhost", "127.0.0.1", "127.3.2.1", "::1"})
        EXPECT_TRUE(IsThisMachine(name)) << name;
    for (const char* const name : {"", "pop.example.org", "localhost.example.org", "notlocalhost", "127.example.org",
                                   "127.0.0.1.example.org", "128.0.0.1", "::2", "10.0.0.1"})
        EXPECT_FALSE(IsThisMachine(name)) << name;
}

TEST(ClearLogin, IsOneWithoutTlsToAnotherMachine) {
    CPopProfileSetting setting;
    setting.popserver = "pop.example.org";
    EXPECT_TRUE(LogsInInClear(setting, PopTls::Off));
    setting.sslpop = 1;  // means nothing
    EXPECT_TRUE(LogsInInClear(setting, PopTls::Off));
    EXPECT_FALSE(LogsInInClear(setting, PopTls::FromTheFirstByte));
    EXPECT_FALSE(LogsInInClear(setting, PopTls::Stls));
    setting.popserver = "localhost";
    EXPECT_FALSE(LogsInInClear(setting, PopTls::Off));
}

}  // namespace
}  // namespace tarvex::host
