// Hands the sockets' question for a connection to the guard, and its answer back.

#include "transfer/guarded_connecting.h"

#include <utility>

#include "platform/net/given_socket.h"
#include "platform/net/tcp_stream.h"

CConnection::~CConnection() { tarvex::CloseSocket(socket_); }

namespace tarvex {
namespace {

class ServerToReach final : public CServerToReach {
public:
    ServerToReach(CProtocol of, const std::string& called, int at, const std::function<std::intptr_t()>& connect)
        : CServerToReach(of, called, at), connect_(connect) {}

    CConnection Connect() override { return CConnection(connect_()); }

private:
    const std::function<std::intptr_t()>& connect_;
};

}  // namespace

void LetGuardConnect(CBaseSocket& socket, CRunGuard& guard, const CPopProfile& profile, CProtocol protocol) {
    socket.AskForSockets([&guard, &profile, protocol](const std::string& server, int port,
                                                      const std::function<std::intptr_t()>& connect) {
        ServerToReach wanted(protocol, server, port, connect);
        CConnection given = guard.Connects(profile, wanted);
        const bool is_secured = given.IsSecured();
        return GivenSocket{given.Release(), is_secured};
    });
}

}  // namespace tarvex
