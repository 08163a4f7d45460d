// A few threads that each answer one question at a time.

#include "host/desk/posix/desk_server.h"

#include <grp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <optional>
#include <utility>

#include "host/language/tr.h"
#include "host/service/control_messages.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/posix/unix_socket.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int kBacklog = 64;
constexpr std::chrono::milliseconds kRest = 1min;
constexpr auto kPatience = 10s;  // for a question, and for taking its answer
constexpr int kMostDepth = 4;    // of a question
constexpr mode_t kForGroup = 0660;

CommandError CannotListen(const std::string& path, const std::string& why) {
    return {kCannotMake, Tr("cannot listen for the console on \"{0}\": {1}", ShowUtf8Text(path), why)};
}

void GiveToGroup(const std::string& path, const std::string& group) {
    if (group.empty()) return;
    const struct group* const entry = getgrnam(group.c_str());
    if (!entry) throw CannotListen(path, Tr("there is no group \"{0}\"", ShowUtf8Text(group)));
    if (chown(path.c_str(), static_cast<uid_t>(-1), entry->gr_gid) != 0) throw CannotListen(path, std::strerror(errno));
}

// False when it did not become so in time.
bool Await(const Descriptor& socket, short events, Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd watched{socket.Get(), events, 0};
    return left > 0ms && poll(&watched, 1, static_cast<int>(left.count())) > 0;
}

bool Read(const Descriptor& socket, std::size_t bytes, Clock::time_point deadline, std::string& text) {
    std::array<char, 64 << 10> piece;
    while (text.size() < bytes) {
        if (!Await(socket, POLLIN, deadline)) return false;
        const ssize_t count =
            recv(socket.Get(), piece.data(), std::min(piece.size(), bytes - text.size()), MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (count <= 0) return false;
        text.append(piece.data(), static_cast<std::size_t>(count));
    }
    return true;
}

void Write(const Descriptor& socket, std::string_view text, Clock::time_point deadline) {
    while (!text.empty() && Await(socket, POLLOUT, deadline)) {
        const ssize_t count = send(socket.Get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (count <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::string WithLength(std::string text) {
    std::string message;
    for (int shift = 24; shift >= 0; shift -= 8) message += static_cast<char>(text.size() >> shift & 0xFF);
    return message += text;
}

}  // namespace

DeskServer::DeskServer(DeskOptions options, const std::string& path, const std::string& group)
    : desk_(std::move(options)),
      listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      stop_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    const auto address = UnixAddress(path);
    if (!address) throw CannotListen(path, path.empty() ? "no path" : std::strerror(ENAMETOOLONG));
    RemoveLeftOver(path, *address);
    const mode_t old_mask = umask(0177);
    const bool bound = bind(listener_.Get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0;
    const int error = errno;
    umask(old_mask);
    if (!bound) throw CannotListen(path, std::strerror(error));
    path_ = path;
    try {
        GiveToGroup(path, group);
        if (chmod(path.c_str(), kForGroup) != 0 || listen(listener_.Get(), kBacklog) != 0)
            throw CannotListen(path, std::strerror(errno));
        for (int i = 0; i < kWorkers; ++i) workers_.emplace_back([this] { Serve(); });
    } catch (...) {
        eventfd_write(stop_.Get(), 1);
        for (std::thread& worker : workers_) worker.join();
        unlink(path_.c_str());
        throw;
    }
}

DeskServer::~DeskServer() {
    eventfd_write(stop_.Get(), 1);
    for (std::thread& worker : workers_) worker.join();
    unlink(path_.c_str());
}

void DeskServer::Serve() {
    for (;;) {
        std::array<pollfd, 2> watched = {{{stop_.Get(), POLLIN, 0}, {listener_.Get(), POLLIN, 0}}};
        const int ready = poll(watched.data(), watched.size(), static_cast<int>(kRest.count()));
        if (watched[0].revents != 0) return;
        if (ready == 0) desk_.Rest();
        try {
            AnswerOne();
        } catch (const std::exception&) {  // no memory: the client gets no answer
        }
    }
}

void DeskServer::AnswerOne() {
    const Descriptor client(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (client.IsOpen()) return AnswerTo(client);
    const bool lacks_descriptors = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
    if (lacks_descriptors) std::this_thread::sleep_for(100ms);
}

void DeskServer::AnswerTo(const Descriptor& client) {
    const auto deadline = Clock::now() + kPatience;
    std::string length;
    if (!Read(client, kLengthBytes, deadline, length)) return;
    const std::size_t bytes = LengthIn(length);
    if (bytes > kMostQuestion_bytes) return Write(client, WithLength(R"({"status":"bad"})"), deadline);
    std::string text;
    if (!Read(client, bytes, deadline, text)) return;
    const auto is_shallow = [](int depth, Json::parse_event_t, const Json&) { return depth <= kMostDepth; };
    const Json question = Json::parse(text, is_shallow, false);
    const Json answer = question.is_discarded() ? Json{{"status", "bad"}} : desk_.Answer(question);
    Write(client, WithLength(answer.dump(-1, ' ', false, Json::error_handler_t::replace)), Clock::now() + kPatience);
}

}  // namespace tarvex::host
