// What becomes of a page when the desk fails.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "tests/console/support/posix/raw_client.h"
#include "tests/console/support/posix/running_console.h"
#include "tests/console/support/posix/scripted_desk.h"

namespace tarvex::testing {
namespace {

using namespace std::string_literals;
using ::testing::HasSubstr;

constexpr const char* kLoggedIn = R"({"status": "ok", "user": {"name": "tanaka", "path": "user0"}, "token": "t"})";

std::string AskForPage(const RunningConsole& console, const char* more_headers = "") {
    RawClient client(console.Port());
    client.Send(GetRequest("/", more_headers));
    return client.ReadAnswer();
}

TEST(DeskTrouble, WithoutADeskThePageSaysSoInTheReadersLanguage) {
    const RunningConsole console;
    const std::string page = AskForPage(console);
    EXPECT_EQ(StatusIn(page), 503);
    EXPECT_THAT(page, HasSubstr("The Tarvex service is not running"));
    EXPECT_THAT(AskForPage(console, "Accept-Language: ja\r\n"), HasSubstr("サービスが応答しません"));
}

TEST(DeskTrouble, WhatIsNoAnswerBecomesAPageThatSaysSo) {
    const std::string length("\0\0\0\x10", 4);
    const std::vector<std::string> wrong{
        "",                              // closes at once
        "\0\0"s,                         // within the length
        length + "{\"status\"",          // within the answer
        "\x7F\xFF\xFF\xFFxx"s,           // says that it is 2 GiB
        "\0\0\0\0"s,                     // nothing
        length + "this is no JSON.",     //
        length + "[\"an array     \"]",  //
        length + "{\"a\": \"object\"}",  // without a status
        length + "{\"status\": true}",   //
        length + "{\"status\": \"a\"}",  // one that there is not
        "HTTP/1.1 200 OK\r\n\r\n",
    };
    std::atomic<std::size_t> next = 0;
    RunningConsole console;
    {
        const ScriptedDesk desk(console.Desk(), [&](const DeskTalk& talk) {
            talk.ReadQuestion();
            talk.Send(wrong[next]);
        });
        for (; next < wrong.size(); ++next) EXPECT_EQ(StatusIn(AskForPage(console)), 502) << wrong[next];
    }
    EXPECT_EQ(console.End(), 0);
    EXPECT_THAT(console.Process().Printed(), HasSubstr("GET / from 127.0.0.1: 502"));
}

TEST(DeskTrouble, ADeskThatIsSilentIsWaitedForSoLong) {
    const RunningConsole console;
    const ScriptedDesk desk(console.Desk(), [](const DeskTalk& talk) {
        talk.ReadQuestion();
        talk.Send("\0\0"s);
        talk.WaitForEnd();
    });
    const auto start = std::chrono::steady_clock::now();
    const std::string page = AskForPage(console);
    EXPECT_EQ(StatusIn(page), 504);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(29));
}

TEST(DeskTrouble, ManyQuestionsWaitForEachOtherAndAreAllAnswered) {
    const RunningConsole console;
    std::atomic<int> open = 0;
    std::atomic<int> most = 0;
    const ScriptedDesk desk(console.Desk(), [&](const DeskTalk& talk) {
        const int now = ++open;
        for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
        }
        talk.ReadQuestion();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // so that they meet
        --open;
        talk.Answer(kLoggedIn);
    });
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 200; ++i) {
        clients.push_back(std::make_unique<RawClient>(console.Port()));
        ASSERT_TRUE(clients.back()->Send(GetRequest("/")));
    }
    for (const auto& client : clients) ASSERT_EQ(StatusIn(client->ReadAnswer()), 200);
    EXPECT_LE(most, 32);
}

TEST(DeskTrouble, ALongAnswerArrivesWhole) {
    const RunningConsole console;
    const std::string name(8 << 20, 'x');
    const ScriptedDesk desk(console.Desk(), [&](const DeskTalk& talk) {
        talk.ReadQuestion();
        talk.Answer(R"({"status": "forbidden", "message": ")" + name + "\"}");
    });
    const std::string page = AskForPage(console);
    EXPECT_EQ(StatusIn(page), 403);
    EXPECT_THAT(page.size(), ::testing::Gt(name.size()));
    // Who does not take it leaves room for others, if not for as much.
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 12; ++i) {
        clients.push_back(std::make_unique<RawClient>(console.Port()));
        ASSERT_TRUE(clients.back()->Send(GetRequest("/")));
    }
    std::vector<int> statuses;
    for (const auto& client : clients) statuses.push_back(client->StatusAhead());
    EXPECT_THAT(statuses, ::testing::AllOf(::testing::Contains(403), ::testing::Contains(503)));
    RawClient small(console.Port());
    ASSERT_TRUE(small.Send(GetRequest("/login")));
    EXPECT_EQ(StatusIn(small.ReadAnswer()), 200);
    EXPECT_LT(console.PeakMemoryBytes(), 1U << 29);
}

}  // namespace
}  // namespace tarvex::testing
