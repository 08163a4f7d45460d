// A pair of the system's own.

#include "host/tunnels/socket_pair.h"

#include <sys/socket.h>

#include <array>

namespace tarvex::host {

std::optional<SocketPair> MakeSocketPair() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0) return std::nullopt;
    return SocketPair{CConnection(ends[0], true), CConnection(ends[1])};
}

void SendLine(const CConnection& end, std::string_view bytes) {
    (void)send(static_cast<int>(end.Socket()), bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

}  // namespace tarvex::host
