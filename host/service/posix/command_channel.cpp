// A command's end of the Unix socket.

#include "host/service/command_channel.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <utility>

#include "host/language/tr.h"
#include "host/service/posix/control_socket.h"
#include "host/system/command_error.h"
#include "host/system/display.h"

namespace tarvex::host {
namespace {

constexpr timeval kConnectPatience{1, 0};

void SetLimit(const Descriptor& socket, int option, const timeval& time) {
    setsockopt(socket.Get(), SOL_SOCKET, option, &time, sizeof time);
}

class SocketChannel : public CommandChannel {
public:
    explicit SocketChannel(Descriptor socket) : socket_(std::move(socket)) {}

    bool Send(std::string_view bytes) override {
        while (!bytes.empty()) {
            const ssize_t sent = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent < 0 && (errno == EPIPE || errno == ECONNRESET)) return true;
            if (sent < 0 && errno != EINTR) return false;
            if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }

    bool HasMore(std::chrono::milliseconds time) override {
        pollfd answer{socket_.Get(), POLLIN, 0};
        return poll(&answer, 1, static_cast<int>(time.count())) != 0;
    }

    std::optional<std::string> Receive(std::size_t size) override {
        std::string bytes(size, '\0');
        std::size_t done = 0;
        while (done < size) {
            const ssize_t count = recv(socket_.Get(), bytes.data() + done, size - done, 0);
            if (count == 0 || (count < 0 && errno != EINTR)) return std::nullopt;
            if (count > 0) done += static_cast<std::size_t>(count);
        }
        return bytes;
    }

    void SetPatience(std::chrono::milliseconds patience) override {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(patience);
        SetLimit(socket_, SO_RCVTIMEO, {seconds.count(), std::chrono::microseconds(patience - seconds).count()});
    }

private:
    Descriptor socket_;
};

}  // namespace

// Of a service that was halted the queue is full some day: whoever gave up stands in it as well.
std::unique_ptr<CommandChannel> CommandChannel::Open(const std::string& root) {
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    SetLimit(socket, SO_SNDTIMEO, kConnectPatience);
    if (connect(socket.Get(), SocketAddress(root).Get(), SocketAddress::kSize) != 0) {
        if (errno != EAGAIN) return nullptr;
        throw CommandError(kTryLater, Tr("the service that owns the tree does not answer"));
    }
    SetLimit(socket, SO_SNDTIMEO, {});
    if (!HasAllowedPeer(socket)) {
        throw CommandError(kNotAllowed,
                           Tr("what answers for the service of \"{0}\" is another user's", ShowPath(root)));
    }
    return std::make_unique<SocketChannel>(std::move(socket));
}

}  // namespace tarvex::host
