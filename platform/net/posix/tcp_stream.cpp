// TCP by the system's sockets and poll.

#include "platform/net/tcp_stream.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace tarvex {

namespace {

constexpr std::size_t kMaxParts = 8;

std::string Message(int error) { return std::system_category().message(error); }

FailureKind ConnectFailureKind(int error) {
    switch (error) {
        case ECONNREFUSED:
            return FailureKind::NotListening;
        case EHOSTDOWN:
        case EHOSTUNREACH:
        case ENETDOWN:
        case ENETUNREACH:
            return FailureKind::NoRoute;
        case EMFILE:
        case ENFILE:
        case ENOBUFS:
        case ENOMEM:
            return FailureKind::Local;
        default:
            return FailureKind::NoConnection;
    }
}

struct SystemAddress {
    sockaddr_storage storage{};
    socklen_t length = 0;
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

Transfer ToTransfer(ssize_t result) {
    if (result > 0) return {Transfer::Status::Progress, static_cast<std::size_t>(result)};
    if (result == 0) return {Transfer::Status::Ended};
    if (errno == EAGAIN || errno == EINTR) return {Transfer::Status::WouldBlock};
    return {Transfer::Status::Failed, 0, Message(errno)};
}

// A server that writes an answer in pieces may hold each back until the one before is acknowledged (Nagle's algorithm),
// and the system delays that by 40 ms in the hope of something to send with it. The socket does not keep the option.
void AcknowledgeAtOnce(int socket) {
    const int on = 1;
    (void)::setsockopt(socket, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
}

// Small commands must not wait for the acknowledgement of the one before. No matter for a socket that is not TCP.
void SendAtOnce(int socket) {
    const int on = 1;
    (void)::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

}  // namespace

void CloseSocket(std::intptr_t socket) noexcept {
    if (socket >= 0) ::close(static_cast<int>(socket));
}

TcpStream::~TcpStream() { Close(); }

bool TcpStream::Reserve() {
    Close();
    return OpenSocket(false) || OpenSocket(true);
}

Failure TcpStream::Adopt(std::intptr_t socket) {
    Close();
    socket_ = static_cast<int>(socket);
    const int flags = ::fcntl(socket_, F_GETFL);
    if (flags < 0 || ::fcntl(socket_, F_SETFL, flags | O_NONBLOCK) != 0 || ::fcntl(socket_, F_SETFD, FD_CLOEXEC) != 0) {
        Failure failure{FailureKind::Local, "the connection that was given cannot be used: " + Message(errno)};
        Close();
        return failure;
    }
    SendAtOnce(socket_);
    return {};
}

std::intptr_t TcpStream::Release() { return std::exchange(socket_, -1); }

bool TcpStream::OpenSocket(bool ipv6) {
    socket_ = ::socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
    is_ipv6_ = ipv6;
    return socket_ >= 0;
}

Failure TcpStream::Connect(const NetworkAddress& address, int port, const Deadline& deadline) {
    if (socket_ >= 0 && is_ipv6_ != address.is_ipv6) Close();
    if (socket_ < 0 && !OpenSocket(address.is_ipv6)) return {ConnectFailureKind(errno), Message(errno)};
    SendAtOnce(socket_);
    const SystemAddress target = ToSystem(address, port);
    Failure failure;
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&target.storage), target.length) != 0) {
        int error = errno;
        if (error == EINPROGRESS || error == EINTR) {
            failure = Wait(Event::ToConnect, deadline);
            socklen_t length = sizeof error;
            if (!failure && ::getsockopt(socket_, SOL_SOCKET, SO_ERROR, &error, &length) != 0) error = errno;
        }
        if (!failure && error != 0) failure = {ConnectFailureKind(error), Message(error)};
    }
    if (failure) Close();
    return failure;
}

Transfer TcpStream::Send(std::span<const std::string_view> parts) {
    std::array<iovec, kMaxParts> vectors;
    const std::size_t count = std::min(parts.size(), vectors.size());
    for (std::size_t i = 0; i < count; ++i) vectors[i] = {const_cast<char*>(parts[i].data()), parts[i].size()};
    msghdr message{};
    message.msg_iov = vectors.data();
    message.msg_iovlen = count;
    // A server that has gone must not end the process with SIGPIPE.
    Transfer sent = ToTransfer(::sendmsg(socket_, &message, MSG_NOSIGNAL));
    if (sent.bytes > 0) received_since_sent_ = false;
    return sent;
}

Transfer TcpStream::Receive(char* buffer, std::size_t size_bytes) {
    Transfer received = ToTransfer(::recv(socket_, buffer, size_bytes, 0));
    if (received.bytes > 0) received_since_sent_ = true;
    return received;
}

Failure TcpStream::Wait(Event event, const Deadline& deadline) {
    const short events = event == Event::ToRead ? POLLIN : event == Event::ToReadOrWrite ? POLLIN | POLLOUT : POLLOUT;
    // The socket is registered only while this thread is in here, so it is never closed under an interruption. A worker
    // that was interrupted before wakes at once.
    const InterruptScope scope(*this);
    // An answer that came in one piece is acknowledged with the next command.
    if (received_since_sent_) AcknowledgeAtOnce(socket_);
    for (;;) {
        pollfd target{socket_, events, 0};
        const int ready = interrupted_ ? 0 : ::poll(&target, 1, deadline.RemainingMs());
        const int error = errno;
        if (interrupted_) return {FailureKind::Interrupted, "interrupted"};
        if (ready > 0) return {};
        if (ready < 0 && error != EINTR) return {FailureKind::Local, Message(error)};
        if (deadline.HasPassed()) return {FailureKind::TimedOut, "no answer in time"};
    }
}

void TcpStream::Close() { CloseSocket(std::exchange(socket_, -1)); }

void TcpStream::Interrupt() noexcept {
    interrupted_ = true;
    if (socket_ >= 0) ::shutdown(socket_, SHUT_RDWR);
}

}  // namespace tarvex
