// Puts questions to the desk and waits for the answers, each on a connection of its own.

#include <utility>  // Boost.Asio 1.74 leaves it out

#include "console/desk/connection.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/steady_timer.hpp>
#include <memory>

#include "console/desk/stream.h"

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
        : line_(line),
          question_(std::move(question)),
          stream_(DeskStream::Make(line.context_)),
          timer_(line.context_) {}

    void Start() {
        timer_.expires_after(line_.patience_);
        timer_.async_wait([self = shared_from_this()](error_code error) {
            if (!error) self->Finish(DeskTrouble::Silent);
        });
        stream_->Connect(line_.place_, [self = shared_from_this()](error_code error) {
            error ? self->Finish(DeskTrouble::NotThere) : self->Send();
        });
    }

private:
    void Send() {
        stream_->Write(net::buffer(question_.message), [self = shared_from_this()](error_code error) {
            error ? self->Finish(DeskTrouble::Wrong) : self->ReadLength();
        });
    }

    void ReadLength() {
        stream_->Read(net::buffer(length_), [self = shared_from_this()](error_code error) {
            const auto length = AnswerLength(self->length_);
            error || !length ? self->Finish(DeskTrouble::Wrong) : self->ReadAnswer(*length);
        });
    }

    void ReadAnswer(std::size_t length) {
        stream_->Read(length, answer_, [self = shared_from_this()](error_code error) {
            auto answer = error ? std::nullopt : console::ReadAnswer(self->answer_);
            answer ? self->Finish(*std::move(answer)) : self->Finish(DeskTrouble::Wrong);
        });
    }

    void Finish(DeskOutcome outcome) {
        if (!question_.answered) return;
        const Answered answered = std::exchange(question_.answered, nullptr);
        timer_.cancel();
        stream_->Close();
        line_.End();
        answered(std::move(outcome));
    }

    DeskLine& line_;
    Waiting question_;
    std::unique_ptr<DeskStream> stream_;
    net::steady_timer timer_;
    LengthBytes length_{};
    std::string answer_;
};

DeskLine::DeskLine(net::io_context& context, std::string place, std::chrono::milliseconds patience)
    : context_(context), place_(std::move(place)), patience_(patience) {}

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
