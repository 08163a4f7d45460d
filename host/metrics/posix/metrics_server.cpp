// A small HTTP server: one request for each connection, and the connection ends with the answer.

#include "host/metrics/metrics_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <exception>
#include <list>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "host/language/tr.h"
#include "host/metrics/process_figures.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/posix/descriptor.h"
#include "host/system/posix/unix_socket.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMostClients = 8;
constexpr std::size_t kMostHeadBytes = 8 << 10;
constexpr std::size_t kPieceBytes = 4 << 10;
constexpr int kBacklog = 16;
constexpr auto kPatience = 10s;  // with a client, from its connection to the last byte of the answer
constexpr mode_t kForEverybody = 0666;
constexpr std::string_view kUnixStart = "unix:";

bool WouldBlock() { return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR; }

CommandError CannotListen(const std::string& place, const std::string& why) {
    return {kCannotMake, Tr("cannot serve metrics on \"{0}\": {1}", ShowUtf8Text(place), why)};
}

CommandError BadPlace(const std::string& place) {
    return {kBadUsage, Tr("metrics are served on this machine alone: \"{0}\" is not unix:PATH, 127.0.0.1:PORT or "
                          "[::1]:PORT",
                          ShowUtf8Text(place))};
}

}  // namespace

class MetricsServer::Sockets {
public:
    Sockets(const std::string& root, const std::string& place);
    ~Sockets();
    Sockets(const Sockets&) = delete;
    Sockets& operator=(const Sockets&) = delete;

    void Tell(std::vector<MeasuredProfile> profiles);
    const std::string& Place() const { return place_; }

private:
    using Clock = std::chrono::steady_clock;

    struct Client {
        Descriptor socket;
        Clock::time_point deadline;
        std::string in;
        std::string out;
        bool answered = false;
    };

    void ListenOnPath(const std::string& path);
    void ListenOnPort(const std::string& host, const std::string& port);
    void Serve();
    bool Turn();  // false when it is to end
    void Accept();
    bool Work(Client& client);  // false when it is over
    bool Read(Client& client);

    Figures figures_;  // of the thread
    std::mutex mutex_;
    std::vector<MeasuredProfile> profiles_;  // by the mutex
    std::string place_;
    std::string path_;  // of the socket, where it has one
    Descriptor listener_;
    Descriptor stop_;
    std::list<Client> clients_;
    std::thread thread_;
};

MetricsServer::MetricsServer(const std::string& root, const std::string& place)
    : sockets_(std::make_unique<Sockets>(root, place)) {}

MetricsServer::~MetricsServer() = default;

void MetricsServer::Tell(std::vector<MeasuredProfile> profiles) { sockets_->Tell(std::move(profiles)); }

const std::string& MetricsServer::Place() const { return sockets_->Place(); }

MetricsServer::Sockets::Sockets(const std::string& root, const std::string& place)
    : figures_(root), stop_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (place.starts_with(kUnixStart)) {
        ListenOnPath(place.substr(kUnixStart.size()));
    } else {
        const std::size_t colon = place.rfind(':');
        if (colon == std::string::npos) throw BadPlace(place);
        ListenOnPort(place.substr(0, colon), place.substr(colon + 1));
    }
    thread_ = std::thread([this] { Serve(); });
}

MetricsServer::Sockets::~Sockets() {
    eventfd_write(stop_.Get(), 1);
    thread_.join();
    if (!path_.empty()) unlink(path_.c_str());
}

void MetricsServer::Sockets::Tell(std::vector<MeasuredProfile> profiles) {
    const std::lock_guard lock(mutex_);
    profiles_ = std::move(profiles);
}

void MetricsServer::Sockets::ListenOnPath(const std::string& path) {
    place_ = std::string(kUnixStart) + path;
    const auto address = UnixAddress(path);
    if (!address) throw BadPlace(place_);
    RemoveLeftOver(path, *address);
    listener_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool listens = bind(listener_.Get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0 &&
                         chmod(path.c_str(), kForEverybody) == 0 && listen(listener_.Get(), kBacklog) == 0;
    if (!listens) throw CannotListen(place_, std::strerror(errno));
    path_ = path;
}

void MetricsServer::Sockets::ListenOnPort(const std::string& host, const std::string& port) {
    const std::string place = host + ':' + port;
    std::uint16_t number = 0;
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
    if (error != std::errc() || end != port.data() + port.size()) throw BadPlace(place);
    sockaddr_in six_less{};
    six_less.sin_family = AF_INET;
    six_less.sin_port = htons(number);
    six_less.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(number);
    six.sin6_addr = in6addr_loopback;
    const bool is_six = host == "[::1]";
    if (!is_six && host != "127.0.0.1") throw BadPlace(place);
    auto* const address = is_six ? reinterpret_cast<sockaddr*>(&six) : reinterpret_cast<sockaddr*>(&six_less);
    socklen_t size = is_six ? sizeof six : sizeof six_less;
    listener_ = Descriptor(socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int yes = 1;
    setsockopt(listener_.Get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const bool listens = bind(listener_.Get(), address, size) == 0 && listen(listener_.Get(), kBacklog) == 0 &&
                         getsockname(listener_.Get(), address, &size) == 0;
    if (!listens) throw CannotListen(place, std::strerror(errno));
    const std::uint16_t taken = ntohs(is_six ? six.sin6_port : six_less.sin_port);
    place_ = "http://" + host + ':' + std::to_string(taken) + "/metrics";
}

void MetricsServer::Sockets::Serve() {
    const Speaking english(Language::English);
    for (;;) {
        try {
            if (!Turn()) return;
        } catch (const std::bad_alloc&) {
            clients_.clear();
        }
    }
}

bool MetricsServer::Sockets::Turn() {
    std::vector<pollfd> watched = {{stop_.Get(), POLLIN, 0}};
    auto until = Clock::now() + kPatience;
    for (const Client& client : clients_) {
        watched.push_back({client.socket.Get(), static_cast<short>(client.answered ? POLLOUT : POLLIN), 0});
        until = std::min(until, client.deadline);
    }
    if (clients_.size() < kMostClients) watched.push_back({listener_.Get(), POLLIN, 0});
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    poll(watched.data(), watched.size(), static_cast<int>(std::max(left, 0ms).count()));
    if (watched[0].revents != 0) return false;
    Accept();
    std::erase_if(clients_, [this](Client& client) { return !Work(client); });
    return true;
}

void MetricsServer::Sockets::Accept() {
    while (clients_.size() < kMostClients) {
        Descriptor socket(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket.IsOpen()) {
            if (!WouldBlock()) std::this_thread::sleep_for(100ms);  // no descriptor to spare
            return;
        }
        clients_.push_back({std::move(socket), Clock::now() + kPatience, {}, {}, false});
    }
}

bool MetricsServer::Sockets::Work(Client& client) {
    if (Clock::now() >= client.deadline) return false;
    if (!client.answered && !Read(client)) return false;
    if (!client.answered) return true;
    const ssize_t count = send(client.socket.Get(), client.out.data(), client.out.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < 0) return WouldBlock();
    client.out.erase(0, static_cast<std::size_t>(count));
    return !client.out.empty();
}

bool MetricsServer::Sockets::Read(Client& client) {
    std::array<char, kPieceBytes> piece;
    const ssize_t count = recv(client.socket.Get(), piece.data(), piece.size(), MSG_DONTWAIT);
    if (count < 0) return WouldBlock();
    if (count == 0) return false;
    client.in.append(piece.data(), static_cast<std::size_t>(count));
    const std::size_t end = client.in.find("\r\n\r\n");
    client.answered = end != std::string::npos || client.in.size() > kMostHeadBytes;
    if (!client.answered) return true;
    if (end == std::string::npos || end > kMostHeadBytes) {
        client.out = MetricsRefusal("431 Request Header Fields Too Large");
        return true;
    }
    try {
        client.out = AnswerTo(std::string_view(client.in).substr(0, end), [this](MetricForm form) {
            std::vector<MeasuredProfile> profiles;
            {
                const std::lock_guard lock(mutex_);
                profiles = profiles_;
            }
            return figures_.Text(profiles, FiguresOfThisProcess(), form);
        });
    } catch (const std::exception&) {  // no memory
        client.out = MetricsRefusal("503 Service Unavailable");
    }
    return true;
}

}  // namespace tarvex::host
