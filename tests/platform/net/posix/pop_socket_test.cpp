// The descriptor of the POP3 socket, and what the system sends for both protocols.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "platform/net/sockets.h"
#include "testing/scripted_server.h"
#include "tests/support/net_tools.h"

namespace tarvex {
namespace {

using namespace std::chrono_literals;

constexpr int kExchanges = 50;

// The sockets of this process that are connected to that port of loopback.
std::vector<int> SocketsConnectedTo(int port) {
    std::vector<int> found;
    for (int candidate = 0; candidate < 1024; ++candidate) {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        if (::getpeername(candidate, reinterpret_cast<sockaddr*>(&peer), &length) == 0 && peer.sin_family == AF_INET &&
            ntohs(peer.sin_port) == port) {
            found.push_back(candidate);
        }
    }
    return found;
}

TEST(PopSocket, SocketSendsAtOnceAndIsNotInherited) {
    testing::ScriptedServer server([](testing::Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.WaitForClose();
    });
    CPopSocket socket;
    ASSERT_EQ(socket.PopConnect("127.0.0.1", server.Port()), "+OK ready");
    const std::vector<int> found = SocketsConnectedTo(server.Port());
    ASSERT_EQ(found.size(), 1U);
    int no_delay = 0;
    socklen_t length = sizeof no_delay;
    ASSERT_EQ(getsockopt(found[0], IPPROTO_TCP, TCP_NODELAY, &no_delay, &length), 0);
    EXPECT_NE(no_delay, 0);
    EXPECT_NE(fcntl(found[0], F_GETFD) & FD_CLOEXEC, 0);
}

// The middle of the times that so many exchanges take, each answered in two pieces.
template <class Exchange>
std::chrono::duration<double> MiddleTime(Exchange&& exchange) {
    std::vector<std::chrono::duration<double>> times(kExchanges);
    for (std::chrono::duration<double>& time : times) {
        const testing::Stopwatch watch;
        exchange();
        time = watch.Elapsed();
    }
    std::ranges::nth_element(times, times.begin() + kExchanges / 2);
    return times[kExchanges / 2];
}

testing::ScriptedServer::Session AnswersInTwoPieces(const char* greeting, const char* first, const char* second) {
    return [=](testing::Peer& peer) {
        peer.WaitForAcknowledgements();
        peer.Send(greeting);
        for (int i = 0; i < kExchanges; ++i) {
            peer.ReadLine();
            peer.SendUnrecorded(first);
            peer.SendUnrecorded(second);
        }
        peer.WaitForClose();
    };
}

// Without an acknowledgement at once each takes 40 ms.
TEST(PopSocket, DoesNotLetAServerWaitThatHoldsTheSecondPieceBack) {
    testing::ScriptedServer server(AnswersInTwoPieces("+OK ready\r\n", "+OK\r\n", "Subject: x\r\n\r\ny\r\n.\r\n"));
    CPopSocket socket;
    ASSERT_EQ(socket.PopConnect("127.0.0.1", server.Port()), "+OK ready");
    std::string text;
    EXPECT_LT(MiddleTime([&] { socket.SendRetr("1", &text); }), 20ms);
}

TEST(SmtpSocket, DoesNotLetAServerWaitThatHoldsTheSecondPieceBack) {
    testing::ScriptedServer server(AnswersInTwoPieces("220 ready\r\n", "250-mx\r\n", "250 HELP\r\n"));
    CSmtpSocket socket;
    ASSERT_EQ(socket.SmtpConnect("127.0.0.1", server.Port()), "220 ready");
    EXPECT_LT(MiddleTime([&] { socket.SendReset(); }), 20ms);
}

}  // namespace
}  // namespace tarvex
