// The console as the service of Windows that stands beside the one of the tree.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "host/service/windows/installed_service.h"
#include "host/system/command_error.h"
#include "host/system/windows/managed_process.h"
#include "testing/plain_client.h"
#include "testing/scripted_server.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using host::AskForService;
using host::kConsoleServiceName;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using State = host::InstalledService::State;

std::string Behind(const std::string& text, const std::string& what) {
    const std::size_t start = text.find(what);
    EXPECT_NE(start, std::string::npos) << what << " in " << text;
    if (start == std::string::npos) return {};
    const std::size_t from = start + what.size();
    return text.substr(from, text.find_first_of("\r\n;\"", from) - from);
}

class ConsoleService : public ::testing::Test {
protected:
    ~ConsoleService() override { Tell({"service", "remove"}); }

    std::string Tell(const std::vector<std::string>& words, int exit_code = 0) {
        ChildProcess command = host_.StartCommand(words);
        command.Wait();
        EXPECT_EQ(command.ExitCode(), exit_code) << ::testing::PrintToString(words) << command.Errors();
        return command.Printed() + command.Errors();
    }

    // With the console at a port that was free a moment ago.
    void Start() {
        port_ = ScriptedServer([](Peer&) {}).Port();
        Tell({"service", "install", "--console-options", "--listen 127.0.0.1:" + std::to_string(port_)});
        Tell({"service", "start"});
    }

    std::string Get(const std::string& path, const std::string& cookie = {}) const {
        return PlainClient(port_).Ask(
            "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nCookie: " + cookie + "\r\n\r\n");
    }

    std::string Post(const std::string& path, const std::string& form, const std::string& cookie = {}) const {
        return PlainClient(port_).Ask(
            "POST " + path +
            " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nSec-Fetch-Site: same-origin\r\n"
            "Content-Type: application/x-www-form-urlencoded\r\nCookie: " +
            cookie + "\r\nContent-Length: " + std::to_string(form.size()) + "\r\n\r\n" + form);
    }

    // The cookie of the first administrator.
    std::string LogIn() {
        const std::string code = Behind(Tell({"console", "init"}), "/first?code=");
        const std::string answer = Post("/first", "code=" + code + "&name=taro&password=a+long+password");
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 303"));
        return "__Host-session=" + Behind(answer, "__Host-session=");
    }

    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
    Host host_;
    int port_ = 0;
};

TEST_F(ConsoleService, AnAdministratorSeesMailForwardedFromTheBrowserAlone) {
    host_.AddProfile(mailbox_.Port(), sink_.Port(), [](CPopProfile& profile) { profile.setting.timer = 1440; });
    Start();
    EXPECT_EQ(AskForService(kConsoleServiceName).state, State::Running);
    EXPECT_THAT(Tell({"service", "status"}), HasSubstr("The console in the browser runs."));
    EXPECT_THAT(Get("/"), StartsWith("HTTP/1.1 303"));
    const std::string cookie = LogIn();
    EXPECT_THAT(Get("/", cookie), AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("me@example.org")));
    const std::string page = Get("/profiles/user0/from0", cookie);
    mailbox_.Add(MailNumber(1));
    const std::string token = Behind(page, "name=\"token\" value=\"");
    EXPECT_THAT(Post("/profiles/user0/from0/start/run", "token=" + token, cookie), StartsWith("HTTP/1.1 303"));
    for (const auto deadline = std::chrono::steady_clock::now() + 60s;
         sink_.Delivered().empty() && std::chrono::steady_clock::now() < deadline;)
        std::this_thread::sleep_for(20ms);
    ASSERT_EQ(sink_.Delivered().size(), 1u);
    Tell({"service", "stop"});
    EXPECT_EQ(AskForService(kConsoleServiceName).state, State::Stopped);
    EXPECT_EQ(AskForService(kConsoleServiceName).exit_code, 0u);
}

TEST_F(ConsoleService, SaysThatTheServiceDoesNotAnswer) {
    Start();
    host::StopInstalledService(host::kServiceName);
    EXPECT_THAT(Get("/login"), StartsWith("HTTP/1.1 200"));
    EXPECT_THAT(Post("/login", "name=taro&password=x"), StartsWith("HTTP/1.1 503"));
}

TEST_F(ConsoleService, KeepsItsOptionsIsLeftOutAndRemoved) {
    Start();
    Tell({"service", "install"});
    const std::string port = std::to_string(port_);
    EXPECT_THAT(host::ServiceCommandLine(kConsoleServiceName),
                ::testing::EndsWith(std::wstring(port.begin(), port.end())));
    EXPECT_THAT(host::ServiceCommandLine(host::kServiceName), HasSubstr(L" --console tarvex-console"));
    Tell({"service", "install", "--no-console"});
    EXPECT_EQ(AskForService(kConsoleServiceName).state, State::Missing);
    EXPECT_THAT(host::ServiceCommandLine(host::kServiceName), Not(HasSubstr(L"--console")));
    EXPECT_THAT(Tell({"service", "status"}, 0), HasSubstr("The console in the browser is not installed."));
}

TEST_F(ConsoleService, ThatCannotStartKeepsNoMailBack) {
    const ScriptedServer other([](Peer&) {});
    Tell({"service", "install", "--console-options", "--listen 127.0.0.1:" + std::to_string(other.Port())});
    EXPECT_THAT(Tell({"service", "start"}), HasSubstr("TarvexConsole ended at once, with code 73"));
    EXPECT_EQ(AskForService().state, State::Running);
    Tell({"service", "stop"});
    Tell({"service", "install", "--console-options", "--no-such-thing"});
    EXPECT_THAT(Tell({"service", "start"}), HasSubstr("TarvexConsole ended at once, with code 64"));
    Tell({"--root", "C:\\", "service", "install"}, kBadUsage);
}

}  // namespace
}  // namespace tarvex::testing
