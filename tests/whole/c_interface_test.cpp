// The interface for C: its operations, and a host that a C compiler has made.

#include "tarvex/tarvex_c.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "loopback/mail_servers.h"
#include "testing/child_process.h"
#include "testing/scripted_server.h"
#include "testing/temp_dir.h"
#include "tests/support/busy_profile.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

using ::testing::StrEq;

struct Close {
    void operator()(tarvex_root* root) const { tarvex_close(root); }
};
using Root = std::unique_ptr<tarvex_root, Close>;

Root Open(const std::string& directory) { return Root(tarvex_open(directory.c_str())); }

TEST(CInterface, OpensADirectoryThatItCreates) {
    const TempDir folder;
    EXPECT_NE(Open(folder / "root"), nullptr);
    EXPECT_TRUE(std::filesystem::is_directory(folder / "root"));
}

TEST(CInterface, SaysWhyARootCannotBeOpened) {
    const TempDir folder;
    EXPECT_EQ(Open(folder / "missing/root"), nullptr);
    EXPECT_THAT(tarvex_last_error(), StrEq("The root directory cannot be opened or created."));
    WriteFile(folder / "file", "");
    EXPECT_EQ(Open(folder / "file"), nullptr);
    EXPECT_THAT(tarvex_last_error(), StrEq("The root is not a directory."));
    EXPECT_EQ(tarvex_open(nullptr), nullptr);
    EXPECT_THAT(tarvex_last_error(), StrEq("The directory is null."));
}

TEST(CInterface, LastErrorIsThatOfTheThread) {
    EXPECT_EQ(tarvex_run(nullptr), -1);
    std::string other = "(unset)";
    std::thread([&other] { other = tarvex_last_error(); }).join();
    EXPECT_EQ(other, "");
    EXPECT_THAT(tarvex_last_error(), StrEq("The root is null."));
}

TEST(CInterface, OperationsOnANullRootFail) {
    EXPECT_EQ(tarvex_run(nullptr), -1);
    EXPECT_EQ(tarvex_running(nullptr), -1);
    EXPECT_EQ(tarvex_wait(nullptr, 0), -1);
    EXPECT_EQ(tarvex_stop(nullptr), -1);
    tarvex_close(nullptr);
}

TEST(CInterface, CountsTheRunsUnderWayAndStopsThem) {
    MailboxServer pop("alice", "secret");
    pop.SetFault([](const std::string& command) { return command == "STAT" || command == "UIDL" ? "stall" : ""; });
    DataTree tree;
    AddAddress(tree.AddProfile(pop.Port(), UnusedPort()), "a@example.net");
    const Root root = Open(tree.Folder() / "root");
    ASSERT_NE(root, nullptr);

    EXPECT_EQ(tarvex_running(root.get()), 0);
    EXPECT_EQ(tarvex_run(root.get()), 1);
    EXPECT_EQ(tarvex_wait(root.get(), 1), 0);
    EXPECT_EQ(tarvex_running(root.get()), 1);
    EXPECT_EQ(tarvex_stop(root.get()), 1);
    EXPECT_EQ(tarvex_running(root.get()), 0);
    EXPECT_EQ(tarvex_wait(root.get(), 0), 1);
}

TEST(CInterface, HostInCForwardsTheMail) {
    MailboxServer pop("alice", "secret");
    pop.Add(Mail("u1"));
    SinkServer smtp;
    DataTree tree;
    AddAddress(tree.AddProfile(pop.Port(), smtp.Port()), "a@example.net");

    ChildProcess host({TARVEX_C_HOST, tree.Folder() / "root"});
    host.Wait();
    EXPECT_EQ(host.ExitCode(), 0);
    EXPECT_EQ(host.Printed(), "started 1\nfinished 1\nrunning 0\nstopped 1\n");
    EXPECT_EQ(Arrived(smtp), (Arrivals{{"u1 -> a@example.net", 1}}));
}

TEST(CInterface, HostThatForgetsARunUnderWayEnds) {
    SilentServer pop;
    DataTree tree;
    AddBusyProfile(tree, pop.Port());
    const std::vector<std::string> words = {TARVEX_C_HOST, tree.Folder() / "root", "300"};
    ChildProcess host(words, ChildProcess::Output::Pipe, {"ASAN_OPTIONS=detect_leaks=0"});  // what it forgets leaks
    host.Wait();
    EXPECT_EQ(host.ExitCode(), 0) << host.Errors();
    EXPECT_EQ(host.Printed(), "started 1\nfinished 0\n");
}

TEST(CInterface, HostInCIsToldWhyThereIsNoRoot) {
    ChildProcess host({TARVEX_C_HOST});
    host.Wait();
    EXPECT_EQ(host.ExitCode(), 1);
    EXPECT_EQ(host.Errors(), "The directory is null.\n");
}

}  // namespace
}  // namespace tarvex::testing
