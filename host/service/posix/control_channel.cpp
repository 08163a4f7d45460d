// The Unix socket on which the service listens.

#include "host/service/control_channel.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "host/service/posix/control_socket.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/posix/descriptor.h"
#include "host/system/posix/kept_orders.h"
#include "host/system/users.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kPiece_bytes = 64 << 10;
constexpr int kBacklog = 128;

bool WouldBlock() { return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR; }

class SocketConnection : public ControlConnection {
public:
    explicit SocketConnection(Descriptor socket) : socket_(std::move(socket)) {}

    int Number() const { return socket_.Get(); }

    Taken Read(std::string& bytes) override {
        std::array<char, kPiece_bytes> piece;
        const ssize_t count = recv(socket_.Get(), piece.data(), piece.size(), MSG_DONTWAIT);
        if (count < 0) return WouldBlock() ? Taken::Nothing : Taken::Gone;
        bytes.append(piece.data(), static_cast<std::size_t>(count));
        return count == 0 ? Taken::Gone : Taken::Some;
    }

    bool Write(std::string& bytes) override {
        const ssize_t count = send(socket_.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0) return WouldBlock();
        bytes.erase(0, static_cast<std::size_t>(count));
        return true;
    }

    bool HasLeft() override {
        char next = 0;
        return recv(socket_.Get(), &next, sizeof next, MSG_PEEK | MSG_DONTWAIT) == 0;
    }

    std::optional<bool> IsAllowed() override { return HasAllowedPeer(socket_); }

    ControlPeer Peer() override {
        const std::optional<uid_t> peer = PeerOf(socket_);
        return peer ? ControlPeer{*peer, UserName(*peer)} : ControlPeer{};
    }

private:
    Descriptor socket_;
};

}  // namespace

struct ControlChannel::Listener {
    std::string path;
    dev_t device = 0;  // of the socket that was made there
    ino_t number = 0;
    Descriptor socket;
    int orders = -1;
};

ControlChannel::ControlChannel(const std::string& root, const Orders& orders)
    : listener_(std::make_unique<Listener>()) {
    listener_->path = NativePath(root).string() + kSocketName;
    listener_->socket = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    listener_->orders = orders.Watched().signals.Get();
    const char* const path = listener_->path.c_str();
    const int socket = listener_->socket.Get();
    unlink(path);
    const mode_t old_mask = umask(0177);
    const bool bound = bind(socket, SocketAddress(root).Get(), SocketAddress::kSize) == 0;
    umask(old_mask);
    struct stat status {};
    if (!bound || listen(socket, kBacklog) != 0 || lstat(path, &status) != 0)
        throw CommandError(kCannotMake, "cannot listen on \"" + ShowPath(path) + "\": " + std::strerror(errno));
    listener_->device = status.st_dev;
    listener_->number = status.st_ino;
}

// Another root may have taken the path of this one, with a service of its own.
ControlChannel::~ControlChannel() {
    struct stat status {};
    const char* const path = listener_->path.c_str();
    if (lstat(path, &status) != 0 || status.st_dev != listener_->device || status.st_ino != listener_->number) return;
    unlink(path);
}

std::unique_ptr<ControlConnection> ControlChannel::Accept() {
    Descriptor client(accept4(listener_->socket.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (client.IsOpen()) return std::make_unique<SocketConnection>(std::move(client));
    if (WouldBlock()) return nullptr;
    throw std::system_error(errno, std::generic_category());
}

void ControlChannel::Wait(bool for_more, const std::vector<Watched>& watched, Clock::time_point until) {
    std::vector<pollfd> polled = {{listener_->orders, POLLIN, 0}};
    if (for_more) polled.push_back({listener_->socket.Get(), POLLIN, 0});
    for (const Watched& one : watched) {
        const int events = (one.to_read ? POLLIN : 0) | (one.to_write ? POLLOUT : 0);
        const auto& connection = static_cast<const SocketConnection&>(*one.connection);
        polled.push_back({connection.Number(), static_cast<short>(events), 0});
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    poll(polled.data(), polled.size(), static_cast<int>(std::max<std::int64_t>(left, 0)));
}

void ControlChannel::Close() { listener_->socket = Descriptor(); }

}  // namespace tarvex::host
