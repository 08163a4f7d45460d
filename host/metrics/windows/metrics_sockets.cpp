// The sockets of the server of figures on Windows: of the loopback alone. All of them raise one event, and what is
// there is tried then.

#include "host/metrics/metrics_sockets.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>

#include "host/language/tr.h"
#include "host/system/windows/handle.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

SOCKET Native(const MetricsSocket& socket) { return static_cast<SOCKET>(socket.Number()); }

std::optional<std::size_t> Moved(int count) {
    if (count > 0) return static_cast<std::size_t>(count);
    return count < 0 && WSAGetLastError() == WSAEWOULDBLOCK ? std::optional<std::size_t>(0) : std::nullopt;
}

std::string WhyNot() { return SystemMessage(static_cast<DWORD>(WSAGetLastError())); }

}  // namespace

struct MetricsListener::Sockets {
    void Listen(LoopbackPlace at);

    std::string place;
    Handle happened{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    std::atomic<bool> is_stopped{false};
    MetricsSocket listener;
};

std::optional<std::size_t> MetricsSocket::Receive(std::span<char> room) const {
    return Moved(recv(Native(*this), room.data(), static_cast<int>(room.size()), 0));
}

std::optional<std::size_t> MetricsSocket::Send(std::string_view bytes) const {
    constexpr std::size_t kPiece = 1 << 20;
    return Moved(send(Native(*this), bytes.data(), static_cast<int>(std::min(bytes.size(), kPiece)), 0));
}

void MetricsSocket::Close() const { closesocket(Native(*this)); }

MetricsListener::MetricsListener(const std::string& place) : sockets_(std::make_unique<Sockets>()) {
    if (place.starts_with(kUnixStart))
        throw CommandError(kBadUsage, Tr("on Windows metrics are served on 127.0.0.1:PORT or [::1]:PORT, not on a "
                                         "socket at a path"));
    sockets_->Listen(ReadLoopbackPlace(place));
}

MetricsListener::~MetricsListener() = default;

// Nobody else may take the port as well, which Windows allows by default, nor does a program that is started inherit
// it.
void MetricsListener::Sockets::Listen(LoopbackPlace at) {
    sockaddr_in six_less{};
    six_less.sin_family = AF_INET;
    six_less.sin_port = htons(at.port);
    six_less.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(at.port);
    six.sin6_addr = in6addr_loopback;
    auto* const address = at.IsSix() ? reinterpret_cast<sockaddr*>(&six) : reinterpret_cast<sockaddr*>(&six_less);
    int size = at.IsSix() ? sizeof six : sizeof six_less;
    listener = MetricsSocket(static_cast<std::intptr_t>(WSASocketW(
        address->sa_family, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT)));
    const SOCKET native = Native(listener);
    const BOOL yes = TRUE;
    setsockopt(native, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&yes), sizeof yes);
    const bool listens = bind(native, address, size) == 0 && listen(native, kMetricsBacklog) == 0 &&
                         getsockname(native, address, &size) == 0 &&
                         WSAEventSelect(native, happened.Get(), FD_ACCEPT) == 0;
    if (!listens) throw CannotListen(at.host + ':' + std::to_string(at.port), WhyNot());
    at.port = ntohs(at.IsSix() ? six.sin6_port : six_less.sin_port);
    place = at.Url();
}

const std::string& MetricsListener::Place() const { return sockets_->place; }

MetricsSocket MetricsListener::Accept() {
    MetricsSocket client(static_cast<std::intptr_t>(accept(Native(sockets_->listener), nullptr, nullptr)));
    if (!client.IsOpen()) {
        const int error = WSAGetLastError();
        if (error != WSAEWOULDBLOCK && error != WSAECONNRESET)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return client;
    }
    SetHandleInformation(reinterpret_cast<HANDLE>(client.Number()), HANDLE_FLAG_INHERIT, 0);
    if (WSAEventSelect(Native(client), sockets_->happened.Get(), FD_READ | FD_WRITE | FD_CLOSE) != 0)
        return MetricsSocket();
    return client;
}

bool MetricsListener::Wait(bool /*for_more*/, const std::vector<Watched>& /*watched*/, std::chrono::milliseconds time) {
    const auto most = static_cast<DWORD>(std::max<std::int64_t>(time.count(), 0));
    if (!sockets_->is_stopped) WaitForSingleObject(sockets_->happened.Get(), most);
    return !sockets_->is_stopped;
}

void MetricsListener::Stop() {
    sockets_->is_stopped = true;
    SetEvent(sockets_->happened.Get());
}

}  // namespace tarvex::host
