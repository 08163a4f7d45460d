// Puts questions to the desk and waits for the answers, each on a connection of its own.

#include <utility>  // Boost.Asio 1.74 leaves it out

#include "console/desk/connection.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <memory>

namespace tarvex::console {
namespace {

namespace net = boost::asio;
using boost::system::error_code;

constexpr std::size_t kMostAtOnce = 32;

}  // namespace

// One question. It ends once: with an answer, with trouble, or when its time is up.
class DeskLine::Talk : public std::enable_shared_from_this<DeskLine::Talk> {
public:
    Talk(DeskLine& line, Waiting question)
        : line_(line), question_(std::move(question)), socket_(line.context_), timer_(line.context_) {}

    void Start() {
        timer_.expires_after(line_.patience_);
        timer_.async_wait([self = shared_from_this()](error_code error) {
            if (!error) self->Finish(DeskTrouble::Silent);
        });
        socket_.async_connect(line_.desk_, [self = shared_from_this()](error_code error) {
            error ? self->Finish(DeskTrouble::NotThere) : self->Send();
        });
    }

private:
    void Send() {
        net::async_write(socket_, net::buffer(question_.message), [self = shared_from_this()](error_code error, auto) {
            error ? self->Finish(DeskTrouble::Wrong) : self->ReadLength();
        });
    }

    void ReadLength() {
        net::async_read(socket_, net::buffer(length_), [self = shared_from_this()](error_code error, auto) {
            const auto length = AnswerLength(self->length_);
            error || !length ? self->Finish(DeskTrouble::Wrong) : self->ReadAnswer(*length);
        });
    }

    // The room for it grows with what comes.
    void ReadAnswer(std::size_t length) {
        net::async_read(socket_, net::dynamic_buffer(answer_, length), net::transfer_exactly(length),
                        [self = shared_from_this()](error_code error, auto) {
                            auto answer = error ? std::nullopt : console::ReadAnswer(self->answer_);
                            answer ? self->Finish(*std::move(answer)) : self->Finish(DeskTrouble::Wrong);
                        });
    }

    void Finish(DeskOutcome outcome) {
        if (!question_.answered) return;
        const Answered answered = std::exchange(question_.answered, nullptr);
        timer_.cancel();
        error_code ignored;
        socket_.close(ignored);
        line_.End();
        answered(std::move(outcome));
    }

    DeskLine& line_;
    Waiting question_;
    net::local::stream_protocol::socket socket_;
    net::steady_timer timer_;
    LengthBytes length_{};
    std::string answer_;
};

DeskLine::DeskLine(net::io_context& context, std::string path, std::chrono::milliseconds patience)
    : context_(context), desk_(path), patience_(patience) {}

void DeskLine::Ask(std::string message, Answered answered) {
    Waiting question{std::move(message), std::move(answered)};
    if (open_ == kMostAtOnce) {
        waiting_.push_back(std::move(question));
    } else {
        Begin(std::move(question));
    }
}

void DeskLine::Begin(Waiting question) {
    ++open_;
    std::make_shared<Talk>(*this, std::move(question))->Start();
}

void DeskLine::End() {
    --open_;
    if (waiting_.empty()) return;
    Waiting next = std::move(waiting_.front());
    waiting_.pop_front();
    Begin(std::move(next));
}

}  // namespace tarvex::console
