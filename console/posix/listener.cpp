// Unix sockets, at which a reverse proxy connects.

#include <utility>  // Boost.Asio 1.74 leaves it out

#include "console/listener.h"

#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "console/log.h"
#include "host/language/tr.h"
#include "host/system/posix/unix_socket.h"

namespace tarvex::console {
namespace {

using host::CommandError;
using host::Tr;

constexpr mode_t kForOwnerAndGroup = 0660;

gid_t GroupOf(const std::string& name) {
    const group* const entry = getgrnam(name.c_str());
    if (!entry) throw CommandError(host::kNotFound, Tr("there is no group \"{0}\"", Printable(name)));
    return entry->gr_gid;
}

}  // namespace

void ListenAtPath(Acceptor& acceptor, const Place& place, const std::string& group) {
    const auto address = host::UnixAddress(place.path);
    if (!address) throw CannotListen(place, std::strerror(ENAMETOOLONG));
    host::RemoveLeftOver(place.path, *address);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0) throw CannotListen(place, std::strerror(errno));
    acceptor.assign({AF_UNIX, 0}, socket);
    // Nobody connects before owner and group are right.
    const mode_t before = umask(0777);
    const bool is_bound = bind(socket, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0;
    const int error = errno;
    umask(before);
    if (!is_bound) throw CannotListen(place, std::strerror(error));
    const gid_t owner_group = group.empty() ? getegid() : GroupOf(group);
    if (chown(place.path.c_str(), geteuid(), owner_group) != 0 || chmod(place.path.c_str(), kForOwnerAndGroup) != 0 ||
        listen(socket, kBacklog) != 0) {
        const int failure = errno;
        RemovePath(place);
        throw CannotListen(place, std::strerror(failure));
    }
}

void RemovePath(const Place& place) {
    if (!place.path.empty()) unlink(place.path.c_str());
}

void Claim(Acceptor& acceptor) { acceptor.set_option(Acceptor::reuse_address(true)); }

}  // namespace tarvex::console
