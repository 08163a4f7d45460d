// The Unix socket of the desk. The file system decides who may connect: the socket is for its owner and for one group.

#include "host/desk/desk_channel.h"

#include <grp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <thread>

#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/system/posix/descriptor.h"
#include "host/system/posix/unix_socket.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;
using Clock = DeskConnection::Clock;

constexpr int kBacklog = 64;
constexpr mode_t kForGroup = 0660;

void GiveToGroup(const std::string& path, const std::string& group) {
    if (group.empty()) return;
    const struct group* const entry = getgrnam(group.c_str());
    if (!entry) throw CannotListenForConsole(path, Tr("there is no group \"{0}\"", ShowUtf8Text(group)));
    if (chown(path.c_str(), static_cast<uid_t>(-1), entry->gr_gid) != 0)
        throw CannotListenForConsole(path, std::strerror(errno));
}

class SocketConnection : public DeskConnection {
public:
    explicit SocketConnection(Descriptor socket) : socket_(std::move(socket)) {}

    bool Read(std::size_t bytes, Clock::time_point deadline, std::string& text) override {
        std::array<char, 64 << 10> piece;
        while (text.size() < bytes) {
            if (!Await(POLLIN, deadline)) return false;
            const ssize_t count =
                recv(socket_.Get(), piece.data(), std::min(piece.size(), bytes - text.size()), MSG_DONTWAIT);
            if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
            if (count <= 0) return false;
            text.append(piece.data(), static_cast<std::size_t>(count));
        }
        return true;
    }

    void Write(std::string_view text, Clock::time_point deadline) override {
        while (!text.empty() && Await(POLLOUT, deadline)) {
            const ssize_t count = send(socket_.Get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
            if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
            if (count <= 0) return;
            text.remove_prefix(static_cast<std::size_t>(count));
        }
    }

private:
    // False when it did not become so in time.
    bool Await(short events, Clock::time_point deadline) const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd watched{socket_.Get(), events, 0};
        return left > 0ms && poll(&watched, 1, static_cast<int>(left.count())) > 0;
    }

    Descriptor socket_;
};

}  // namespace

struct DeskListener::Way {
    std::string path;
    Descriptor listener{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    Descriptor stop{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

DeskListener::DeskListener(const std::string& place, const std::string& group) : way_(std::make_unique<Way>()) {
    const auto address = UnixAddress(place);
    if (!address) throw CannotListenForConsole(place, place.empty() ? "no path" : std::strerror(ENAMETOOLONG));
    RemoveLeftOver(place, *address);
    const int socket = way_->listener.Get();
    const mode_t old_mask = umask(0177);
    const bool bound = bind(socket, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0;
    const int error = errno;
    umask(old_mask);
    if (!bound) throw CannotListenForConsole(place, std::strerror(error));
    try {
        GiveToGroup(place, group);
        if (chmod(place.c_str(), kForGroup) != 0 || listen(socket, kBacklog) != 0)
            throw CannotListenForConsole(place, std::strerror(errno));
        way_->path = place;
    } catch (...) {
        unlink(place.c_str());
        throw;
    }
}

DeskListener::~DeskListener() { unlink(way_->path.c_str()); }

std::unique_ptr<DeskConnection> DeskListener::Accept(std::chrono::milliseconds time,
                                                     const std::function<void()>& rest) {
    for (;;) {
        std::array<pollfd, 2> watched = {{{way_->stop.Get(), POLLIN, 0}, {way_->listener.Get(), POLLIN, 0}}};
        const int ready = poll(watched.data(), watched.size(), static_cast<int>(time.count()));
        if (watched[0].revents != 0) return nullptr;
        if (ready == 0) rest();
        if (ready <= 0) continue;
        Descriptor client(accept4(way_->listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (client.IsOpen()) return std::make_unique<SocketConnection>(std::move(client));
        const bool lacks_descriptors = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
        if (lacks_descriptors) std::this_thread::sleep_for(100ms);
    }
}

void DeskListener::Stop() { eventfd_write(way_->stop.Get(), 1); }

}  // namespace tarvex::host
