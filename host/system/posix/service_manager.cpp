// Sends the datagrams that systemd expects of a service.

#include "host/system/service_manager.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

#include "host/system/posix/descriptor.h"

namespace tarvex::host {
namespace {

std::string_view Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value ? value : "";
}

// Nothing for what is no number above zero.
std::optional<std::int64_t> Number(std::string_view text) {
    std::int64_t number = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || rest != text.data() + text.size() || number <= 0) return std::nullopt;
    return number;
}

}  // namespace

struct ServiceManager::Line {
    std::string address;  // as in NOTIFY_SOCKET
    Descriptor socket;
    std::optional<std::chrono::microseconds> interval;

    void Tell(const std::string& text) const;
};

ServiceManager::ServiceManager() : line_(std::make_unique<Line>()) {
    line_->address = Variable("NOTIFY_SOCKET");
    const std::string& address = line_->address;
    const bool is_address = address.starts_with('/') || address.starts_with('@');
    if (!is_address || address.size() < 2 || address.size() >= sizeof(sockaddr_un::sun_path)) return;
    line_->socket = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    constexpr timeval kSendTimeout{1, 0};  // with a manager that does not read
    setsockopt(line_->socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &kSendTimeout, sizeof kSendTimeout);

    const std::string_view watched = Variable("WATCHDOG_PID");  // of another process: not meant for this one
    const auto limit = Number(Variable("WATCHDOG_USEC"));
    if (limit && (watched.empty() || Number(watched) == getpid()))
        line_->interval = std::chrono::microseconds(*limit / 2);
}

ServiceManager::~ServiceManager() = default;

void ServiceManager::Ready() const { line_->Tell("READY=1"); }

void ServiceManager::Reloading() const {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const std::int64_t microseconds = std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
    line_->Tell("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(microseconds));
}

void ServiceManager::Holding() const {}  // systemd knows of no such thing

void ServiceManager::Stopping() const { line_->Tell("STOPPING=1"); }

void ServiceManager::KeepAlive() const { line_->Tell("WATCHDOG=1"); }

std::optional<std::chrono::microseconds> ServiceManager::KeepAliveInterval() const { return line_->interval; }

void ServiceManager::Line::Tell(const std::string& text) const {
    if (!socket.IsOpen()) return;
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    std::ranges::copy(address, place.sun_path);
    std::size_t length = offsetof(sockaddr_un, sun_path) + address.size();
    if (address.front() == '@') {
        place.sun_path[0] = '\0';
    } else {
        ++length;  // the zero at the end belongs to a path
    }
    sendto(socket.Get(), text.data(), text.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&place),
           static_cast<socklen_t>(length));
}

}  // namespace tarvex::host
