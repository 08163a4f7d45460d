#pragma once

// Ways from runs to servers with TLS on them: the run speaks in clear over one end of a socket pair, and this side
// carries it to the server.
//
// One thread relays for all. It is started with the first tunnel, and waits for nothing but sockets: looking names up,
// connecting and reading trust stores is done by the run that asks.
//
// A failure reaches the run as the greeting of a server that refuses: "-ERR [SYS/PERM] TLS: the certificate is for
// another host". Time is kept by the run: when it gives up, or is interrupted, it closes its end, and that ends the
// tunnel.

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "host/tunnels/tls_client.h"
#include "host/tunnels/tunnel_speaker.h"
#include "tarvex/connection.h"

namespace tarvex::host {

// How the way to TLS ended.
struct TlsOutcome {
    TlsFailure failure;  // none: TLS stands
    TlsFacts facts;      // then
    std::chrono::microseconds taken{};
};

struct TunnelPlan {
    CProtocol protocol = CProtocol::Pop3;           // in whose words a failure is told
    std::string server;                             // whose name or address the certificate must hold
    std::string authority;                          // see TlsClient
    std::chrono::seconds timeout{30};               // for a server that takes nothing more
    std::unique_ptr<TunnelSpeaker> before_tls;      // null: TLS from the first byte
    std::unique_ptr<TunnelSpeaker> after_tls;       // null: everything is relayed
    std::function<void(const TlsOutcome&)> on_tls;  // null, or asked on the loop's thread, before the run hears of it
};

class Tunnels {
public:
    Tunnels();
    ~Tunnels();  // ends them all
    Tunnels(const Tunnels&) = delete;
    Tunnels& operator=(const Tunnels&) = delete;

    // A tunnel over a connection to the server: the run's end of it. Never none, which would have the run connect in
    // clear: one that cannot be used when the system has no more sockets. On any thread.
    CConnection Open(CConnection wire, TunnelPlan plan);

    int Count() const;  // of those that have not ended

private:
    struct Loop;
    std::unique_ptr<Loop> loop_;
};

}  // namespace tarvex::host
