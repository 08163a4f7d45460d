// Takes requests from commands, and answers them, without waiting for anybody.

#include "host/service/control_server.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "host/system/command_error.h"

namespace tarvex::host {
namespace {

using Clock = ControlClient::Clock;

constexpr std::size_t kMaxClients = 64;
constexpr std::chrono::milliseconds kRetryInterval{100};  // while the system has no room to spare
constexpr std::chrono::seconds kClientTimeout{10};        // for sending a request, for taking the answer

}  // namespace

void ControlClient::Note(const std::string& text) {
    if (note_ == text) return;
    note_ = text;
    out_ += MessageOf(ClientNote{text});
}

void ControlClient::Answer(int exit_code, const Reply& reply) { Finish(Outcome{exit_code, reply}); }

void ControlClient::Answer(const ServiceReport& report) { Finish(report); }

void ControlClient::Refuse(int exit_code, const std::string& why) { Answer(exit_code, {"", why}); }

void ControlClient::Finish(const ControlReply& reply) {
    out_ += MessageOf(reply);
    state_ = State::Answering;
    deadline_ = Clock::now() + kClientTimeout;
    std::string().swap(in_);
    request_ = ReportRequest();
    awaited.reset();
}

EditedBy ControlClient::WhoAsks(const std::string& caller) const {
    const ControlPeer peer = connection_->Peer();
    EditedBy by{peer.uid, peer.name, caller};
    if (by.caller == by.user) by.caller.clear();
    return by;
}

void ControlClient::RefuseStranger() {
    if (!connection_->IsAllowed().value_or(true)) Refuse(kNotAllowed, "only the owner may do this");
}

bool ControlClient::Work(Clock::time_point now) {
    if (state_ != State::Waiting && now >= deadline_) return false;
    if (state_ != State::Answering && !Read()) return false;
    if (!out_.empty() && !connection_->Write(out_)) return false;
    return state_ != State::Answering || !out_.empty();
}

bool ControlClient::Read() {
    const bool had_some = !in_.empty();
    const ControlConnection::Taken taken = connection_->Read(in_);
    if (taken == ControlConnection::Taken::Nothing) return true;
    // Whoever leaves before the answer does not want the change any more; and there is nothing to say after a request.
    if (taken == ControlConnection::Taken::Gone || state_ == State::Waiting) return false;
    if (!had_some) RefuseStranger();
    return state_ == State::Answering || in_.size() < kLengthBytes || TakeRequest();
}

bool ControlClient::TakeRequest() {
    const std::size_t length = LengthIn(in_);
    if (length > kMaxRequest_bytes) {
        Refuse(kBadData, "the request is too large");
        return true;
    }
    if (in_.size() < kLengthBytes + length) return true;
    if (in_.size() > kLengthBytes + length) return false;
    try {
        AskedIn asked = RequestIn(std::string_view(in_).substr(kLengthBytes));
        request_ = std::move(asked.request);
        language_ = asked.language;
        std::string().swap(in_);
        state_ = State::Waiting;
    } catch (const std::exception&) {
        Refuse(kBadData, "the request cannot be read; are the command and the service of the same version?");
    }
    return true;
}

void ControlServer::Close() {
    channel_.Close();
    clients_.clear();
}

void ControlServer::Wait(Clock::time_point until) {
    const Clock::time_point now = Clock::now();
    if (accept_from_ > now) until = std::min(until, accept_from_);
    std::vector<ControlChannel::Watched> watched;
    for (ControlClient& client : clients_) {
        if (!client.IsWaiting()) until = std::min(until, client.deadline_);
        const bool to_read = client.state_ != ControlClient::State::Answering;
        watched.push_back({client.connection_.get(), to_read, !client.out_.empty()});
    }
    channel_.Wait(clients_.size() < kMaxClients && now >= accept_from_, watched, until);
}

bool ControlServer::Work() {
    Accept();
    const Clock::time_point now = Clock::now();
    bool changed = false;
    for (auto client = clients_.begin(); client != clients_.end();) {
        const bool was_waiting = client->IsWaiting();
        const bool stays = client->Work(now);
        changed = changed || (stays && client->IsWaiting()) != was_waiting;
        client = stays ? std::next(client) : clients_.erase(client);
    }
    return changed;
}

std::vector<ControlClient*> ControlServer::Waiting() {
    std::vector<ControlClient*> waiting;
    for (ControlClient& client : clients_) {
        if (client.IsWaiting()) waiting.push_back(&client);
    }
    return waiting;
}

void ControlServer::Accept() {
    while (clients_.size() < kMaxClients) {
        try {
            std::unique_ptr<ControlConnection> connection = channel_.Accept();
            if (!connection) return;
            clients_.emplace_back(std::move(connection), Clock::now() + kClientTimeout);
        } catch (const std::system_error&) {
            accept_from_ = Clock::now() + kRetryInterval;
            return;
        }
    }
}

}  // namespace tarvex::host
