// What a hostile server or a stranger's mail must not achieve: a run without end, work without measure, and ids that
// read back as others.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "engine/bookkeeping.h"
#include "platform/net/sockets.h"
#include "testing/scripted_server.h"
#include "tests/forwarding.h"
#include "tests/net_tools.h"

namespace tarvex {
namespace {

using namespace std::chrono_literals;
using testing::Peer;
using testing::ScriptedServer;
using testing::Stopwatch;

constexpr auto kFlood = 15s;   // how long a server floods
constexpr auto kInTime = 10s;  // well before that, and well after a time-out of one second

// ---- floods of what is no answer

// TLS records full of HelloRequest, which a client has to ignore while it shakes hands.
std::string HelloRequests() {
    const std::string record = std::string({22, 3, 3, 0x40, 0}) + std::string(16 * 1024, '\0');
    std::string records;
    for (int i = 0; i < 1024; ++i) records += record;
    return records;
}

TEST(HostileServer, HandshakeOfIgnoredMessagesEndsInTime) {
    ScriptedServer server([](Peer& peer) {
        const std::string flood = HelloRequests();
        for (const Stopwatch watch; watch.Elapsed() < kFlood;) peer.SendUnrecorded(flood);
    });
    CSmtpSocket socket;
    socket.SetTimeOut(1);
    socket.ssl = 1;
    ASSERT_EQ(socket.Create(0, 1, nullptr), 1);
    const Stopwatch watch;
    const std::string reply = socket.SmtpConnect("127.0.0.1", server.Port());
    EXPECT_LT(watch.Elapsed(), kInTime);
    EXPECT_EQ(socket.timed_out, 1) << reply;
}

}  // namespace
}  // namespace tarvex
