// The server against what comes over sockets: requests in every order and form.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <csignal>
#include <future>

#include "tests/console/support/posix/raw_client.h"
#include "tests/console/support/posix/running_console.h"
#include "tests/console/support/posix/scripted_desk.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kLoggedIn = R"({"status": "ok", "user": {"name": "tanaka", "path": "user0"}, "token": "t"})";

TEST(ConsoleServer, AnswersOneRequestAfterTheOtherOnAConnection) {
    const RunningConsole console;
    RawClient client(console.Port());
    ASSERT_TRUE(client.Send(GetRequest("/login")));
    const std::string page = client.ReadAnswer();
    EXPECT_EQ(StatusIn(page), 200);
    EXPECT_THAT(page, EndsWith("</html>\n"));
    ASSERT_TRUE(client.Send("HEAD /login HTTP/1.1\r\nHost: localhost\r\n\r\n" + GetRequest("/none")));
    const std::string head = client.ReadAnswer(false);
    EXPECT_THAT(head, EndsWith("\r\n\r\n"));
    EXPECT_THAT(head, HasSubstr("Content-Length: " + std::to_string(page.size() - page.find("\r\n\r\n") - 4)));
    EXPECT_EQ(StatusIn(client.ReadAnswer()), 404);
    ASSERT_TRUE(client.Send(GetRequest("/login", "Connection: close\r\n")));
    EXPECT_THAT(client.ReadToEnd(), HasSubstr("\r\nConnection: close\r\n"));
}

TEST(ConsoleServer, RequestsThatComeTogetherAreAnsweredInTheirOrder) {
    const RunningConsole console;
    const ScriptedDesk desk(console.Desk(), [](const DeskTalk& talk) {
        talk.ReadQuestion();
        talk.Answer(kLoggedIn);
    });
    RawClient client(console.Port());
    std::string requests;
    for (int i = 0; i < 20; ++i)
        requests += GetRequest("/none") + PostRequest("/language", "language=ja") + GetRequest("/");
    ASSERT_TRUE(client.Send(requests));
    for (int i = 0; i < 20; ++i)
        for (const int status : {404, 303, 200}) ASSERT_EQ(StatusIn(client.ReadAnswer()), status) << i;
}

TEST(ConsoleServer, ARequestMayComeByteByByte) {
    const RunningConsole console;
    RawClient client(console.Port());
    for (const char byte : PostRequest("/language", "language=ja")) ASSERT_TRUE(client.Send({&byte, 1}));
    EXPECT_EQ(StatusIn(client.ReadAnswer()), 303);
}

TEST(ConsoleServer, WhatTwoServersCouldReadDifferentlyIsRefused) {
    struct Case {
        const char* head;  // behind the request line and the host
        const char* body;
        int status;
    };
    constexpr Case kCases[] = {
        {"Content-Length: 5\r\nTransfer-Encoding: chunked\r\n", "0\r\n\r\n", 400},
        {"Transfer-Encoding: chunked\r\nContent-Length: 5\r\n", "0\r\n\r\n", 400},
        {"Content-Length: 5\r\nContent-Length: 6\r\n", "abcdef", 400},
        {"Content-Length: 5\r\nContent-Length: 5\r\n", "abcde", 400},
        {"Content-Length: 5, 5\r\n", "abcde", 400},
        {"Content-Length: -1\r\n", "", 400},
        {"Content-Length: +5\r\n", "abcde", 400},
        {"Content-Length: 0x5\r\n", "abcde", 400},
        {"Content-Length: 99999999999999999999999\r\n", "", 400},
        {"Content-Length : 5\r\n", "abcde", 400},
        {"X : y\r\n", "", 400},
        {"X\r\n", "", 400},
        {"X: a\rb\r\n", "", 400},
        {"X: \x01\r\n", "", 400},
        {"Host: localhost\r\n", "", 400},
        {"Transfer-Encoding: chunked\r\n", "ffffffffffffffff\r\nabc\r\n0\r\n\r\n", 413},
        {"Transfer-Encoding: chunked\r\n", "3\r\nabc\r\n0\r\n\r\n", 411},
        {"Transfer-Encoding: gzip\r\n", "", 411},
        {"Content-Length: 1048577\r\n", "", 413},
    };
    const RunningConsole console;
    for (const Case& each : kCases) {
        RawClient client(console.Port());
        client.Send("POST /login HTTP/1.1\r\nHost: localhost\r\n" + std::string(each.head) + "\r\n" + each.body);
        const std::string answer = client.ReadToEnd();
        EXPECT_EQ(StatusIn(answer), each.status) << each.head << answer.substr(0, 60);
    }
    struct Whole {
        const char* request;
        int status;
    };
    constexpr Whole kWhole[] = {
        {"GET / HTTP/1.1\nHost: localhost\n\n\r\n\r\n", 505},
        {"GET / HTTP/1.1\r\n\r\n", 400},
        {"GET  / HTTP/1.1\r\nHost: localhost\r\n\r\n", 400},
        {"GET /\r\n\r\n", 400},
        {"GET / HTTP/2.0\r\nHost: localhost\r\n\r\n", 505},
        {"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", 505},
        {"\x16\x03\x01\x02\x00\x01\r\n\r\n", 400},
        {"GET http://localhost/login HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n", 400},
        {"CONNECT localhost:25 HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n", 400},
        {"TRACE / HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n", 405},
        {"GET /login HTTP/1.1\r\nHost: other.example\r\nConnection: close\r\n\r\n", 421},
        {"GET /login HTTP/1.0\r\nHost: localhost\r\nConnection: keep-alive\r\n\r\n", 200},
    };
    for (const Whole& each : kWhole) {
        RawClient client(console.Port());
        client.Send(each.request);
        EXPECT_EQ(StatusIn(client.ReadToEnd()), each.status) << each.request;
    }
}

TEST(ConsoleServer, AFormMayHoldAMebibyte) {
    const RunningConsole console;
    std::promise<std::size_t> asked;
    const ScriptedDesk desk(console.Desk(), [&](const DeskTalk& talk) {
        asked.set_value(talk.ReadQuestion().size());
        talk.Answer(R"({"status": "refused", "message": "no"})");
    });
    RawClient client(console.Port());
    ASSERT_TRUE(client.Send(PostRequest("/login", "name=" + std::string((1 << 20) - 5, 'a'))));
    EXPECT_EQ(StatusIn(client.ReadAnswer()), 422);
    EXPECT_GT(asked.get_future().get(), 1U << 20);
}

TEST(ConsoleServer, EndsAfterWhatIsUnderWay) {
    RunningConsole console({"--listen", "SOCKET"});
    std::promise<void> asked;
    std::promise<void> told;
    const ScriptedDesk desk(console.Desk(), [&](const DeskTalk& talk) {
        talk.ReadQuestion();
        asked.set_value();
        told.get_future().wait();
        talk.Answer(kLoggedIn);
    });
    RawClient idle(console.Socket());
    RawClient busy(console.Socket());
    ASSERT_TRUE(busy.Send(GetRequest("/")));
    asked.get_future().wait();
    console.Process().Signal(SIGTERM);
    EXPECT_EQ(idle.ReadToEnd(), "");
    told.set_value();
    const std::string answer = busy.ReadToEnd();
    EXPECT_EQ(StatusIn(answer), 200);
    EXPECT_THAT(answer, HasSubstr("\r\nConnection: close\r\n"));
    console.Process().Wait();
    EXPECT_EQ(console.Process().ExitCode(), 0);
    EXPECT_FALSE(std::filesystem::exists(console.Socket()));
}

TEST(ConsoleServer, ItsUnixSocketIsForOwnerAndGroupAndReplacesOneLeftBehind) {
    TempDir folder;
    const std::string place = "unix:" + (folder / "x.sock");
    {
        RunningConsole killed({"--listen", place});
        killed.Process().Kill();
    }
    RunningConsole console({"--listen", place});
    struct stat status {};
    ASSERT_EQ(stat((folder / "x.sock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0660U);
    ChildProcess second({TARVEX_CONSOLE, "--listen", place, "--desk", console.Desk()});
    second.Wait();
    EXPECT_EQ(second.ExitCode(), 73);
    EXPECT_THAT(second.Errors(), HasSubstr("cannot listen at"));
    RawClient client(folder / "x.sock");
    ASSERT_TRUE(client.Send(GetRequest("/login")));
    EXPECT_EQ(StatusIn(client.ReadAnswer()), 200);
}

TEST(ConsoleServer, WritesALineForAChangeAndNoSecret) {
    RunningConsole console;
    const ScriptedDesk desk(console.Desk(), [](const DeskTalk& talk) {
        talk.ReadQuestion();
        talk.Answer(kLoggedIn);
    });
    RawClient client(console.Port());
    ASSERT_TRUE(
        client.Send(GetRequest("/login?next=secret") + PostRequest("/login?x=secret", "name=tanaka&password=secret")));
    client.ReadAnswer();
    EXPECT_EQ(StatusIn(client.ReadAnswer()), 303);
    EXPECT_EQ(console.End(), 0);
    EXPECT_THAT(console.Process().Printed(), EndsWith("/\nPOST /login by tanaka from 127.0.0.1: 303\n"));
    EXPECT_THAT(console.Process().Printed(), Not(HasSubstr("secret")));
}

}  // namespace
}  // namespace tarvex::testing
