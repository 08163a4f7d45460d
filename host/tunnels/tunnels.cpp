// The thread that relays for all tunnels.

#include "host/tunnels/tunnels.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <atomic>
#include <mutex>
#include <thread>
#include <utility>

#include "host/tunnels/socket_pair.h"
#include "host/tunnels/tunnel.h"

namespace tarvex::host {

struct Tunnels::Loop {
    ~Loop() {
        context.stop();
        if (thread.joinable()) thread.join();
    }

    void StartOnce() {
        const std::lock_guard lock(mutex);
        if (!thread.joinable()) thread = std::thread([this] { context.run(); });
    }

    std::mutex mutex;
    TunnelScratch scratch;
    std::atomic<int> count = 0;
    asio::io_context context{1};  // frees the tunnels that are left, before what they use
    asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(context);
    std::thread thread;
};

Tunnels::Tunnels() : loop_(std::make_unique<Loop>()) {}
Tunnels::~Tunnels() = default;

CConnection Tunnels::Open(CConnection wire, TunnelPlan plan) {
    std::optional<SocketPair> pair = MakeSocketPair();
    if (!pair) return CConnection::Unusable();
    TlsFailure failure;
    std::unique_ptr<TlsClient> tls = TlsClient::Make(plan.server, plan.authority, failure);
    loop_->StartOnce();
    const auto tunnel =
        std::make_shared<Tunnel>(loop_->context, loop_->scratch, loop_->count, std::move(pair->for_tunnel),
                                 std::move(wire), std::move(tls), std::move(plan));
    asio::post(loop_->context, [tunnel, failure] { tunnel->Start(failure); });
    return std::move(pair->for_run);
}

int Tunnels::Count() const { return loop_->count; }

}  // namespace tarvex::host
