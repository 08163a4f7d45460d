// The side of a command: asks the service, and waits for its answer.

#include "host/service/service_connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <string_view>

#include "host/language/tr.h"
#include "host/service/control_messages.h"
#include "host/service/posix/control_socket.h"
#include "host/system/command_error.h"
#include "host/system/display.h"

namespace tarvex::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxReply_bytes = 64 << 20;
constexpr std::chrono::milliseconds kProgressInterval{100};
constexpr std::chrono::seconds kNoticeDelay{2};  // until a silent service is spoken of
constexpr timeval kConnectPatience{1, 0};

void SetSendTimeout(const Descriptor& socket, const timeval& time) {
    setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
}

CommandError Gone() {
    return {kTryLater, Tr("the service ended before it answered; see whether the change was made, and try again")};
}

std::string Sized(std::string message) {
    if (message.size() <= kMaxRequest_bytes) return message;
    throw CommandError(kBadData, Tr("this is more than the service takes at once; stop it, and try again"));
}

// The side of a command.
class SocketConnection : public ServiceConnection {
public:
    explicit SocketConnection(Descriptor socket) : socket_(std::move(socket)) {}

    int Edit(const EditRequest& request, Reply& reply, const std::function<void(const std::string&)>& on_note) override;
    int Run(const RunRequest& request, Reply& reply, const std::function<void(const std::string&)>& on_note,
            const std::function<void()>& on_wait) override;
    int Held(const HeldRequest& request, Reply& reply, const std::function<void(const std::string&)>& on_note) override;
    ServiceReport Report(std::chrono::milliseconds patience) override;

private:
    int Ask(const std::string& message, Reply& reply, const std::function<void(const std::string&)>& on_note,
            const std::function<void()>& on_wait);
    void Send(const std::string& message) const;
    void Wait(const std::function<void()>& on_wait) const;
    std::string Receive() const;

    Descriptor socket_;
};

int SocketConnection::Edit(const EditRequest& request, Reply& reply,
                           const std::function<void(const std::string&)>& on_note) {
    const std::string message = Sized(MessageOf(ControlRequest(request)));
    // A service answers an edit at once or tells what it waits for, unless it has been halted.
    bool heard = false;
    const auto note = [&](const std::string& text) {
        heard = true;
        on_note(text);
    };
    const auto remark = [&, from = Clock::now() + kNoticeDelay] {
        if (!heard && Clock::now() >= from) note(Tr("the service does not answer yet; waiting for it"));
    };
    return Ask(message, reply, note, remark);
}

int SocketConnection::Run(const RunRequest& request, Reply& reply,
                          const std::function<void(const std::string&)>& on_note,
                          const std::function<void()>& on_wait) {
    return Ask(MessageOf(ControlRequest(request)), reply, on_note, on_wait);
}

int SocketConnection::Held(const HeldRequest& request, Reply& reply,
                           const std::function<void(const std::string&)>& on_note) {
    return Ask(Sized(MessageOf(ControlRequest(request))), reply, on_note, {});
}

int SocketConnection::Ask(const std::string& message, Reply& reply,
                          const std::function<void(const std::string&)>& on_note,
                          const std::function<void()>& on_wait) {
    Send(message);
    for (;;) {
        if (on_wait) Wait(on_wait);
        const ControlReply answer = ReplyIn(Receive());
        if (const auto* const note = std::get_if<ClientNote>(&answer)) {
            on_note(note->text);
            continue;
        }
        const auto& outcome = std::get<Outcome>(answer);
        reply = outcome.reply;
        return outcome.exit_code;
    }
}

void SocketConnection::Wait(const std::function<void()>& on_wait) const {
    pollfd answer{socket_.Get(), POLLIN, 0};
    while (poll(&answer, 1, static_cast<int>(kProgressInterval.count())) == 0) on_wait();
}

ServiceReport SocketConnection::Report(std::chrono::milliseconds patience) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(patience);
    const timeval limit{seconds.count(), std::chrono::microseconds(patience - seconds).count()};
    setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    Send(MessageOf(ControlRequest()));
    const ControlReply answer = ReplyIn(Receive());
    if (const auto* const refusal = std::get_if<Outcome>(&answer)) {
        throw CommandError(refusal->exit_code, refusal->reply.error);
    }
    return std::get<ServiceReport>(answer);
}

void SocketConnection::Send(const std::string& message) const {
    std::string_view rest = message;
    while (!rest.empty()) {
        const ssize_t sent = send(socket_.Get(), rest.data(), rest.size(), MSG_NOSIGNAL);
        // A service that refuses does not read on; its answer tells why.
        if (sent < 0 && (errno == EPIPE || errno == ECONNRESET)) return;
        if (sent < 0 && errno != EINTR) throw Gone();
        if (sent > 0) rest.remove_prefix(static_cast<std::size_t>(sent));
    }
}

std::string SocketConnection::Receive() const {
    const auto receive = [this](std::size_t size) {
        std::string bytes(size, '\0');
        std::size_t done = 0;
        while (done < size) {
            const ssize_t count = recv(socket_.Get(), bytes.data() + done, size - done, 0);
            if (count == 0 || (count < 0 && errno != EINTR)) throw Gone();
            if (count > 0) done += static_cast<std::size_t>(count);
        }
        return bytes;
    };
    const std::size_t length = LengthIn(receive(kLengthBytes));
    if (length > kMaxReply_bytes) throw Gone();
    return receive(length);
}

}  // namespace

// Of a service that was halted the queue is full some day: whoever gave up stands in it as well.
std::unique_ptr<ServiceConnection> ServiceConnection::Try(const std::string& root) {
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    SetSendTimeout(socket, kConnectPatience);
    if (connect(socket.Get(), SocketAddress(root).Get(), SocketAddress::kSize) != 0) {
        if (errno != EAGAIN) return nullptr;
        throw CommandError(kTryLater, Tr("the service that owns the tree does not answer"));
    }
    SetSendTimeout(socket, {});
    if (!HasAllowedPeer(socket)) {
        throw CommandError(kNotAllowed,
                           Tr("what answers for the service of \"{0}\" is another user's", ShowPath(root)));
    }
    return std::make_unique<SocketConnection>(std::move(socket));
}

}  // namespace tarvex::host
