// Addresses of Unix sockets, and what is left of old ones.

#include "host/system/posix/unix_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "host/system/posix/descriptor.h"

namespace tarvex::host {

std::optional<sockaddr_un> UnixAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) return std::nullopt;
    std::ranges::copy(path, address.sun_path);
    return address;
}

void RemoveLeftOver(const std::string& path, const sockaddr_un& address) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return;
    // One that is halted with a full queue would keep a caller that waits.
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const auto* const whom = reinterpret_cast<const sockaddr*>(&address);
    if (connect(probe.Get(), whom, sizeof address) != 0 && errno == ECONNREFUSED) unlink(path.c_str());
}

}  // namespace tarvex::host
