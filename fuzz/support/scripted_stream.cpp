// Replaces TcpStream in the fuzz targets: answers come from a script.

#include "fuzz/support/scripted_stream.h"

#include <algorithm>
#include <cstring>

#include "platform/net/tcp_stream.h"

namespace tarvex {
namespace fuzz {
namespace {

ScriptedServer* server = nullptr;

}  // namespace

ScriptedServer::ScriptedServer(std::string_view script, std::size_t chunk_bytes) : chunk_bytes_(chunk_bytes) {
    for (;;) {
        const std::size_t end = script.find('~');
        answers_.push_back(script.substr(0, end));
        if (end == std::string_view::npos) break;
        script.remove_prefix(end + 1);
    }
    server = this;
}

ScriptedServer::~ScriptedServer() { server = nullptr; }

bool ScriptedServer::Waits() {
    while (turn_ < allowed_ && !HasEnded() && answers_[turn_].empty()) ++turn_;
    return turn_ >= allowed_ && !HasEnded();
}

std::string_view ScriptedServer::Next(std::size_t max_bytes) {
    if (Waits() || HasEnded()) return {};
    const std::string_view chunk = answers_[turn_].substr(0, std::min(max_bytes, chunk_bytes_));
    answers_[turn_].remove_prefix(chunk.size());
    return chunk;
}

void ScriptedServer::Sent(std::string what) {
    sent.push_back(std::move(what));
    ++allowed_;
}

}  // namespace fuzz

TcpStream::~TcpStream() { Close(); }

bool TcpStream::Reserve() { return true; }

Failure TcpStream::Connect(const NetworkAddress& /*address*/, int /*port*/, const Deadline& /*deadline*/) { return {}; }

Failure TcpStream::Adopt(std::intptr_t /*socket*/) { return {}; }

std::intptr_t TcpStream::Release() { return -1; }

void CloseSocket(std::intptr_t /*socket*/) noexcept {}

Transfer TcpStream::Send(std::span<const std::string_view> parts) {
    std::string what;
    for (const std::string_view part : parts) what += part;
    const std::size_t bytes = what.size();
    fuzz::server->Sent(std::move(what));
    return {Transfer::Status::Progress, bytes};
}

Transfer TcpStream::Receive(char* buffer, std::size_t size_bytes) {
    const std::string_view chunk = fuzz::server->Next(size_bytes);
    if (chunk.empty()) return {fuzz::server->HasEnded() ? Transfer::Status::Ended : Transfer::Status::WouldBlock};
    std::memcpy(buffer, chunk.data(), chunk.size());
    return {Transfer::Status::Progress, chunk.size()};
}

// Whoever waits for a server that waits itself has waited in vain.
Failure TcpStream::Wait(Event event, const Deadline& /*deadline*/) {
    return event == Event::ToRead && fuzz::server->Waits() ? Failure{FailureKind::TimedOut, "no answer in time"}
                                                           : Failure();
}

void TcpStream::Close() {}

void TcpStream::Interrupt() noexcept {}

}  // namespace tarvex
