// Carries one conversation between a run and a server, in pieces, never more than one piece at a time in each
// direction: a side that reads slowly slows the other one down.

#include "host/tunnels/tunnel.h"

#include <algorithm>
#include <asio/buffer.hpp>
#include <asio/ip/tcp.hpp>
#include <exception>
#include <system_error>
#include <utility>

namespace tarvex::host {
namespace {

constexpr std::size_t kLongestReason = 300;
constexpr std::size_t kMostAnswers = 256 << 10;  // that a server may leave unread

// In one line, whatever the server has put into it.
std::string InOneLine(std::string text) {
    text.resize(std::min(text.size(), kLongestReason));
    for (char& c : text) {
        if (c < ' ' || c == '\x7F') c = '?';
    }
    return text;
}

// RFC 2449, RFC 3206; RFC 5321, RFC 3463.
std::string Refusal(CProtocol protocol, const TlsFailure& failure) {
    if (protocol == CProtocol::Smtp)
        return (failure.MayPass() ? "421 4.7.0 TLS: " : "554 5.7.0 TLS: ") + InOneLine(failure.reason) + "\r\n";
    return std::string("-ERR [SYS/") + (failure.MayPass() ? "TEMP" : "PERM") + "] TLS: " + InOneLine(failure.reason) +
           "\r\n";
}

bool WouldBlock(const std::error_code& error) {
    return error == asio::error::would_block || error == asio::error::try_again || error == asio::error::interrupted;
}

}  // namespace

Tunnel::Tunnel(asio::io_context& loop, TunnelScratch& scratch, std::atomic<int>& count, CConnection run,
               CConnection wire, std::unique_ptr<TlsClient> tls, TunnelPlan plan)
    : count_(count),
      scratch_(scratch),
      run_(loop),
      wire_(loop),
      stall_(loop),
      tls_(std::move(tls)),
      plan_(std::move(plan)) {
    // Any protocol will do: the sockets are connected.
    const asio::generic::stream_protocol stream(asio::ip::tcp::v4());
    run_.assign(stream, static_cast<Socket::native_handle_type>(run.Release()));
    wire_.assign(stream, static_cast<Socket::native_handle_type>(wire.Release()));
    run_.non_blocking(true);
    wire_.non_blocking(true);
    ++count_;
}

Tunnel::~Tunnel() { --count_; }

void Tunnel::Start(const TlsFailure& failure) {
    begun_ = std::chrono::steady_clock::now();
    Pump([&] {
        if (failure) {
            Fail(failure);
        } else if (!plan_.before_tls) {
            BeginTls();
        }
    });
}

// Without memory for it the tunnel ends.
void Tunnel::Pump(const std::function<void()>& before) {
    try {
        if (before) before();
        if (!ended_) Work();
    } catch (const std::exception&) {
        Close();
    }
}

// Both directions are served once, so that no tunnel keeps the others waiting.
void Tunnel::Work() {
    FlushRun();
    FlushWire();
    if (!ended_ && MayReadWire()) ReadWire();
    if (!ended_ && !WireIsBusy()) ReadRun();
    if (ended_) return;
    FlushRun();
    FlushWire();
    if (is_last_ && to_run_.IsEmpty()) Close();
    if (!ended_) Wait();
}

void Tunnel::ReadWire() {
    std::error_code error;
    const std::size_t bytes = wire_.read_some(asio::buffer(scratch_.wire), error);
    const std::string_view heard(scratch_.wire.data(), bytes);
    if (WouldBlock(error)) return;
    if (error && phase_ == Phase::Relaying) {
        is_last_ = true;
    } else if (error) {
        Fail({TlsTrouble::Lost, "the server closed the connection"});
    } else if (phase_ == Phase::BeforeTls) {
        HearInClear(heard);
    } else {
        tls_->Feed(heard);
        phase_ == Phase::Handshake ? ShakeHands() : HearDecrypted();
    }
}

void Tunnel::HearInClear(std::string_view bytes) {
    heard_wire_ += bytes;
    Said said;
    const Turn turn = plan_.before_tls->FromServer(heard_wire_, said);
    to_wire_.Add(said.to_server);
    greeting_ += said.to_run;
    if (turn == Turn::Done) {
        BeginTls();
    } else if (said.failure) {
        Fail(said.failure);
    } else if (turn == Turn::Ends) {
        to_run_.Add(greeting_);
        is_last_ = true;
    }
}

// Whatever was said before it counts no more.
void Tunnel::BeginTls() {
    heard_wire_.clear();
    phase_ = Phase::Handshake;
    ShakeHands();
}

void Tunnel::ShakeHands() {
    switch (tls_->Handshake()) {
        case TlsClient::Step::Done:
            Tell({});
            phase_ = Phase::Relaying;
            to_run_.Add(greeting_);
            HearDecrypted();
            break;
        case TlsClient::Step::Failed:
            Fail(tls_->Why());
            break;
        default:
            break;
    }
}

void Tunnel::HearDecrypted() {
    std::string& clear = scratch_.clear;
    clear.clear();
    const TlsClient::Step step = tls_->Decrypt(clear);
    if (plan_.after_tls) {
        heard_wire_ += clear;
        Speak(End::Wire, heard_wire_);
    } else {
        ToRun(clear);
    }
    if (step != TlsClient::Step::NeedsMore) is_last_ = true;
}

void Tunnel::ReadRun() {
    std::error_code error;
    const std::size_t bytes = run_.read_some(asio::buffer(scratch_.wire), error);
    if (WouldBlock(error)) return;
    if (!error && phase_ == Phase::Relaying) return HearRun({scratch_.wire.data(), bytes});
    // The run has gone, or speaks before it was greeted.
    if (phase_ == Phase::Relaying) tls_->EncryptEnd();
    FlushWire();
    Close();
}

void Tunnel::HearRun(std::string_view bytes) {
    if (!plan_.after_tls) return ToServer(bytes);
    heard_run_ += bytes;
    Speak(End::Run, heard_run_);
}

void Tunnel::Speak(End from, std::string& heard) {
    if (heard.empty()) return;
    Said said;
    TunnelSpeaker& speaker = *plan_.after_tls;
    const Turn turn = from == End::Wire ? speaker.FromServer(heard, said) : speaker.FromRun(heard, said);
    ToServer(said.to_server);
    ToRun(said.to_run);
    if (turn == Turn::Ends) is_last_ = true;
    if (turn != Turn::Done) return;
    plan_.after_tls.reset();
    ToRun(std::exchange(heard_wire_, {}));
    ToServer(std::exchange(heard_run_, {}));
}

// What the system takes at once is not copied.
void Tunnel::ToRun(std::string_view bytes) {
    while (to_run_.IsEmpty() && !bytes.empty()) {
        std::error_code error;
        const std::size_t sent = run_.write_some(asio::buffer(bytes), error);
        if (error && !WouldBlock(error)) return Close();
        if (sent == 0) break;
        bytes.remove_prefix(sent);
    }
    to_run_.Add(bytes);
}

void Tunnel::ToServer(std::string_view bytes) {
    if (!tls_->Encrypt(bytes)) Close();
}

// Nothing that the server has said reaches the run, but why it is of no use.
void Tunnel::Fail(const TlsFailure& failure) {
    Tell(failure);
    to_run_.Clear();
    to_run_.Add(Refusal(plan_.protocol, failure));
    is_last_ = true;
}

void Tunnel::Tell(const TlsFailure& failure) {
    if (!plan_.on_tls) return;
    TlsOutcome outcome{failure, failure ? TlsFacts{} : tls_->Facts(), {}};
    outcome.taken = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begun_);
    plan_.on_tls(outcome);
}

void Tunnel::FlushRun() {
    if (ended_ || to_run_.IsEmpty()) return;
    std::error_code error;
    to_run_.Advance(run_.write_some(asio::buffer(to_run_.View()), error));
    if (error && !WouldBlock(error)) Close();
}

void Tunnel::FlushWire() {
    std::size_t sent = 0;
    if (!ended_ && !to_wire_.IsEmpty() && FlushWire(to_wire_.View(), sent)) to_wire_.Advance(sent);
    while (!ended_ && to_wire_.IsEmpty() && tls_ && !tls_->ToSend().empty()) {
        if (!FlushWire(tls_->ToSend(), sent)) return;
        tls_->Sent(sent);
    }
}

// False when nothing could be sent. What the server has said before it went is still read.
bool Tunnel::FlushWire(std::string_view bytes, std::size_t& sent) {
    if (!wire_takes_) return false;
    std::error_code error;
    sent = wire_.write_some(asio::buffer(bytes), error);
    if (error && !WouldBlock(error)) wire_takes_ = false;
    if (sent == 0) return false;
    stall_.cancel();
    stalls_ = false;
    return true;
}

bool Tunnel::WireIsBusy() const { return wire_takes_ && (!to_wire_.IsEmpty() || (tls_ && !tls_->ToSend().empty())); }

// TLS may have to answer what is read, as the wish for new keys.
bool Tunnel::MayReadWire() const {
    return !is_last_ && to_run_.IsEmpty() && (!tls_ || tls_->ToSend().size() < kMostAnswers);
}

void Tunnel::Wait() {
    if (MayReadWire()) WaitFor(wire_, Socket::wait_read, reads_wire_);
    if (!to_run_.IsEmpty()) WaitFor(run_, Socket::wait_write, writes_run_);
    if (!WireIsBusy()) return WaitFor(run_, Socket::wait_read, reads_run_);
    WaitFor(wire_, Socket::wait_write, writes_wire_);
    WatchForStall();
}

void Tunnel::WaitFor(Socket& socket, WaitKind kind, bool& waiting) {
    if (std::exchange(waiting, true)) return;
    socket.async_wait(kind, [self = shared_from_this(), &waiting](const std::error_code& error) {
        waiting = false;
        if (!error) self->Pump();
    });
}

// While the server takes nothing, the run's end is not looked at, so its going would not be seen.
void Tunnel::WatchForStall() {
    if (std::exchange(stalls_, true)) return;
    stall_.expires_after(plan_.timeout);
    stall_.async_wait([self = shared_from_this()](const std::error_code& error) {
        if (!error && self->stalls_) self->Close();
    });
}

void Tunnel::Close() {
    ended_ = true;
    std::error_code ignored;
    stall_.cancel();
    run_.close(ignored);
    wire_.close(ignored);
}

}  // namespace tarvex::host
