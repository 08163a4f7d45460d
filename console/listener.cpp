// Opens the socket at which the console listens.

#include <utility>  // Boost.Asio 1.74 leaves it out

#include "console/listener.h"

#include <boost/asio/ip/tcp.hpp>
#include <cstring>
#include <optional>

#include "console/log.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

namespace ip = boost::asio::ip;
using Endpoint = boost::asio::generic::stream_protocol::endpoint;
using boost::system::error_code;

std::optional<ip::tcp::endpoint> TcpEndpoint(const Endpoint& endpoint) {
    ip::tcp::endpoint tcp;
    const int family = endpoint.protocol().family();
    if ((family != ip::tcp::v4().family() && family != ip::tcp::v6().family()) || endpoint.size() > tcp.capacity())
        return std::nullopt;
    tcp.resize(endpoint.size());
    std::memcpy(tcp.data(), endpoint.data(), endpoint.size());
    return tcp;
}

}  // namespace

host::CommandError CannotListen(const Place& place, const std::string& why) {
    const std::string where = place.path.empty() ? place.address + ':' + std::to_string(place.port) : place.path;
    return {host::kCannotMake, host::Tr("cannot listen at {0}: {1}", Printable(where), why)};
}

void ListenAt(Acceptor& acceptor, const Place& place, const std::string& group) {
    if (!place.path.empty()) return ListenAtPath(acceptor, place, group);
    const ip::tcp::endpoint endpoint(ip::make_address(place.address), static_cast<unsigned short>(place.port));
    try {
        acceptor.open(endpoint.protocol());
        Claim(acceptor);
        acceptor.bind(endpoint);
        acceptor.listen(kBacklog);
    } catch (const boost::system::system_error& error) {
        throw CannotListen(place, error.code().message());
    }
}

int PortOf(const Acceptor& acceptor) {
    error_code error;
    const auto tcp = TcpEndpoint(acceptor.local_endpoint(error));
    return !error && tcp ? tcp->port() : 0;
}

std::string AddressIn(const Endpoint& endpoint) {
    const auto tcp = TcpEndpoint(endpoint);
    if (!tcp) return {};
    if (tcp->address().is_v4()) return tcp->address().to_string();
    ip::address_v6 address = tcp->address().to_v6();
    address.scope_id(0);
    return address.to_string();
}

}  // namespace tarvex::console
