// Clients that want the console's memory or time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/console/support/posix/raw_client.h"
#include "tests/console/support/posix/running_console.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Clients = std::vector<std::unique_ptr<RawClient>>;

constexpr std::size_t kMebibyte = 1 << 20;

// How long a good client has to wait for a page.
Clock::duration TimeOfAPage(const RunningConsole& console) {
    const auto start = Clock::now();
    RawClient client(console.Port());
    client.Send(GetRequest("/login", "Connection: close\r\n"));
    EXPECT_EQ(StatusIn(client.ReadToEnd()), 200);
    return Clock::now() - start;
}

Clients Begin(const RunningConsole& console, std::size_t count, const std::string& bytes) {
    Clients clients;
    for (std::size_t i = 0; i < count; ++i) {
        clients.push_back(std::make_unique<RawClient>(console.Port()));
        clients.back()->Send(bytes);
    }
    return clients;
}

TEST(ConsoleUnderAttack, AFloodIsCutOffAndTakesNoMemory) {
    const std::string start = "GET / HTTP/1.1\r\nHost: localhost\r\n";
    struct Case {
        const char* what;
        std::string start;
        std::string again;
    };
    const std::vector<Case> cases{
        {"no line end", "", std::string(kMebibyte, 'A')},
        {"a header without end", start + "X: ", std::string(kMebibyte, 'A')},
        {"headers without end", start, "X-1: " + std::string(8000, 'v') + "\r\n"},
        {"small headers without end", start, "X: y\r\n"},
        {"line ends without end", "", std::string(kMebibyte, '\n')},
        {"a body beyond its length", PostRequest("/language", ""), std::string(kMebibyte, 'A')},
        {"a body of chunks without end", "POST / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n",
         "1000\r\n" + std::string(0x1000, 'c') + "\r\n"},
    };
    const RunningConsole console;
    TimeOfAPage(console);
    const std::size_t before = console.PeakMemoryBytes();
    for (const Case& each : cases) {
        RawClient client(console.Port());
        client.Send(each.start);
        EXPECT_LT(client.Flood(each.again, 20'000), 16 * kMebibyte) << each.what;
        EXPECT_LT(TimeOfAPage(console), 2s) << each.what;
        RecordProperty(each.what, std::to_string((console.PeakMemoryBytes() - before) >> 10) + " KiB more");
    }
    EXPECT_LT(console.PeakMemoryBytes() - before, 4 * kMebibyte);
}

TEST(ConsoleUnderAttack, ManySlowClientsKeepNobodyOut) {
    const RunningConsole console({}, {"ASAN_OPTIONS=quarantine_size_mb=1"});  // which keeps what was freed
    TimeOfAPage(console);
    const std::size_t before = console.PeakMemoryBytes();
    const Clients slow = Begin(console, 600, "GET / HTTP/1.1\r\nHost: localhost\r\nX: ");
    EXPECT_LT(TimeOfAPage(console), 2s);
    const Clients idle = Begin(console, 600, GetRequest("/login"));
    EXPECT_LT(TimeOfAPage(console), 2s);
    RecordProperty("KiB more", static_cast<int>((console.PeakMemoryBytes() - before) >> 10));
    EXPECT_LT(console.PeakMemoryBytes() - before, 32 * kMebibyte);
}

TEST(ConsoleUnderAttack, LargeFormsThatNeverEndTakeSoMuchTogether) {
    const RunningConsole console;
    TimeOfAPage(console);
    const std::size_t before = console.PeakMemoryBytes();
    const std::string form = "name=" + std::string(kMebibyte - 5, 'a');
    const std::string request = PostRequest("/login", form);
    const Clients clients = Begin(console, 100, request.substr(0, request.size() - 1));
    const std::string answer = clients.back()->ReadToEnd();
    EXPECT_EQ(StatusIn(answer), 503);
    RawClient small(console.Port());
    small.Send(PostRequest("/language", "language=ja"));
    EXPECT_EQ(StatusIn(small.ReadAnswer()), 303);
    RecordProperty("KiB more", static_cast<int>((console.PeakMemoryBytes() - before) >> 10));
    EXPECT_LT(console.PeakMemoryBytes() - before, 96 * kMebibyte);
}

TEST(ConsoleUnderAttack, SlowClientsAreDroppedInTime) {
    const RunningConsole console;
    const auto start = Clock::now();
    RawClient head(console.Port());
    head.Send("GET / HTTP/1.1\r\nHost: localhost\r\n");
    RawClient silent(console.Port());
    RawClient idle(console.Port());
    idle.Send(GetRequest("/login"));
    RawClient body(console.Port());
    body.Send("POST /login HTTP/1.1\r\nHost: localhost\r\nContent-Length: 10\r\n\r\nab");
    idle.ReadAnswer();
    const auto time_until_dropped = [&](RawClient& client) {
        EXPECT_EQ(client.ReadToEnd(), "");
        return Clock::now() - start;
    };
    for (RawClient* const client : {&head, &silent}) {
        const auto time = time_until_dropped(*client);
        EXPECT_GT(time, 9s);
        EXPECT_LT(time, 20s);
    }
    for (RawClient* const client : {&idle, &body}) {
        const auto time = time_until_dropped(*client);
        EXPECT_GT(time, 29s);
        EXPECT_LT(time, 45s);
    }
}

}  // namespace
}  // namespace tarvex::testing
