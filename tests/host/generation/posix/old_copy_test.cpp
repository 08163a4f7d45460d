// An old copy of a tree, with signals, links and a program that is told of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "tests/host/generation/old_copy.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

using PosixOldCopyOfTree = OldCopyOfTree;

TEST_F(PosixOldCopyOfTree, EachStartOfTheServiceRaisesTheNumberBeforeTheFirstRun) {
    for (const char* const generation : {"6\n", "7\n"}) {
        const auto service = Serve();
        Do({"health", "--service"});  // it answers
        EXPECT_EQ(Do({"generation"}), generation);
        service->Signal(SIGHUP);
        EXPECT_TRUE(service->WaitForOutput("loaded the tree again", kLong));
        Do({"run", "--now", "--quiet"});
        service->Signal(SIGTERM);
        EXPECT_TRUE(service->WaitFor(kLong));
        EXPECT_EQ(Do({"generation"}), generation);
    }
    Do({"run", "--now", "--quiet"});
    EXPECT_EQ(Do({"generation"}), "7\n");
}

// Neither a link nor a file of others is followed or changed.
TEST_F(PosixOldCopyOfTree, LinkInThePlaceOfTheNumberIsNoNumber) {
    WriteFile(host_.Root() + "/elsewhere", "20\n");
    std::filesystem::remove(File());
    std::filesystem::create_symlink(host_.Root() + "/elsewhere", File());
    EXPECT_THAT(host_.Fail(74, {"generation"}), HasSubstr("no regular file"));
    {
        const auto service = Serve({}, "cannot be raised");
        EXPECT_TRUE(service->WaitForOutput("1 message", kLong));  // mail comes first
    }
    Do({"accept", "--send", "--expect-generation", "12"});
    EXPECT_EQ(ReadFile(File()), "13\n");
    EXPECT_EQ(ReadFile(host_.Root() + "/elsewhere"), "20\n");
}

TEST_F(PosixOldCopyOfTree, AlertSaysWhyNothingIsRun) {
    const std::string told = host_.Root() + "/told";
    const std::string program = host_.Root() + "/tell";
    WriteFile(program, "#!/bin/sh\ncat >>" + told + "\n");
    EXPECT_EQ(chmod(program.c_str(), 0700), 0);
    AddRules("[alert_command]\r\n" + program + "\r\n\r\n");
    const auto service = ServeOldCopy();
    EXPECT_TRUE(service->WaitForOutput("1 new matter", kLong));
    EXPECT_THAT(ReadFile(told), AllOf(HasSubstr("\"old_copy\""), HasSubstr("tarvex accept"), HasSubstr(kWhy)));
}

}  // namespace
}  // namespace tarvex::testing
