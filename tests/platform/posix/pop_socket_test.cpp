// The descriptor of the POP3 socket.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <vector>

#include "platform/net/sockets.h"
#include "testing/scripted_server.h"

namespace tarvex {
namespace {

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

}  // namespace
}  // namespace tarvex
