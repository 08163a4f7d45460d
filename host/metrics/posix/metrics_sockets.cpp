// The sockets of the server of figures on POSIX: of the loopback, or at a path.

#include "host/metrics/metrics_sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include "host/system/posix/descriptor.h"
#include "host/system/posix/unix_socket.h"

namespace tarvex::host {
namespace {

constexpr mode_t kForEverybody = 0666;

bool WouldBlock() { return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR; }

std::optional<std::size_t> Moved(ssize_t count) {
    if (count > 0) return static_cast<std::size_t>(count);
    return count < 0 && WouldBlock() ? std::optional<std::size_t>(0) : std::nullopt;
}

}  // namespace

struct MetricsListener::Sockets {
    void ListenOnPath(const std::string& path);
    void ListenOnPort(LoopbackPlace at);

    std::string place;
    std::string path;  // of the socket, where it has one
    Descriptor listener;
    Descriptor stop{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

std::optional<std::size_t> MetricsSocket::Receive(std::span<char> room) const {
    return Moved(recv(static_cast<int>(number_), room.data(), room.size(), MSG_DONTWAIT));
}

std::optional<std::size_t> MetricsSocket::Send(std::string_view bytes) const {
    return Moved(send(static_cast<int>(number_), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
}

void MetricsSocket::Close() const { close(static_cast<int>(number_)); }

MetricsListener::MetricsListener(const std::string& place) : sockets_(std::make_unique<Sockets>()) {
    if (place.starts_with(kUnixStart)) {
        sockets_->ListenOnPath(place.substr(kUnixStart.size()));
    } else {
        sockets_->ListenOnPort(ReadLoopbackPlace(place));
    }
}

MetricsListener::~MetricsListener() {
    if (!sockets_->path.empty()) unlink(sockets_->path.c_str());
}

void MetricsListener::Sockets::ListenOnPath(const std::string& at) {
    place = std::string(kUnixStart) + at;
    const auto address = UnixAddress(at);
    if (!address) throw BadPlace(place);
    RemoveLeftOver(at, *address);
    listener = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool listens = bind(listener.Get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0 &&
                         chmod(at.c_str(), kForEverybody) == 0 && listen(listener.Get(), kMetricsBacklog) == 0;
    if (!listens) throw CannotListen(place, std::strerror(errno));
    path = at;
}

void MetricsListener::Sockets::ListenOnPort(LoopbackPlace at) {
    sockaddr_in six_less{};
    six_less.sin_family = AF_INET;
    six_less.sin_port = htons(at.port);
    six_less.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(at.port);
    six.sin6_addr = in6addr_loopback;
    auto* const address = at.IsSix() ? reinterpret_cast<sockaddr*>(&six) : reinterpret_cast<sockaddr*>(&six_less);
    socklen_t size = at.IsSix() ? sizeof six : sizeof six_less;
    listener = Descriptor(socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int yes = 1;
    setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const bool listens = bind(listener.Get(), address, size) == 0 && listen(listener.Get(), kMetricsBacklog) == 0 &&
                         getsockname(listener.Get(), address, &size) == 0;
    if (!listens) throw CannotListen(at.host + ':' + std::to_string(at.port), std::strerror(errno));
    at.port = ntohs(at.IsSix() ? six.sin6_port : six_less.sin_port);
    place = at.Url();
}

const std::string& MetricsListener::Place() const { return sockets_->place; }

MetricsSocket MetricsListener::Accept() {
    const int number = accept4(sockets_->listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (number < 0 && !WouldBlock()) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return MetricsSocket(number);
}

bool MetricsListener::Wait(bool for_more, const std::vector<Watched>& watched, std::chrono::milliseconds time) {
    std::vector<pollfd> polled = {{sockets_->stop.Get(), POLLIN, 0}};
    for (const Watched& one : watched)
        polled.push_back({static_cast<int>(one.socket), static_cast<short>(one.to_send ? POLLOUT : POLLIN), 0});
    if (for_more) polled.push_back({sockets_->listener.Get(), POLLIN, 0});
    poll(polled.data(), polled.size(), static_cast<int>(std::max<std::int64_t>(time.count(), 0)));
    return polled[0].revents == 0;
}

void MetricsListener::Stop() { eventfd_write(sockets_->stop.Get(), 1); }

}  // namespace tarvex::host
