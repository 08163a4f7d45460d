// Opens the socket at which the console listens.

#include "console/listener.h"

#include <arpa/inet.h>
#include <grp.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>
#include <system_error>

#include "console/log.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/posix/unix_socket.h"

namespace tarvex::console {
namespace {

using host::CommandError;
using host::Descriptor;
using host::Tr;

constexpr std::string_view kUnixStart = "unix:";
constexpr int kBacklog = 1024;
constexpr mode_t kForOwnerAndGroup = 0660;
constexpr int kHighestPort = 65535;

CommandError BadPlace(const std::string& text) {
    return {host::kBadUsage,
            Tr("\"{0}\" is not a place to listen at: unix:PATH, ADDRESS:PORT or [ADDRESS]:PORT", Printable(text))};
}

CommandError CannotListen(const Place& place, int error) {
    const std::string where = place.path.empty() ? place.address + ':' + std::to_string(place.port) : place.path;
    return {host::kCannotMake,
            Tr("cannot listen at {0}: {1}", Printable(where), std::generic_category().message(error))};
}

// An IP address with its port, as the system wants it.
struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t length = 0;

    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

std::optional<SocketAddress> AddressOf(const std::string& address, int port) {
    SocketAddress result;
    auto* const four = reinterpret_cast<sockaddr_in*>(&result.storage);
    auto* const six = reinterpret_cast<sockaddr_in6*>(&result.storage);
    if (inet_pton(AF_INET, address.c_str(), &four->sin_addr) == 1) {
        four->sin_family = AF_INET;
        four->sin_port = htons(static_cast<std::uint16_t>(port));
        result.length = sizeof *four;
        return result;
    }
    if (inet_pton(AF_INET6, address.c_str(), &six->sin6_addr) != 1) return std::nullopt;
    six->sin6_family = AF_INET6;
    six->sin6_port = htons(static_cast<std::uint16_t>(port));
    result.length = sizeof *six;
    return result;
}

gid_t GroupOf(const std::string& name) {
    const group* const entry = getgrnam(name.c_str());
    if (!entry) throw CommandError(host::kNotFound, Tr("there is no group \"{0}\"", Printable(name)));
    return entry->gr_gid;
}

Descriptor ListenAtPath(const Place& place, const std::string& group) {
    const auto address = host::UnixAddress(place.path);
    if (!address) throw CannotListen(place, ENAMETOOLONG);
    host::RemoveLeftOver(place.path, *address);
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // Nobody connects before owner and group are right.
    const mode_t before = umask(0777);
    const bool is_bound = bind(socket.Get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0;
    const int error = errno;
    umask(before);
    if (!is_bound) throw CannotListen(place, error);
    const gid_t owner_group = group.empty() ? getegid() : GroupOf(group);
    if (chown(place.path.c_str(), geteuid(), owner_group) != 0 || chmod(place.path.c_str(), kForOwnerAndGroup) != 0 ||
        listen(socket.Get(), kBacklog) != 0) {
        const int failure = errno;
        unlink(place.path.c_str());
        throw CannotListen(place, failure);
    }
    return socket;
}

Descriptor ListenAtAddress(const Place& place) {
    const SocketAddress address = AddressOf(place.address, place.port).value();
    Descriptor socket(::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    constexpr int kOn = 1;
    setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof kOn);
    if (!socket.IsOpen() || bind(socket.Get(), address.Get(), address.length) != 0 ||
        listen(socket.Get(), kBacklog) != 0)
        throw CannotListen(place, errno);
    return socket;
}

template <class Address>
std::string Shown(int family, const Address& address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(family, &address, text.data(), text.size());
    return text.data();
}

}  // namespace

Place PlaceOf(const std::string& text) {
    if (text.starts_with(kUnixStart)) {
        Place place{text.substr(kUnixStart.size()), {}};
        if (place.path.empty()) throw BadPlace(text);
        return place;
    }
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) throw BadPlace(text);
    Place place{{}, text.substr(0, colon)};
    if (place.address.starts_with('[') && place.address.ends_with(']'))
        place.address = place.address.substr(1, place.address.size() - 2);
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + colon + 1, end, place.port);
    if (error != std::errc() || rest != end || place.port < 0 || place.port > kHighestPort ||
        !AddressOf(place.address, place.port))
        throw BadPlace(text);
    return place;
}

bool IsLocalPlace(const Place& place) {
    return !place.path.empty() || place.address == "::1" || place.address.starts_with("127.");
}

Descriptor ListenAt(const Place& place, const std::string& group) {
    return place.path.empty() ? ListenAtAddress(place) : ListenAtPath(place, group);
}

std::string AddressIn(const sockaddr* address) {
    if (address->sa_family == AF_INET) return Shown(AF_INET, reinterpret_cast<const sockaddr_in*>(address)->sin_addr);
    if (address->sa_family == AF_INET6)
        return Shown(AF_INET6, reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
    return {};
}

int PortOf(const Descriptor& socket) {
    SocketAddress address;
    address.length = sizeof address.storage;
    getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address.storage), &address.length);
    if (address.storage.ss_family == AF_INET) return ntohs(reinterpret_cast<sockaddr_in*>(&address.storage)->sin_port);
    if (address.storage.ss_family == AF_INET6)
        return ntohs(reinterpret_cast<sockaddr_in6*>(&address.storage)->sin6_port);
    return 0;
}

}  // namespace tarvex::console
