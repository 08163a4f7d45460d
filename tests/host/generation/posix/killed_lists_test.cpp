// A process that is killed at any instant leaves no list that looks older than what is remembered of it.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <string>

#include "tests/host/rules/household.h"
#include "tests/support/posix/system_calls.h"

namespace tarvex::testing {
namespace {

// Whether the run came to its end, in a process that is killed at that call.
bool RunsToItsEnd(Household& house, std::size_t call) {
    const pid_t child = fork();
    if (child == 0) {
        system_calls = {true, {}, {}, {}, call};
        system_calls.contents = true;
        house.Run();
        house.memory.reset();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status);
}

// Between the two runs one message goes and another comes; after the killed one the first is back. Where messages are
// deleted, the server keeps them all the same.
class KilledRun : public ::testing::TestWithParam<int> {};

TEST_P(KilledRun, LeavesNoListThatLooksOlder) {
    for (std::size_t call = 1;; ++call) {
        SCOPED_TRACE("call " + std::to_string(call));
        Household house(true, {"a", "b"});
        house.profile.setting.deletemail = GetParam();
        house.pop.SetFault([](const std::string& command) { return command == "QUIT" ? "close" : ""; });
        house.Add({"u1", "u2"});
        house.Run();
        house.memory.reset();
        house.pop.Remove("u1");
        house.Add({"u3"});
        const bool ended = RunsToItsEnd(house, call);
        house.Add({"u1"});
        house.Run();
        ASSERT_FALSE(house.Memory().IsWaiting());
        if (ended) {
            EXPECT_GT(call, 10U);
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Crash, KilledRun, ::testing::Values(0, 1),
                         [](const auto& run) { return run.param == 0 ? "MailStays" : "MailIsDeleted"; });

}  // namespace
}  // namespace tarvex::testing
