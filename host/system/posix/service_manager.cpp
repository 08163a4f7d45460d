// Sends the datagrams that systemd expects of a service.

#include "host/system/posix/service_manager.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

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

ServiceManager::ServiceManager() : address_(Variable("NOTIFY_SOCKET")) {
    const bool is_address = address_.starts_with('/') || address_.starts_with('@');
    if (!is_address || address_.size() < 2 || address_.size() >= sizeof(sockaddr_un::sun_path)) return;
    socket_ = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    constexpr timeval kSendTimeout{1, 0};  // with a manager that does not read
    setsockopt(socket_.Get(), SOL_SOCKET, SO_SNDTIMEO, &kSendTimeout, sizeof kSendTimeout);

    const std::string_view watched = Variable("WATCHDOG_PID");  // of another process: not meant for this one
    const auto limit = Number(Variable("WATCHDOG_USEC"));
    if (limit && (watched.empty() || Number(watched) == getpid())) interval_ = std::chrono::microseconds(*limit / 2);
}

void ServiceManager::Ready() const { Tell("READY=1"); }

void ServiceManager::Reloading() const {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const std::int64_t microseconds = std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
    Tell("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(microseconds));
}

void ServiceManager::Stopping() const { Tell("STOPPING=1"); }

void ServiceManager::KeepAlive() const { Tell("WATCHDOG=1"); }

void ServiceManager::Tell(const std::string& text) const {
    if (!socket_.IsOpen()) return;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(address_, address.sun_path);
    std::size_t length = offsetof(sockaddr_un, sun_path) + address_.size();
    if (address_.front() == '@') {
        address.sun_path[0] = '\0';
    } else {
        ++length;  // the zero at the end belongs to a path
    }
    sendto(socket_.Get(), text.data(), text.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
           static_cast<socklen_t>(length));
}

}  // namespace tarvex::host
