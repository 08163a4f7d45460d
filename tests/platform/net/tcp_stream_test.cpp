// The one TCP socket under everything.

#include "platform/net/tcp_stream.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <string_view>

#include "platform/net/name_lookup.h"
#include "testing/scripted_server.h"

namespace tarvex {
namespace {

using namespace std::chrono_literals;
using testing::Peer;
using testing::ScriptedServer;

TEST(TcpStream, SendingToAServerThatHasGoneFailsWithoutASignal) {
    ScriptedServer server([](Peer& peer) {
        peer.ReadLine();  // so that the connection has been made when it ends
        peer.Reset();
    });
    TcpStream stream;
    const Deadline deadline(20s);
    ASSERT_FALSE(stream.Connect(NumericAddress("127.0.0.1").value(), server.Port(), deadline));
    const std::array<std::string_view, 1> parts = {"x\n"};
    ASSERT_EQ(stream.Send(parts).status, Transfer::Status::Progress);
    ASSERT_FALSE(stream.Wait(TcpStream::Event::ToRead, deadline));
    // The system tells the reset once; from then on it would raise SIGPIPE.
    for (int i = 0; i < 3; ++i) EXPECT_EQ(stream.Send(parts).status, Transfer::Status::Failed);
}

}  // namespace
}  // namespace tarvex
