// TCP by Windows Sockets and select.
//
// On Windows shutting a socket down wakes no waiting thread. So Wait also waits for a second socket, which Interrupt
// makes readable.

#include "platform/net/tcp_stream.h"

#include <winsock2.h>
#include <ws2tcpip.h>
// It needs what those two declare.
#include <mstcpip.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <utility>

#include "platform/net/windows/socket_error.h"

namespace tarvex {

namespace {

constexpr std::size_t kMaxParts = 8;

// The system would take a message of any size at once, and the time that its last byte needs would count as the
// server's.
constexpr std::size_t kMaxSentBytes = 65536;

struct SystemAddress {
    sockaddr_storage storage{};
    int length = 0;
};

SystemAddress ToSystem(const NetworkAddress& address, int port) {
    SystemAddress result;
    if (address.is_ipv6) {
        sockaddr_in6 ipv6{};
        ipv6.sin6_family = AF_INET6;
        ipv6.sin6_port = htons(static_cast<std::uint16_t>(port));
        ipv6.sin6_scope_id = address.scope;
        std::memcpy(&ipv6.sin6_addr, address.bytes.data(), sizeof ipv6.sin6_addr);
        std::memcpy(&result.storage, &ipv6, sizeof ipv6);
        result.length = sizeof ipv6;
    } else {
        sockaddr_in ipv4{};
        ipv4.sin_family = AF_INET;
        ipv4.sin_port = htons(static_cast<std::uint16_t>(port));
        std::memcpy(&ipv4.sin_addr, address.bytes.data(), sizeof ipv4.sin_addr);
        std::memcpy(&result.storage, &ipv4, sizeof ipv4);
        result.length = sizeof ipv4;
    }
    return result;
}

// The socket's number as the class keeps it: a handle fits, and INVALID_SOCKET is -1.
SOCKET Handle(int socket) { return static_cast<SOCKET>(socket); }

int Open(int family, int type, int protocol) {
    const SOCKET socket =
        WSASocketW(family, type, protocol, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    u_long on = 1;
    if (socket != INVALID_SOCKET) ioctlsocket(socket, static_cast<long>(FIONBIO), &on);
    return static_cast<int>(socket);
}

// A datagram socket that is connected to itself.
int OpenWakeUp() {
    const int socket = Open(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const system_address = reinterpret_cast<sockaddr*>(&address);
    int length = sizeof address;
    if (socket >= 0 && (::bind(Handle(socket), system_address, length) != 0 ||
                        ::getsockname(Handle(socket), system_address, &length) != 0 ||
                        ::connect(Handle(socket), system_address, length) != 0)) {
        ::closesocket(Handle(socket));
        return -1;
    }
    return socket;
}

Transfer ToTransfer(int result, std::size_t bytes) {
    if (result == 0 && bytes > 0) return {Transfer::Status::Progress, bytes};
    if (result == 0) return {Transfer::Status::Ended};
    const int error = WSAGetLastError();
    if (error == WSAEWOULDBLOCK || error == WSAENOBUFS) return {Transfer::Status::WouldBlock};
    return {Transfer::Status::Failed, 0, SocketErrorText(error)};
}

timeval ToTimeval(int milliseconds) { return {milliseconds / 1000, milliseconds % 1000 * 1000}; }

// Small commands must not wait for the acknowledgement of the one before.
void SendAtOnce(SOCKET socket) {
    const BOOL on = TRUE;
    (void)::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
}

// A server that writes an answer in pieces may hold each back until the one before is acknowledged (Nagle's algorithm),
// and the system delays that by up to 200 ms in the hope of something to send with it. An older system knows no better.
void AcknowledgeAtOnce(SOCKET socket) {
    int segments = 1;
    DWORD unused = 0;
    (void)::WSAIoctl(socket, SIO_TCP_SET_ACK_FREQUENCY, &segments, sizeof segments, nullptr, 0, &unused, nullptr,
                     nullptr);
}

}  // namespace

void CloseSocket(std::intptr_t socket) noexcept {
    if (socket >= 0) ::closesocket(static_cast<SOCKET>(socket));
}

TcpStream::~TcpStream() { Close(); }

bool TcpStream::Reserve() {
    Close();
    return OpenSocket(false) || OpenSocket(true);
}

Failure TcpStream::Adopt(std::intptr_t socket) {
    Close();
    socket_ = static_cast<int>(socket);
    u_long on = 1;
    if (::ioctlsocket(Handle(socket_), static_cast<long>(FIONBIO), &on) == 0) wake_up_ = OpenWakeUp();
    if (wake_up_ < 0) {
        const std::string words = SocketErrorText(WSAGetLastError());
        Close();
        return {FailureKind::Local, "the connection that was given cannot be used: " + words};
    }
    (void)::SetHandleInformation(reinterpret_cast<HANDLE>(Handle(socket_)), HANDLE_FLAG_INHERIT, 0);
    SendAtOnce(Handle(socket_));
    AcknowledgeAtOnce(Handle(socket_));
    return {};
}

std::intptr_t TcpStream::Release() {
    CloseSocket(std::exchange(wake_up_, -1));
    return std::exchange(socket_, -1);
}

bool TcpStream::OpenSocket(bool ipv6) {
    socket_ = Open(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM, IPPROTO_TCP);
    is_ipv6_ = ipv6;
    if (socket_ >= 0) wake_up_ = OpenWakeUp();
    if (socket_ >= 0 && wake_up_ < 0) CloseSocket(std::exchange(socket_, -1));
    return socket_ >= 0;
}

Failure TcpStream::Connect(const NetworkAddress& address, int port, const Deadline& deadline) {
    if (socket_ >= 0 && is_ipv6_ != address.is_ipv6) Close();
    if (socket_ < 0 && !OpenSocket(address.is_ipv6)) {
        const int error = WSAGetLastError();
        return {ConnectFailureKind(error), SocketErrorText(error)};
    }
    SendAtOnce(Handle(socket_));
    const SystemAddress target = ToSystem(address, port);
    Failure failure;
    if (::connect(Handle(socket_), reinterpret_cast<const sockaddr*>(&target.storage), target.length) != 0) {
        int error = WSAGetLastError();
        if (error == WSAEWOULDBLOCK) {
            failure = Wait(Event::ToConnect, deadline);
            int length = sizeof error;
            if (!failure &&
                ::getsockopt(Handle(socket_), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &length) != 0) {
                error = WSAGetLastError();
            }
        }
        if (!failure && error != 0) failure = {ConnectFailureKind(error), SocketErrorText(error)};
    }
    if (failure) Close();
    if (!failure) AcknowledgeAtOnce(Handle(socket_));
    return failure;
}

Transfer TcpStream::Send(std::span<const std::string_view> parts) {
    std::array<WSABUF, kMaxParts> buffers;
    const std::size_t count = std::min(parts.size(), buffers.size());
    std::size_t room_bytes = kMaxSentBytes;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string_view part = parts[i].substr(0, room_bytes);
        buffers[i] = {static_cast<u_long>(part.size()), const_cast<char*>(part.data())};
        room_bytes -= part.size();
    }
    DWORD bytes = 0;
    const int result =
        ::WSASend(Handle(socket_), buffers.data(), static_cast<DWORD>(count), &bytes, 0, nullptr, nullptr);
    return ToTransfer(result, bytes);
}

Transfer TcpStream::Receive(char* buffer, std::size_t size_bytes) {
    const auto room_bytes = static_cast<int>(std::min<std::size_t>(size_bytes, std::numeric_limits<int>::max()));
    const int result = ::recv(Handle(socket_), buffer, room_bytes, 0);
    return ToTransfer(std::min(result, 0), static_cast<std::size_t>(std::max(result, 0)));
}

Failure TcpStream::Wait(Event event, const Deadline& deadline) {
    const SOCKET socket = Handle(socket_);
    // The socket is registered only while this thread is in here, so it is never closed under an interruption. A worker
    // that was interrupted before wakes at once.
    const InterruptScope scope(*this);
    for (;;) {
        fd_set to_read, to_write, failed;
        FD_ZERO(&to_read);
        FD_ZERO(&to_write);
        FD_ZERO(&failed);
        FD_SET(Handle(wake_up_), &to_read);
        // A connection that could not be made; later only urgent data would end the wait there, which nobody takes.
        if (event == Event::ToConnect) FD_SET(socket, &failed);
        if (event == Event::ToRead || event == Event::ToReadOrWrite) FD_SET(socket, &to_read);
        if (event != Event::ToRead) FD_SET(socket, &to_write);
        timeval time = ToTimeval(deadline.RemainingMs());
        const int ready = interrupted_ ? 0 : ::select(0, &to_read, &to_write, &failed, &time);
        if (interrupted_) return {FailureKind::Interrupted, "interrupted"};
        if (ready > 0) return {};
        if (ready < 0) return {FailureKind::Local, SocketErrorText(WSAGetLastError())};
        if (deadline.HasPassed()) return {FailureKind::TimedOut, "no answer in time"};
    }
}

void TcpStream::Close() {
    CloseSocket(std::exchange(socket_, -1));
    CloseSocket(std::exchange(wake_up_, -1));
}

void TcpStream::Interrupt() noexcept {
    interrupted_ = true;
    if (socket_ < 0) return;
    ::shutdown(Handle(socket_), SD_BOTH);
    ::send(Handle(wake_up_), "", 1, 0);
}

}  // namespace tarvex
