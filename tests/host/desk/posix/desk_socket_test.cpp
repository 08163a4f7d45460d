// The sockets of a service: who may use that of the desk, and what becomes of connections.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "host/edit/edit.h"
#include "host/service/control_server.h"
#include "host/service/service_connection.h"
#include "host/system/command_error.h"
#include "host/system/orders.h"
#include "tests/host/desk/desk_fixture.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;

// However the service ends, whoever asks it hears of it.
TEST(ControlServer, EndsConnectionsThatNobodyAnswersAnyMore) {
    const TempDir folder;
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    const host::Orders orders;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);  // the programs of other tests inherit it
    host::ControlServer server(folder.String(), orders);
    const auto early = host::ServiceConnection::Try(folder.String());
    ASSERT_TRUE(early);
    server.Close();
    host::Reply reply;
    const host::EditRequest request(host::EditKind::User, host::EditVerb::Set, "user0");
    EXPECT_THROW(early->Edit(request, reply, [](const std::string&) {}), host::CommandError);
    EXPECT_FALSE(host::ServiceConnection::Try(folder.String()));
}

TEST_F(DeskTest, TheSocketIsForItsOwnerAndItsGroup) {
    EXPECT_EQ(std::filesystem::status(Path()).permissions(), std::filesystem::perms(0660));
    service_->Interrupt();
    service_->Wait();
    EXPECT_FALSE(std::filesystem::exists(Path()));
    ChildProcess other(
        {TARVEX_HOST, "--root", host_.Root(), "serve", "--console", Path(), "--console-group", "no-such"},
        ChildProcess::Output::Together);
    other.Wait();
    EXPECT_EQ(other.ExitCode(), 73);
    EXPECT_THAT(other.Printed(), HasSubstr("there is no group \"no-such\""));
    EXPECT_FALSE(std::filesystem::exists(Path()));
}

}  // namespace
}  // namespace tarvex::testing
