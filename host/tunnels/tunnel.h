#pragma once

// One tunnel. On the loop's thread alone.
//
//     BeforeTls ---> Handshake ---> Relaying ---> (ended)
//      STLS           \               | the run closed, or the server and all it sent was handed on
//         \____________\___ failed: the run gets a refusal as the greeting

#include <array>
#include <asio/generic/stream_protocol.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "host/tunnels/tunnels.h"

namespace tarvex::host {

// Room that all tunnels of a loop share.
struct TunnelScratch {
    std::array<char, 64 * 1024> wire;
    std::string clear;
};

// Bytes on their way out.
class Pending {
public:
    std::string_view View() const { return std::string_view(bytes_).substr(sent_); }
    bool IsEmpty() const { return sent_ == bytes_.size(); }
    void Add(std::string_view bytes) { bytes_ += bytes; }
    void Advance(std::size_t bytes) {
        sent_ += bytes;
        if (IsEmpty()) Clear();
    }
    void Clear() {
        std::string().swap(bytes_);  // what a slow run has left unread must not stay in memory
        sent_ = 0;
    }

private:
    std::string bytes_;
    std::size_t sent_ = 0;
};

class Tunnel : public std::enable_shared_from_this<Tunnel> {
public:
    // The loop, the scratch and the count must outlive it.
    Tunnel(asio::io_context& loop, TunnelScratch& scratch, std::atomic<int>& count, CConnection run, CConnection wire,
           std::unique_ptr<TlsClient> tls, TunnelPlan plan);
    ~Tunnel();
    Tunnel(const Tunnel&) = delete;
    Tunnel& operator=(const Tunnel&) = delete;

    // `failure`: why there is no TLS client.
    void Start(const TlsFailure& failure);

private:
    using Socket = asio::generic::stream_protocol::socket;
    using WaitKind = asio::socket_base::wait_type;
    enum class Phase { BeforeTls, Handshake, Relaying };
    enum class End { Run, Wire };

    void Pump(const std::function<void()>& before = {});
    void Work();
    void ReadWire();
    void ReadRun();
    void HearInClear(std::string_view bytes);
    void BeginTls();
    void ShakeHands();
    void HearDecrypted();
    void HearRun(std::string_view bytes);
    void Speak(End from, std::string& heard);
    void ToRun(std::string_view bytes);
    void ToServer(std::string_view bytes);
    void Fail(const TlsFailure& failure);
    void Tell(const TlsFailure& failure);
    void FlushRun();
    void FlushWire();
    bool FlushWire(std::string_view bytes, std::size_t& sent);
    bool WireIsBusy() const;
    bool MayReadWire() const;
    void Wait();
    void WaitFor(Socket& socket, WaitKind kind, bool& waiting);
    void WatchForStall();
    void Close();

    std::atomic<int>& count_;
    TunnelScratch& scratch_;
    Socket run_;
    Socket wire_;
    asio::steady_timer stall_;
    std::unique_ptr<TlsClient> tls_;
    TunnelPlan plan_;
    Phase phase_ = Phase::BeforeTls;
    std::chrono::steady_clock::time_point begun_;
    Pending to_run_;
    Pending to_wire_;         // in clear, before TLS
    std::string greeting_;    // for the run, when TLS stands
    std::string heard_wire_;  // by a speaker that has not understood it yet
    std::string heard_run_;
    bool is_last_ = false;  // nothing follows what is pending to the run
    bool ended_ = false;
    bool stalls_ = false;
    bool wire_takes_ = true;
    bool reads_run_ = false, reads_wire_ = false, writes_run_ = false, writes_wire_ = false;  // waits under way
};

}  // namespace tarvex::host
