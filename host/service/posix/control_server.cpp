// Takes requests from commands, and answers them, without waiting for anybody.

#include "host/service/posix/control_server.h"

#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "host/service/posix/control_socket.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/users.h"

namespace tarvex::host {
namespace {

using Clock = ControlClient::Clock;

constexpr std::size_t kMaxClients = 64;
constexpr std::size_t kPiece_bytes = 64 << 10;
constexpr int kBacklog = 128;
constexpr std::chrono::milliseconds kRetryInterval{100};  // while there are no descriptors to spare
constexpr std::chrono::seconds kClientTimeout{10};        // for sending a request, for taking the answer

bool WouldBlock() { return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR; }

}  // namespace

void ControlClient::Note(const std::string& text) {
    if (note_ == text) return;
    note_ = text;
    out_ += MessageOf(ClientNote{text});
}

void ControlClient::Answer(int exit_code, const Reply& reply) { Finish(Outcome{exit_code, reply}); }

void ControlClient::Answer(const ServiceReport& report) { Finish(report); }

void ControlClient::Refuse(int exit_code, const std::string& why) { Answer(exit_code, {"", why}); }

void ControlClient::Finish(const ControlReply& reply) {
    out_ += MessageOf(reply);
    state_ = State::Answering;
    deadline_ = Clock::now() + kClientTimeout;
    std::string().swap(in_);
    request_ = ReportRequest();
    awaited.reset();
}

bool ControlClient::HasLeft() const {
    char next = 0;
    return recv(socket_.Get(), &next, sizeof next, MSG_PEEK | MSG_DONTWAIT) == 0;
}

EditedBy ControlClient::WhoAsks(const std::string& caller) const {
    const std::optional<uid_t> peer = PeerOf(socket_);
    if (!peer) return {-1, {}, caller};
    EditedBy by{*peer, UserName(*peer), caller};
    if (by.caller == by.user) by.caller.clear();
    return by;
}

bool ControlClient::Work(Clock::time_point now) {
    if (state_ != State::Waiting && now >= deadline_) return false;
    if (state_ != State::Answering && !Read()) return false;
    if (!Write()) return false;
    return state_ != State::Answering || !out_.empty();
}

// At most one piece at a time, so that no client keeps the others waiting.
bool ControlClient::Read() {
    std::array<char, kPiece_bytes> piece;
    const ssize_t count = recv(socket_.Get(), piece.data(), piece.size(), MSG_DONTWAIT);
    if (count < 0) return WouldBlock();
    // Whoever leaves before the answer does not want the change any more; and there is nothing to say after a request.
    if (count == 0 || state_ == State::Waiting) return false;
    in_.append(piece.data(), static_cast<std::size_t>(count));
    return in_.size() < kLengthBytes || TakeRequest();
}

bool ControlClient::TakeRequest() {
    const std::size_t length = LengthIn(in_);
    if (length > kMaxRequest_bytes) {
        Refuse(kBadData, "the request is too large");
        return true;
    }
    if (in_.size() < kLengthBytes + length) return true;
    if (in_.size() > kLengthBytes + length) return false;
    try {
        AskedIn asked = RequestIn(std::string_view(in_).substr(kLengthBytes));
        request_ = std::move(asked.request);
        language_ = asked.language;
        std::string().swap(in_);
        state_ = State::Waiting;
    } catch (const std::exception&) {
        Refuse(kBadData, "the request cannot be read; are the command and the service of the same version?");
    }
    return true;
}

bool ControlClient::Write() {
    if (out_.empty()) return true;
    const ssize_t count = send(socket_.Get(), out_.data(), out_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < 0) return WouldBlock();
    out_.erase(0, static_cast<std::size_t>(count));
    return true;
}

ControlServer::ControlServer(const std::string& root)
    : path_(NativePath(root).string() + kSocketName),
      listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    unlink(path_.c_str());
    const mode_t old_mask = umask(0177);
    const bool bound = bind(listener_.Get(), SocketAddress(root).Get(), SocketAddress::kSize) == 0;
    umask(old_mask);
    struct stat status {};
    if (bound && listen(listener_.Get(), kBacklog) == 0 && lstat(path_.c_str(), &status) == 0) {
        device_ = status.st_dev;
        number_ = status.st_ino;
        return;
    }
    throw CommandError(kCannotMake, "cannot listen on \"" + ShowPath(path_) + "\": " + std::strerror(errno));
}

// Another root may have taken the path of this one, with a service of its own.
ControlServer::~ControlServer() {
    struct stat status {};
    if (lstat(path_.c_str(), &status) != 0 || status.st_dev != device_ || status.st_ino != number_) return;
    unlink(path_.c_str());
}

void ControlServer::Close() {
    listener_ = Descriptor();
    clients_.clear();
}

void ControlServer::AddTo(std::vector<pollfd>& watched) const {
    if (clients_.size() < kMaxClients && Clock::now() >= accept_from_) watched.push_back({listener_.Get(), POLLIN, 0});
    for (const ControlClient& client : clients_) {
        const int events =
            (client.state_ == ControlClient::State::Answering ? 0 : POLLIN) | (client.out_.empty() ? 0 : POLLOUT);
        watched.push_back({client.socket_.Get(), static_cast<short>(events), 0});
    }
}

std::optional<ControlServer::Clock::time_point> ControlServer::Deadline() const {
    std::optional<Clock::time_point> first;
    if (accept_from_ > Clock::now()) first = accept_from_;
    for (const ControlClient& client : clients_) {
        if (!client.IsWaiting() && (!first || client.deadline_ < *first)) first = client.deadline_;
    }
    return first;
}

bool ControlServer::Work() {
    Accept();
    const Clock::time_point now = Clock::now();
    bool changed = false;
    for (auto client = clients_.begin(); client != clients_.end();) {
        const bool was_waiting = client->IsWaiting();
        const bool stays = client->Work(now);
        changed = changed || (stays && client->IsWaiting()) != was_waiting;
        client = stays ? std::next(client) : clients_.erase(client);
    }
    return changed;
}

std::vector<ControlClient*> ControlServer::Waiting() {
    std::vector<ControlClient*> waiting;
    for (ControlClient& client : clients_) {
        if (client.IsWaiting()) waiting.push_back(&client);
    }
    return waiting;
}

void ControlServer::Accept() {
    while (clients_.size() < kMaxClients) {
        Descriptor socket(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket.IsOpen()) {
            if (!WouldBlock()) accept_from_ = Clock::now() + kRetryInterval;
            return;
        }
        const bool is_allowed = HasAllowedPeer(socket);
        ControlClient& client = clients_.emplace_back(std::move(socket), Clock::now() + kClientTimeout);
        if (!is_allowed) client.Refuse(kNotAllowed, "only the owner may do this");
    }
}

}  // namespace tarvex::host
