// The Unix socket of the service: its messages, the side of a command, the side of the service.

#include "host/service/posix/control_socket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/terminal/json.h"

namespace tarvex::host {
namespace {

using Clock = ControlClient::Clock;

constexpr const char* kSocketName = "/.tarvex.sock";
constexpr std::size_t kLengthBytes = 4;
constexpr std::size_t kMaxRequest = 16 << 20;  // the ids of some hundred thousand messages
constexpr std::size_t kMaxReply = 64 << 20;
constexpr std::size_t kMaxClients = 64;
constexpr std::size_t kPiece = 64 << 10;
constexpr int kMaxDepth = 3;  // of a request
constexpr int kBacklog = 128;
constexpr std::chrono::milliseconds kPause{100};
constexpr std::chrono::seconds kNoticeDelay{2};     // of a service, of which a command does not speak
constexpr std::chrono::seconds kClientTimeout{10};  // with a client that has to send or to take something

// ---- messages

// A byte in each character: Latin-1 as UTF-8.
std::string TextOf(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            text += c;
        } else {
            text += static_cast<char>(0xC0 | byte >> 6);
            text += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return text;
}

// The text is UTF-8. Throws std::invalid_argument for a character that is no byte.
std::string BytesOf(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) {
            bytes += text[i];
        } else if ((byte & 0xFC) == 0xC0 && i + 1 < text.size()) {
            bytes += static_cast<char>(byte << 6 | (text[++i] & 0x3F));
        } else {
            throw std::invalid_argument("a character that is no byte");
        }
    }
    return bytes;
}

std::string BytesIn(const Json& json) { return BytesOf(json.get_ref<const std::string&>()); }

std::string ShownIn(const Json& json) { return ShowUtf8Text(BytesIn(json)); }

std::vector<std::string> ListOf(const Json& json) {
    std::vector<std::string> list;
    list.reserve(json.size());
    for (const Json& entry : json) list.push_back(BytesIn(entry));
    return list;
}

Json JsonOf(const std::vector<std::string>& list) {
    Json json = Json::array();
    for (const std::string& entry : list) json.push_back(TextOf(entry));
    return json;
}

Json JsonOf(const EditRequest& request) {
    Json secrets = Json::object();
    for (const auto& [key, secret] : request.secrets) secrets[TextOf(key)] = TextOf(secret);
    return {{"words", JsonOf(request.words)}, {"secrets", std::move(secrets)}, {"uidls", JsonOf(request.uidls)}};
}

EditRequest EditIn(const Json& json) {
    EditRequest request;
    request.words = ListOf(json.at("words"));
    for (const auto& [key, secret] : json.at("secrets").items()) request.secrets[BytesOf(key)] = BytesIn(secret);
    request.uidls = ListOf(json.at("uidls"));
    if (request.words.size() < 2) throw std::invalid_argument("an edit needs words");
    return request;
}

Json JsonOf(const RunRequest& request) { return {{"names", JsonOf(request.names)}, {"now", request.now}}; }

RunRequest RunRequestIn(const Json& json) { return {ListOf(json.at("names")), json.at("now").get<bool>()}; }

Json JsonOf(const RunNow& run) {
    return {{"profile", TextOf(run.profile)},
            {"bytes_received", run.bytes_received},
            {"bytes_sent", run.bytes_sent},
            {"messages_to_fetch", run.messages_to_fetch},
            {"messages_fetched", run.messages_fetched},
            {"messages_delivered", run.messages_delivered}};
}

RunNow RunIn(const Json& json) {
    return {BytesIn(json.at("profile")),  json.at("bytes_received"),   json.at("bytes_sent"),
            json.at("messages_to_fetch"), json.at("messages_fetched"), json.at("messages_delivered")};
}

// What is nested deeper than a request can be is skipped.
Json Parsed(std::string_view text) {
    return Json::parse(text, [](int depth, Json::parse_event_t, const Json&) { return depth <= kMaxDepth; });
}

std::string Framed(const Json& json) {
    const std::string text = json.dump();
    std::string message;
    for (int shift = 24; shift >= 0; shift -= 8) message += static_cast<char>(text.size() >> shift & 0xFF);
    return message + text;
}

// Of the message that begins so.
std::size_t LengthIn(std::string_view bytes) {
    std::size_t length = 0;
    for (const char c : bytes.substr(0, kLengthBytes)) length = length << 8 | static_cast<unsigned char>(c);
    return length;
}

// ---- the socket

// The address of a socket that stands in a directory which may have too long a name for one: it is then reached
// through the descriptor.
class SocketAddress {
public:
    explicit SocketAddress(const std::string& root) {
        std::string path = NativePath(root).string() + kSocketName;
        if (path.size() >= sizeof address_.sun_path) {
            directory_ = Descriptor(open(NativePath(root).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
            path = "/proc/self/fd/" + std::to_string(directory_.Get()) + kSocketName;
        }
        address_.sun_family = AF_UNIX;
        std::ranges::copy(path, address_.sun_path);
    }

    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address_); }
    static constexpr socklen_t kSize = sizeof(sockaddr_un);

private:
    Descriptor directory_;
    sockaddr_un address_{};
};

bool WouldBlock() { return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR; }

bool HasAllowedPeer(const Descriptor& socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(socket.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && IsAllowedPeer(peer.uid, geteuid());
}

CommandError Gone() {
    return {kTryLater, "the service ended before it answered; see whether the change was made, and try again"};
}

// The side of a command.
class SocketConnection : public ServiceConnection {
public:
    explicit SocketConnection(Descriptor socket) : socket_(std::move(socket)) {}

    int Edit(const EditRequest& request, Reply& reply, const std::function<void(const std::string&)>& on_note) override;
    int Run(const RunRequest& request, Reply& reply, const std::function<void(const std::string&)>& on_note,
            const std::function<void()>& on_wait) override;
    ServiceReport Report() override;

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
    const std::string message = Framed({{"edit", JsonOf(request)}});
    if (message.size() > kMaxRequest) {
        throw CommandError(kBadData, "this is more than the service takes at once; stop it, and try again");
    }
    // A service answers an edit at once or tells what it waits for, unless it has been halted.
    bool heard = false;
    const auto note = [&](const std::string& text) {
        heard = true;
        on_note(text);
    };
    const auto remark = [&, from = Clock::now() + kNoticeDelay] {
        if (!heard && Clock::now() >= from) note("the service does not answer yet; waiting for it");
    };
    return Ask(message, reply, note, remark);
}

int SocketConnection::Run(const RunRequest& request, Reply& reply,
                          const std::function<void(const std::string&)>& on_note,
                          const std::function<void()>& on_wait) {
    return Ask(Framed({{"run", JsonOf(request)}}), reply, on_note, on_wait);
}

int SocketConnection::Ask(const std::string& message, Reply& reply,
                          const std::function<void(const std::string&)>& on_note,
                          const std::function<void()>& on_wait) {
    Send(message);
    for (;;) {
        if (on_wait) Wait(on_wait);
        const Json answer = Json::parse(Receive());
        if (answer.contains("note")) {
            on_note(ShownIn(answer.at("note")));
            continue;
        }
        reply.printed = ShownIn(answer.at("printed"));
        reply.error = ShownIn(answer.at("error"));
        return answer.at("code");
    }
}

void SocketConnection::Wait(const std::function<void()>& on_wait) const {
    pollfd answer{socket_.Get(), POLLIN, 0};
    while (poll(&answer, 1, static_cast<int>(kPause.count())) == 0) on_wait();
}

ServiceReport SocketConnection::Report() {
    constexpr timeval kLimit{2, 0};
    setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &kLimit, sizeof kLimit);
    Send(Framed({{"runs", true}}));
    const Json answer = Json::parse(Receive());
    if (answer.contains("error")) throw CommandError(answer.at("code"), ShownIn(answer.at("error")));
    ServiceReport report;
    for (const Json& run : answer.at("runs")) report.runs.push_back(RunIn(run));
    for (const auto& [profile, trouble] : answer.at("troubles").items()) {
        report.troubles[BytesOf(profile)] = ShownIn(trouble);
    }
    return report;
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
    if (length > kMaxReply) throw Gone();
    return receive(length);
}

}  // namespace

bool IsAllowedPeer(uid_t peer, uid_t own) { return peer == own || peer == 0; }

std::unique_ptr<ServiceConnection> ServiceConnection::Try(const std::string& root) {
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(socket.Get(), SocketAddress(root).Get(), SocketAddress::kSize) != 0) return nullptr;
    if (!HasAllowedPeer(socket)) {
        throw CommandError(kNotAllowed, "what answers for the service of \"" + ShowPath(root) + "\" is another user's");
    }
    return std::make_unique<SocketConnection>(std::move(socket));
}

// ---- the side of the service

void ControlClient::Note(const std::string& text) {
    if (note_ == text) return;
    note_ = text;
    out_ += Framed({{"note", TextOf(text)}});
}

void ControlClient::Answer(int exit_code, const Reply& reply) {
    Finish(Framed({{"code", exit_code}, {"printed", TextOf(reply.printed)}, {"error", TextOf(reply.error)}}));
}

void ControlClient::Answer(const ServiceReport& report) {
    Json runs = Json::array();
    for (const RunNow& run : report.runs) runs.push_back(JsonOf(run));
    Json troubles = Json::object();
    for (const auto& [profile, trouble] : report.troubles) troubles[TextOf(profile)] = TextOf(trouble);
    Finish(Framed({{"code", kDone}, {"runs", std::move(runs)}, {"troubles", std::move(troubles)}}));
}

void ControlClient::Refuse(int exit_code, const std::string& why) { Answer(exit_code, {"", why}); }

void ControlClient::Finish(const std::string& message) {
    out_ += message;
    state_ = State::Answering;
    deadline_ = Clock::now() + kClientTimeout;
    std::string().swap(in_);
    edit_.reset();
    run_.reset();
    awaited.reset();
}

bool ControlClient::HasLeft() const {
    char next = 0;
    return recv(socket_.Get(), &next, sizeof next, MSG_PEEK | MSG_DONTWAIT) == 0;
}

bool ControlClient::Work(Clock::time_point now) {
    if (state_ != State::Waiting && now >= deadline_) return false;
    if (state_ != State::Answering && !Read()) return false;
    if (!Write()) return false;
    return state_ != State::Answering || !out_.empty();
}

// At most one piece at a time, so that no client keeps the others waiting.
bool ControlClient::Read() {
    std::array<char, kPiece> piece;
    const ssize_t count = recv(socket_.Get(), piece.data(), piece.size(), MSG_DONTWAIT);
    if (count < 0) return WouldBlock();
    // Whoever leaves before the answer does not want the change any more; and there is nothing to say after a request.
    if (count == 0 || state_ == State::Waiting) return false;
    in_.append(piece.data(), static_cast<std::size_t>(count));
    return in_.size() < kLengthBytes || TakeRequest();
}

bool ControlClient::TakeRequest() {
    const std::size_t length = LengthIn(in_);
    if (length > kMaxRequest) {
        Refuse(kBadData, "the request is too large");
        return true;
    }
    if (in_.size() < kLengthBytes + length) return true;
    if (in_.size() > kLengthBytes + length) return false;
    try {
        const Json request = Parsed(std::string_view(in_).substr(kLengthBytes));
        if (request.contains("edit")) {
            edit_ = EditIn(request.at("edit"));
        } else if (request.contains("run")) {
            run_ = RunRequestIn(request.at("run"));
        } else {
            request.at("runs");
        }
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
            if (!WouldBlock()) accept_from_ = Clock::now() + kPause;
            return;
        }
        const bool is_allowed = HasAllowedPeer(socket);
        ControlClient& client = clients_.emplace_back(std::move(socket), Clock::now() + kClientTimeout);
        if (!is_allowed) client.Refuse(kNotAllowed, "only the owner may do this");
    }
}

}  // namespace tarvex::host
