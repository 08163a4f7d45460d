// The HTTP server.
//
// This is the only file that includes Boost.Beast, which is slow to compile: what can be done elsewhere is done
// elsewhere. Beast parses; reading, writing and their time limits are here:
//
//     connected --(TLS)--> head (10 s) --> body (30 s) --> the desk --> answer (60 s) --+--> head of the next (30 s)
//                                                                                       +--> closing (2 s)
//
// A client that is too slow for a step is dropped. When all places are taken, a new client gets the place of the one
// that has waited longest without a whole head, so that slow clients cannot keep others out.

#include <utility>  // Boost.Asio 1.74 leaves it out

#include "console/server.h"

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <chrono>
#include <ctime>
#include <exception>
#include <memory>
#include <optional>
#include <set>

#include "console/channel.h"
#include "console/desk/connection.h"
#include "console/listener.h"
#include "console/log.h"
#include "console/order_line.h"
#include "host/system/service_manager.h"

namespace tarvex::console {
namespace {

namespace net = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;
using namespace std::chrono_literals;

constexpr std::size_t kMostClients = 256;
constexpr std::size_t kMostHeadBytes = 16 << 10;
constexpr std::size_t kMostBodyBytes = 1 << 20;
constexpr std::size_t kSmallBodyBytes = 16 << 10;      // a login fits; these always find room
constexpr std::size_t kMostBodiesTogether = 32 << 20;  // of the larger ones
constexpr std::size_t kSmallAnswerBytes = 256 << 10;   // a page fits
constexpr std::size_t kMostAnswersTogether = 64 << 20;
constexpr std::size_t kPieceBytes = 16 << 10;
constexpr std::size_t kMostDrainedBytes = 256 << 10;  // read after an answer so that the client can see it
constexpr int kMostRequests = 1000;                   // of a connection
constexpr unsigned kHttp11 = 11;                      // as Beast numbers versions

constexpr auto kHeadPatience = 10s;
constexpr auto kBodyPatience = 30s;
constexpr auto kDeskPatience = 30s;
constexpr auto kAnswerPatience = 60s;
constexpr auto kIdlePatience = 30s;
constexpr auto kClosingPatience = 2s;
constexpr auto kEndPatience = 10s;  // for what is under way when the console is told to end

std::string LowerCase(boost::beast::string_view name) {
    std::string lowered(name);
    for (char& c : lowered)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    return lowered;
}

int StatusOf(error_code error) {
    if (error == http::error::header_limit || error == http::error::buffer_overflow) return 431;
    if (error == http::error::body_limit) return 413;
    if (error == http::error::bad_version) return 505;
    return 400;
}

class Client;

// Memory that clients share for what is large.
class Budget {
public:
    Budget(std::size_t small_bytes, std::size_t most_bytes) : small_(small_bytes), left_(most_bytes) {}

    // What is small needs none. False when there is not enough.
    bool Take(std::size_t bytes, std::size_t& taken) {
        if (bytes <= small_) return true;
        if (bytes > left_) return false;
        left_ -= bytes;
        taken = bytes;
        return true;
    }
    void GiveBack(std::size_t& taken) { left_ += std::exchange(taken, 0); }

private:
    std::size_t small_;
    std::size_t left_;
};

// What all connections share.
struct Hall {
    net::io_context& context;
    const Site& site;
    DeskLine& desk;
    std::set<std::shared_ptr<Client>> clients;
    Budget bodies{kSmallBodyBytes, kMostBodiesTogether};
    Budget answers{kSmallAnswerBytes, kMostAnswersTogether};
    bool is_closing = false;
};

class Client : public std::enable_shared_from_this<Client> {
public:
    Client(Hall& hall, Socket socket, TlsContext tls)
        : hall_(hall),
          channel_(std::move(socket), std::move(tls)),
          timer_(channel_.Executor()),
          peer_(channel_.Peer()) {}

    void Start() {
        WaitFor(kHeadPatience);
        channel_.Open([self = shared_from_this()](error_code error, std::size_t) {
            error ? self->Close() : self->Next(kHeadPatience);
        });
    }

    void Close() {
        timer_.cancel();
        channel_.Close();
        GiveMemoryBack();
        hall_.clients.erase(shared_from_this());
        if (hall_.is_closing && hall_.clients.empty()) hall_.context.stop();
    }

    // Since when it has been waited for a whole head; nothing at other times.
    std::optional<std::chrono::steady_clock::time_point> WaitingSince() const { return waiting_since_; }

private:
    using Parser = http::request_parser<http::string_body>;

    void WaitFor(std::chrono::steady_clock::duration patience) {
        timer_.expires_after(patience);
        timer_.async_wait([self = shared_from_this()](error_code error) {
            if (!error) self->Close();
        });
    }

    // The next request, of which the client may have sent something with the last.
    void Next(std::chrono::steady_clock::duration patience) {
        if (hall_.is_closing) return Close();
        parser_.emplace();
        parser_->header_limit(kMostHeadBytes);
        parser_->body_limit(kMostBodyBytes);
        parser_->eager(true);
        waiting_since_ = std::chrono::steady_clock::now();
        WaitFor(patience);
        Parse();
    }

    void ReadMore() {
        channel_.Read(net::buffer(piece_), [self = shared_from_this()](error_code error, std::size_t bytes) {
            if (error) return self->Close();
            // Whoever has begun a request is no longer idle.
            if (self->input_.empty() && self->waiting_since_ && !self->parser_->got_some())
                self->WaitFor(kHeadPatience);
            self->input_.append(self->piece_.data(), bytes);
            self->Parse();
        });
    }

    void Parse() {
        const bool had_head = parser_->is_header_done();
        error_code error;
        if (!input_.empty()) input_.erase(0, parser_->put(net::buffer(input_), error));
        if (error && error != http::error::need_more) return TurnAway(StatusOf(error));
        if (!had_head && parser_->is_header_done()) {
            if (const int status = TakeHead()) return TurnAway(status);
        }
        parser_->is_done() ? Handle() : ReadMore();
    }

    // Begins with the body; 0, or the status of the refusal. Only one length tells where a body ends: lists of them,
    // and chunks, have been understood differently by two servers in a row more than once, and browsers send none.
    int TakeHead() {
        waiting_since_.reset();
        const auto& head = parser_->get();
        if (head.find(http::field::transfer_encoding) != head.end()) return 411;
        if (head.count(http::field::content_length) > 1) return 400;
        if (head[http::field::content_length].find(',') != boost::beast::string_view::npos) return 400;
        const auto length = static_cast<std::size_t>(parser_->content_length().value_or(0));  // at most a body's limit
        if (!hall_.bodies.Take(length, body_bytes_)) return 503;
        WaitFor(kBodyPatience);
        return 0;
    }

    void GiveMemoryBack() {
        hall_.bodies.GiveBack(body_bytes_);
        hall_.answers.GiveBack(answer_bytes_);
    }

    // The headers, as far as they have been read.
    Fields Headers() const {
        Fields headers;
        for (const auto& field : parser_->get())
            headers.push_back({LowerCase(field.name_string()), std::string(field.value())});
        return headers;
    }

    RawRequest Taken() {
        auto& message = parser_->get();
        is_head_only_ = message.method() == http::verb::head;
        keeps_ = message.version() == kHttp11 && message.keep_alive() && ++requests_ < kMostRequests;
        return {std::string(message.method_string()), std::string(message.target()), Headers(),
                std::move(message.body()), peer_};
    }

    void Handle() {
        timer_.cancel();
        work_ = hall_.site.Begin(Taken());
        hall_.bodies.GiveBack(body_bytes_);
        parser_.reset();
        if (work_.question.empty()) return Answer();
        hall_.desk.Ask(std::move(work_.question), [self = shared_from_this()](const DeskOutcome& outcome) {
            self->hall_.site.Finish(self->work_, outcome);
            self->Answer();
        });
    }

    void TurnAway(int status) {
        waiting_since_.reset();
        hall_.bodies.GiveBack(body_bytes_);
        work_ = hall_.site.TurnAway(status, parser_ ? Headers() : Fields(), peer_);
        keeps_ = is_head_only_ = false;
        Answer();
    }

    void Answer() {
        if (!hall_.answers.Take(work_.response.body.size(), answer_bytes_)) return TurnAway(503);
        if (!work_.log.empty()) Log(work_.response.status >= 500 ? LogLevel::Error : LogLevel::Information, work_.log);
        keeps_ = keeps_ && !hall_.is_closing && work_.response.status != 400;
        head_ = HeadOf(work_.response, keeps_, HttpDate(std::time(nullptr)));
        WaitFor(kAnswerPatience);
        const auto body = is_head_only_ ? net::const_buffer() : net::buffer(work_.response.body);
        channel_.Write({net::buffer(head_), body}, [self = shared_from_this()](error_code error, std::size_t) {
            if (error) return self->Close();
            self->work_ = {};
            self->hall_.answers.GiveBack(self->answer_bytes_);
            self->keeps_ ? self->Next(kIdlePatience) : self->Part();
        });
    }

    // Lets the client see the answer: a connection that is closed with bytes unread is reset.
    void Part() {
        WaitFor(kClosingPatience);
        channel_.Finish(
            [self = shared_from_this()](error_code error, std::size_t) { error ? self->Close() : self->Drain(); });
    }

    void Drain() {
        channel_.Read(net::buffer(piece_), [self = shared_from_this()](error_code error, std::size_t bytes) {
            self->drained_ += bytes;
            error || self->drained_ > kMostDrainedBytes ? self->Close() : self->Drain();
        });
    }

    Hall& hall_;
    Channel channel_;
    net::steady_timer timer_;
    const std::string peer_;
    std::optional<std::chrono::steady_clock::time_point> waiting_since_;
    std::optional<Parser> parser_;
    std::array<char, kPieceBytes> piece_{};
    std::string input_;             // read and not yet parsed
    std::size_t body_bytes_ = 0;    // of the hall's
    std::size_t answer_bytes_ = 0;  // likewise
    std::size_t drained_ = 0;
    int requests_ = 0;
    bool keeps_ = false;
    bool is_head_only_ = false;
    Work work_;
    std::string head_;
};

class Server {
public:
    Server(const ServerOptions& options, const Site& site)
        : options_(options),
          desk_(context_, options.desk, kDeskPatience),
          hall_{context_, site, desk_, {}},
          acceptor_(context_),
          orders_(context_, [this](host::Order order) { Obey(order); }),
          end_(context_),
          tls_(LoadCertificate(options.certificate, options.key)) {
        ListenAt(acceptor_, options.place, options.group);
    }
    ~Server() { RemovePath(options_.place); }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    int Port() const { return PortOf(acceptor_); }

    void Run() {
        Accept();
        manager_.Ready();
        context_.run();
    }

private:
    void Accept() {
        acceptor_.async_accept([this](error_code error, Socket socket) {
            if (error == net::error::operation_aborted || hall_.is_closing) return;
            if (error) return AcceptLater(error);
            if (MakeRoom()) {
                const auto client = std::make_shared<Client>(hall_, std::move(socket), tls_);
                hall_.clients.insert(client);
                client->Start();
            }
            Accept();
        });
    }

    // Out of descriptors or memory: trying at once would fail again.
    void AcceptLater(error_code error) {
        Log(LogLevel::Error, "cannot take a connection: " + error.message());
        end_.expires_after(1s);
        end_.async_wait([this](error_code stopped) {
            if (!stopped && !hall_.is_closing) Accept();
        });
    }

    // Whether there is a place for one more.
    bool MakeRoom() {
        if (hall_.clients.size() < kMostClients) return true;
        std::shared_ptr<Client> slowest;
        for (const auto& client : hall_.clients)
            if (client->WaitingSince() && (!slowest || *client->WaitingSince() < *slowest->WaitingSince()))
                slowest = client;
        if (slowest) slowest->Close();
        return slowest != nullptr;
    }

    void Obey(host::Order order) {
        if (order == host::Order::Stop) return End();
        order == host::Order::Hold ? manager_.Holding() : Reload();
    }

    void Reload() {
        manager_.Reloading();
        try {
            tls_ = LoadCertificate(options_.certificate, options_.key);
            if (tls_) Log(LogLevel::Information, "loaded the certificate again");
        } catch (const std::exception& error) {
            Log(LogLevel::Error, std::string("keeps the old certificate: ") + error.what());
        }
        manager_.Ready();
    }

    // Ends when nothing is under way any more.
    void End() {
        manager_.Stopping();
        hall_.is_closing = true;
        acceptor_.close();
        const auto clients = hall_.clients;
        for (const auto& client : clients)
            if (client->WaitingSince()) client->Close();
        if (hall_.clients.empty()) return context_.stop();
        end_.expires_after(kEndPatience);
        end_.async_wait([this](error_code error) {
            if (!error) context_.stop();
        });
    }

    net::io_context context_{1};
    const ServerOptions& options_;
    DeskLine desk_;
    Hall hall_;
    Acceptor acceptor_;
    OrderLine orders_;
    net::steady_timer end_;
    TlsContext tls_;
    host::ServiceManager manager_;
};

}  // namespace

void Serve(const ServerOptions& options, const Site& site, const std::function<void(int port)>& listens) {
    Server server(options, site);
    listens(server.Port());
    server.Run();
}

}  // namespace tarvex::console
