// A small HTTP server: one request for each connection, and the connection ends with the answer.

#include "host/metrics/metrics_server.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <list>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "host/language/tr.h"
#include "host/metrics/metrics_sockets.h"
#include "host/metrics/process_figures.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMostClients = 8;
constexpr std::size_t kMostHeadBytes = 8 << 10;
constexpr std::size_t kPieceBytes = 4 << 10;
constexpr auto kPatience = 10s;  // with a client, from its connection to the last byte of the answer

}  // namespace

class MetricsServer::Sockets {
public:
    Sockets(const std::string& root, const std::string& place);
    ~Sockets();
    Sockets(const Sockets&) = delete;
    Sockets& operator=(const Sockets&) = delete;

    void Tell(std::vector<MeasuredProfile> profiles);
    const std::string& Place() const { return listener_.Place(); }

private:
    using Clock = std::chrono::steady_clock;

    struct Client {
        MetricsSocket socket;
        Clock::time_point deadline;
        std::string in;
        std::string out;
        bool answered = false;
    };

    void Serve();
    bool Turn();  // false when it is to end
    void Accept();
    bool Work(Client& client);                        // false when it is over
    std::optional<std::size_t> Read(Client& client);  // see MetricsSocket::Receive

    Figures figures_;  // of the thread
    std::mutex mutex_;
    std::vector<MeasuredProfile> profiles_;  // by the mutex
    MetricsListener listener_;
    std::list<Client> clients_;
    bool has_room_again_ = false;  // for whoever has connected before
    std::thread thread_;
};

MetricsServer::MetricsServer(const std::string& root, const std::string& place)
    : sockets_(std::make_unique<Sockets>(root, place)) {}

MetricsServer::~MetricsServer() = default;

void MetricsServer::Tell(std::vector<MeasuredProfile> profiles) { sockets_->Tell(std::move(profiles)); }

const std::string& MetricsServer::Place() const { return sockets_->Place(); }

MetricsServer::Sockets::Sockets(const std::string& root, const std::string& place) : figures_(root), listener_(place) {
    thread_ = std::thread([this] { Serve(); });
}

MetricsServer::Sockets::~Sockets() {
    listener_.Stop();
    thread_.join();
}

void MetricsServer::Sockets::Tell(std::vector<MeasuredProfile> profiles) {
    const std::lock_guard lock(mutex_);
    profiles_ = std::move(profiles);
}

void MetricsServer::Sockets::Serve() {
    const Speaking english(Language::English);
    for (;;) {
        try {
            if (!Turn()) return;
        } catch (const std::bad_alloc&) {
            clients_.clear();
            has_room_again_ = true;
        }
    }
}

bool MetricsServer::Sockets::Turn() {
    std::vector<MetricsListener::Watched> watched;
    auto until = Clock::now() + kPatience;
    for (const Client& client : clients_) {
        watched.push_back({client.socket.Number(), client.answered});
        until = std::min(until, client.deadline);
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    if (!listener_.Wait(clients_.size() < kMostClients, watched, has_room_again_ ? 0ms : left)) return false;
    Accept();
    has_room_again_ = std::erase_if(clients_, [this](Client& client) { return !Work(client); }) > 0;
    return true;
}

void MetricsServer::Sockets::Accept() {
    while (clients_.size() < kMostClients) {
        MetricsSocket socket = listener_.Accept();
        if (!socket.IsOpen()) return;
        clients_.push_back({std::move(socket), Clock::now() + kPatience, {}, {}, false});
    }
}

bool MetricsServer::Sockets::Work(Client& client) {
    if (Clock::now() >= client.deadline) return false;
    while (!client.answered) {
        const std::optional<std::size_t> count = Read(client);
        if (!count) return false;
        if (*count == 0) return true;
    }
    while (!client.out.empty()) {
        const std::optional<std::size_t> count = client.socket.Send(client.out);
        if (!count) return false;
        if (*count == 0) return true;
        client.out.erase(0, *count);
    }
    return false;
}

std::optional<std::size_t> MetricsServer::Sockets::Read(Client& client) {
    std::array<char, kPieceBytes> piece;
    const std::optional<std::size_t> count = client.socket.Receive(piece);
    if (!count || *count == 0) return count;
    client.in.append(piece.data(), *count);
    const std::size_t end = client.in.find("\r\n\r\n");
    client.answered = end != std::string::npos || client.in.size() > kMostHeadBytes;
    if (!client.answered) return count;
    if (end == std::string::npos || end > kMostHeadBytes) {
        client.out = MetricsRefusal("431 Request Header Fields Too Large");
        return count;
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
    return count;
}

}  // namespace tarvex::host
