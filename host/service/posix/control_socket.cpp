// Where the control socket is, and who may use it.

#include "host/service/posix/control_socket.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "host/system/paths.h"

namespace tarvex::host {

SocketAddress::SocketAddress(const std::string& root) {
    std::string path = NativePath(root).string() + kSocketName;
    if (path.size() >= sizeof address_.sun_path) {
        directory_ = Descriptor(open(NativePath(root).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        path = "/proc/self/fd/" + std::to_string(directory_.Get()) + kSocketName;
    }
    address_.sun_family = AF_UNIX;
    std::ranges::copy(path, address_.sun_path);
}

bool IsAllowedPeer(uid_t peer, uid_t own) { return peer == own || peer == 0; }

std::optional<uid_t> PeerOf(const Descriptor& socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(socket.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? std::optional(peer.uid)
                                                                                : std::nullopt;
}

bool HasAllowedPeer(const Descriptor& socket) {
    const std::optional<uid_t> peer = PeerOf(socket);
    return peer && IsAllowedPeer(*peer, geteuid());
}

}  // namespace tarvex::host
