// The reading and answering of a server that talks in lines.

#include "loopback/line_session.h"

#include <asio/write.hpp>
#include <utility>

#include "loopback/listener.h"

namespace tarvex::loopback {

LineSession::LineSession(asio::ip::tcp::socket socket)
    : socket_(std::make_shared<asio::ip::tcp::socket>(std::move(socket))) {}

void LineSession::Start() {
    Answer(Greeting());
    Reply();
}

void LineSession::Read() {
    socket_->async_read_some(asio::buffer(chunk_), [self = shared_from_this()](std::error_code error, std::size_t n) {
        if (error) return;
        self->received_.append(self->chunk_.data(), n);
        self->Hear();
        self->Reply();
    });
}

void LineSession::Hear() {
    std::string_view rest = received_;
    for (std::size_t end; state_ == State::Talking && (end = rest.find('\n')) != std::string_view::npos;) {
        OnLine(rest.substr(0, end + 1));
        rest.remove_prefix(end + 1);
    }
    received_.erase(0, received_.size() - rest.size());
}

void LineSession::Reply() {
    if (answer_.empty()) return Continue();
    asio::async_write(*socket_, asio::buffer(answer_), [self = shared_from_this()](std::error_code error, std::size_t) {
        if (error) return;
        self->answer_.clear();
        self->Continue();
    });
}

void LineSession::Continue() {
    if (state_ == State::Talking) return Read();
    if (state_ == State::HangingUp) return EndAndDiscard(socket_);
    Discard(socket_);
}

}  // namespace tarvex::loopback
