// `tarvex` without a command, from nothing to a service.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <string>

#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;

TEST(NextStep, IsNamedFromNoTreeToARunningService) {
    const Host host;
    const auto expect = [&](const std::string& next) {
        const std::string said = host.Tell({});
        EXPECT_THAT(said, HasSubstr("\n  tarvex --root " + host.Root() + ' ' + next));
        EXPECT_EQ(std::ranges::count(said, '\n'), 3) << said;
    };
    expect("setup\n");
    host.Tell({"init"});
    expect("setup\n");
    host.Tell({"user", "add", "taro"});
    expect("setup\n");
    host.Tell({"profile", "add", "taro", "me@example.org", "--popserver", "pop.example.org", "--popuser", "me",
               "--pop_tls", "tls", "--status", "off"});
    expect("forward add user0/from0 ADDRESS\n");
    host.Tell({"forward", "add", "user0/from0", "phone@example.net"});
    expect("serve ");
    ChildProcess service = host.StartCommand({"serve"}, ChildProcess::Output::Together);
    ASSERT_TRUE(service.WaitForOutput("serving ", 20s));
    expect("status\n");
    service.Signal(SIGTERM);
    service.Wait();
}

}  // namespace
}  // namespace tarvex::testing
