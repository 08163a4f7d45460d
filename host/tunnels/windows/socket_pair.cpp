// A connection over the loopback in the place of a pair, which Windows does not have.

#include "host/tunnels/socket_pair.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <utility>

namespace tarvex::host {
namespace {

SOCKET Handle(const CConnection& socket) { return static_cast<SOCKET>(socket.Socket()); }

CConnection Open(bool is_secured = false) {
    const SOCKET socket =
        WSASocketW(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    return CConnection(static_cast<std::intptr_t>(socket), is_secured);
}

using NameOf = int(WSAAPI*)(SOCKET, sockaddr*, int*);

sockaddr_in Ask(NameOf ask, const CConnection& socket) {
    sockaddr_in address{};
    int length = sizeof address;
    return ask(Handle(socket), reinterpret_cast<sockaddr*>(&address), &length) == 0 ? address : sockaddr_in{};
}

bool IsSame(const sockaddr_in& left, const sockaddr_in& right) {
    return left.sin_port != 0 && left.sin_port == right.sin_port && left.sin_addr.s_addr == right.sin_addr.s_addr;
}

// Each end has the other as its peer.
bool ArePeers(const CConnection& one, const CConnection& other) {
    return IsSame(Ask(getpeername, one), Ask(getsockname, other)) &&
           IsSame(Ask(getpeername, other), Ask(getsockname, one));
}

void SendAtOnce(const CConnection& socket) {
    const BOOL on = TRUE;
    (void)setsockopt(Handle(socket), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
}

}  // namespace

std::optional<SocketPair> MakeSocketPair() {
    CConnection listener = Open();
    CConnection for_run = Open(true);
    if (!listener || !for_run) return std::nullopt;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto* const system_address = reinterpret_cast<const sockaddr*>(&address);
    if (bind(Handle(listener), system_address, sizeof address) != 0 || listen(Handle(listener), 1) != 0) {
        return std::nullopt;
    }
    address = Ask(getsockname, listener);
    // The system completes the connection before anybody accepts it.
    if (connect(Handle(for_run), system_address, sizeof address) != 0) return std::nullopt;
    CConnection for_tunnel(static_cast<std::intptr_t>(accept(Handle(listener), nullptr, nullptr)));
    listener = CConnection();
    if (!for_tunnel || !ArePeers(for_run, for_tunnel)) return std::nullopt;
    SendAtOnce(for_tunnel);
    return SocketPair{std::move(for_run), std::move(for_tunnel)};
}

void SendLine(const CConnection& end, std::string_view bytes) {
    (void)send(Handle(end), bytes.data(), static_cast<int>(bytes.size()), 0);
}

}  // namespace tarvex::host
