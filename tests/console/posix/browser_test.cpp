// The console in Chromium, with the service, a small tree and mail servers behind it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>

#include "console/pages/routes.h"
#include "testing/child_process.h"
#include "tests/console/support/posix/running_console.h"
#include "tests/support/forwarding.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::SizeIs;

constexpr auto kLong = 60s;

// taro, an administrator, and hanako with a mailbox of two messages. Of its two addresses one is refused by the server,
// and the other had its time long ago.
class Browser : public ::testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists("/usr/bin/chromium")) GTEST_SKIP() << "chromium is not installed";
        if (!std::filesystem::exists("/usr/bin/node")) GTEST_SKIP() << "nodejs is not installed";
        if (!std::filesystem::exists(TARVEX_BROWSER "/node_modules"))
            GTEST_SKIP() << "tests/npm_packages.sh has not been run for it";
        sink_.SetFault([](const std::string& command) {
            return command.find("gone@") == std::string::npos ? "" : "550 5.1.1 no such user";
        });
        mailbox_.Add(MailNumber(1));
        mailbox_.Add(MailNumber(2));
        host_.Tell({"init"});
        AddUser("taro", "on");
        AddUser("hanako", "off");
        AddUser("goro", "off");
        WriteFile(folder_ / "password", "secret\n");
        host_.Tell({"profile", "add", "hanako", "hanako@example.org", "--popserver", "127.0.0.1", "--popport",
                    std::to_string(mailbox_.Port()), "--popuser", "hanako", "--password-file", folder_ / "password",
                    "--smtpserver", "127.0.0.1", "--smtpport", std::to_string(sink_.Port()), "--nickname",
                    "<b>花子の\"受信箱\""});
        for (const char* const address : {"phone@example.net", "gone@example.net"})
            host_.Tell({"forward", "add", "user1/from0", address, "--all-mail"});
        host_.Tell({"schedule", "add", "user1/from0/forwardto0", "2020-01-01 0:00 .. 2020-01-02 0:00"});
        host_.Tell({"run", "--now", "user1/from0"});
        host_.Tell(
            {"rules", "set", "--alert_to", "ops@example.org", "--alert_server", "127.0.0.1", "--alert_port", "1"});
        Serve();
    }

    void Serve() {
        service_ = std::make_unique<ChildProcess>(
            std::vector<std::string>{TARVEX_HOST, "--root", host_.Root(), "serve", "--console", console_.Desk()},
            ChildProcess::Output::Together);
        ASSERT_TRUE(service_->WaitForOutput("serving ", kLong));
    }

    void AddUser(const std::string& name, const std::string& administrator) {
        WriteFile(folder_ / "password", name + "'s secret\n");
        host_.Tell({"user", "add", name, "--administrator", administrator, "--password-file", folder_ / "password"});
    }

    void Walk(const std::string& task, const std::string& extra = {}) const {
        ChildProcess node(
            {"/usr/bin/node", TARVEX_WALK, task, "http://localhost:" + std::to_string(console_.Port()), extra},
            ChildProcess::Output::Together, {"NODE_PATH=" TARVEX_BROWSER "/node_modules"});
        EXPECT_TRUE(node.WaitFor(240s));
        node.Kill();
        EXPECT_EQ(node.ExitCode(), 0) << node.Printed();
    }

    TempDir folder_;
    MailboxServer mailbox_{"hanako", "secret"};
    SinkServer sink_;
    Host host_;
    RunningConsole console_;
    std::unique_ptr<ChildProcess> service_;
};

TEST_F(Browser, EveryPageIsAccessibleAndFitsAPhone) { Walk("pages", TARVEX_SCREENSHOTS); }

TEST_F(Browser, AUserChangesAScheduleOnAPhoneWithoutScript) {
    ASSERT_THAT(sink_.Delivered(), SizeIs(0));
    Walk("schedule");
    EXPECT_THAT(host_.Tell({"schedule", "list", "user1/from0/forwardto0"}), HasSubstr("daily 0:00-24:00"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(2));
}

TEST_F(Browser, AnAdministratorAddsAUserAndAMailboxWhoseMailIsForwardedAndDropsHeldMail) {
    MailboxServer mailbox("saburo", "secret");
    mailbox.Add(MailNumber(1));
    Walk("administrator", std::to_string(mailbox.Port()) + ' ' + std::to_string(sink_.Port()));
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
}

TEST_F(Browser, AFormOfAnotherOriginChangesNothing) {
    const auto edits = [this] { return host_.Tell({"history", "user1/from0", "--edits", "-n", "1000"}); };
    const std::string before = edits();
    Walk("foreign");
    EXPECT_EQ(edits(), before);
    Walk("foreign", "own");
    EXPECT_THAT(edits(), ::testing::Not(before));
}

// The table of the console's routes, as the walk takes it.
std::string RoutesAsJson() {
    constexpr std::array kAudiences = {"anybody", "user", "administrator"};
    console::Json routes = console::Json::array();
    for (const console::Route& route : console::Routes())
        routes.push_back({route.method, route.pattern, kAudiences[static_cast<std::size_t>(route.audience)]});
    return routes.dump();
}

TEST_F(Browser, EachRouteIsForThoseWhomTheTableNamesAndForNobodyElse) {
    const auto edits = [this] { return host_.Tell({"history", "--edits", "-n", "1000"}); };
    const std::string before = edits();
    Walk("rights", RoutesAsJson());
    EXPECT_EQ(edits(), before);
    EXPECT_THAT(host_.Tell({"held", "list", "user1/from0"}), HasSubstr("gone@example.net"));
}

TEST_F(Browser, AWeekIsChangedByKeyboardAndByMouse) { Walk("week"); }

TEST_F(Browser, AUserNeedsNothingButTheKeyboard) { Walk("keyboard"); }

TEST_F(Browser, AnEmptyTreeIsAccessible) {
    host_.Tell({"user", "remove", "hanako", "--yes"});
    Walk("states", "/ /held /mails /history /users /alerts /users/user2/remove");
}

// Most are switched off, so that no run begins; three fail.
TEST_F(Browser, AThousandMailboxesAreAccessible) {
    service_.reset();
    host_.Tell({"profile", "set", "user1/from0", "--status", "off"});
    const std::filesystem::path user = host_.Root() + "/user1";
    for (int i = 1; i < 1000; ++i)
        std::filesystem::copy(user / "from0", user / ("from" + std::to_string(i)),
                              std::filesystem::copy_options::recursive);
    for (const char* const failing : {"user1/from1", "user1/from2", "user1/from3"}) {
        host_.Tell({"profile", "set", failing, "--status", "on", "--popport", "1"});
        host_.StartCommand({"run", "--now", failing}).Wait();
    }
    Serve();
    Walk("states", "/ /?page=20 /users/user1/remove");
}

TEST_F(Browser, TheOneTimeLinkMakesAnAdministrator) {
    const std::string printed = host_.Tell({"console", "init"});
    const std::size_t at = printed.find("/first?code=");
    ASSERT_NE(at, std::string::npos) << printed;
    Walk("first", printed.substr(at, printed.find_first_of(" \n", at) - at));
}

}  // namespace
}  // namespace tarvex::testing
