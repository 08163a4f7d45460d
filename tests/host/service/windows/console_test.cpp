// `tarvex serve` in a console of Windows, and what ends it there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/host/service/served_tree.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using enum ServiceProcess::Event;

using ServingInAConsole = ServiceTest;

TEST_F(ServingInAConsole, SaysWhichEventEndsIt) {
    AddProfile(600);
    for (const auto& [event, name] : std::vector<std::pair<ServiceProcess::Event, std::string>>{
             {CtrlC, "Ctrl-C"},
             {CtrlBreak, "Ctrl-Break"},
             {Close, "the console was closed"},
             {LogOff, "log-off"},
             {Shutdown, "shutdown"},
         }) {
        const auto service = Serve();
        Stop(*service, event);
        EXPECT_THAT(service->Printed(), HasSubstr("stopping (" + name + ")\n"));
        EXPECT_THAT(service->Printed(), HasSubstr(" stopped\n"));
    }
}

// The run waits at its end for the file that this process holds open. In wine the exit code is 0.
TEST_F(ServingInAConsole, IsEndedAtOnceByTheNextKeyWhileItStops) {
    const std::string profile = AddProfile();
    mailbox_.SetFault([this](const std::string& command) {
        if (command != "UIDL") return "";
        ++blocked_;
        return "stall";
    });
    for (const auto key : {CtrlC, CtrlBreak}) {
        blocked_ = 0;
        const auto service = Serve();
        WaitUntilBlocked();
        const std::ofstream held(profile + "\\profile.log", std::ios::app);
        service->Interrupt();
        ASSERT_TRUE(service->WaitForOutput("stopping (Ctrl-C)", kLong));
        const auto start = Clock::now();
        service->Interrupt(key);
        ASSERT_TRUE(service->WaitFor(kLong));
        EXPECT_LT(Clock::now() - start, 4s) << "the run waits for five";
        EXPECT_THAT(service->Printed(), Not(HasSubstr("stopped")));
    }
}

}  // namespace
}  // namespace tarvex::testing
