#pragma once

// The Unix socket ROOT/.tarvex.sock, which is its owner's alone: who connects must be the service's user or the
// superuser.

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <optional>
#include <string>

#include "host/system/posix/descriptor.h"

namespace tarvex::host {

inline constexpr const char* kSocketName = "/.tarvex.sock";

// The address of a socket that stands in a directory which may have too long a name for one: it is then reached
// through the descriptor.
class SocketAddress {
public:
    explicit SocketAddress(const std::string& root);

    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address_); }
    static constexpr socklen_t kSize = sizeof(sockaddr_un);

private:
    Descriptor directory_;
    sockaddr_un address_{};
};

// The user at the other end.
std::optional<uid_t> PeerOf(const Descriptor& socket);

// Whether a command or a service of the one user trusts the other side, which is the peer's.
bool IsAllowedPeer(uid_t peer, uid_t own);
bool HasAllowedPeer(const Descriptor& socket);

}  // namespace tarvex::host
