// The scripted server: every session runs on a thread of its own and waits, never longer than the deadline, for work
// on its socket that the one serving thread does.

#include "testing/scripted_server.h"

#include <array>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "loopback/listener.h"
#include "testing/tls.h"

namespace tarvex::testing {

using asio::ip::tcp;
using namespace std::chrono_literals;

namespace {

constexpr auto kDeadline = 20s;

// Thrown to end a session. Not a std::exception, so that a script cannot swallow it by accident.
struct SessionOver {};

std::string_view WithoutLineEnd(std::string_view line) {
    if (line.ends_with('\n')) line.remove_suffix(1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

}  // namespace

struct Peer::Impl {
    explicit Impl(tcp::socket connected) : socket(std::make_shared<tcp::socket>(std::move(connected))) {}

    // Starts an operation of the socket and waits for it; false when it failed. Gives up at the deadline.
    template <class Start>
    bool Await(Start start);

    bool Transmit(std::string_view bytes);     // as they are
    void SendOrEnd(std::string_view bytes);    // through TLS where that is on
    bool ReceiveMore();                        // appends to `received`; false at the client's end
    bool ReceiveDecrypted();                   // the same with TLS
    bool Pause(std::chrono::milliseconds);     // false when the server ends meanwhile
    void ReadThrough(std::string_view token);  // until `received` holds it; ends the session when it does not come
    void HearLines();                          // records the complete lines of `received`
    void EndOfClient();                        // records the rest and why no more comes
    void Say(std::string_view bytes);          // records what is sent
    void Hear(std::string_view line) { Record("C: ", WithoutLineEnd(line)); }
    void Record(std::string_view who, std::string_view what);
    std::string Take(std::size_t length);
    void Finish();

    std::shared_ptr<tcp::socket> socket;  // used on the serving thread only

    // Of the session's thread.
    std::string received;
    std::optional<TlsServer> tls;
    bool notify_on_close = true;
    std::string transcript;  // of others once `finished` is set

    // Shared.
    std::mutex mutex;
    std::condition_variable changed;
    bool ending = false;  // the server is being destroyed
    bool waiting = false;
    bool timed_out = false;
    std::error_code error;
    std::size_t transferred_bytes = 0;
    bool finished = false;

    std::array<char, 65536> chunk;
    std::thread thread;
};

template <class Start>
bool Peer::Impl::Await(Start start) {
    std::unique_lock lock(mutex);
    waiting = true;
    asio::post(socket->get_executor(), [this, start] {
        start([this](std::error_code result, std::size_t bytes) {
            const std::lock_guard guard(mutex);
            error = result;
            transferred_bytes = bytes;
            waiting = false;
            changed.notify_all();
        });
    });
    timed_out = !changed.wait_for(lock, kDeadline, [this] { return !waiting || ending; });
    if (waiting) {
        asio::post(socket->get_executor(), [socket = socket] {
            std::error_code ignored;
            socket->cancel(ignored);
        });
    }
    changed.wait(lock, [this] { return !waiting; });
    return !error && !ending;
}

bool Peer::Impl::Transmit(std::string_view bytes) {
    return Await([this, bytes](auto done) { asio::async_write(*socket, asio::buffer(bytes), std::move(done)); });
}

void Peer::Impl::SendOrEnd(std::string_view bytes) {
    bool sent = false;
    if (tls) {
        const bool encrypted = tls->Write(bytes);
        sent = Transmit(tls->TakeOutput()) && encrypted;
    } else {
        sent = Transmit(bytes);
    }
    if (sent) return;
    EndOfClient();
    throw SessionOver();
}

bool Peer::Impl::ReceiveMore() {
    if (tls) return ReceiveDecrypted();
    const bool read = Await([this](auto done) { socket->async_read_some(asio::buffer(chunk), std::move(done)); });
    if (read) received.append(chunk.data(), transferred_bytes);
    return read;
}

bool Peer::Impl::ReceiveDecrypted() {
    const std::size_t before = received.size();
    for (;;) {
        const TlsServer::Progress progress = tls->Read(received);
        if (const std::string reaction = tls->TakeOutput(); !reaction.empty()) Transmit(reaction);
        if (received.size() > before) return true;
        if (progress != TlsServer::Progress::NeedsMore) return false;
        if (!Await([this](auto done) { socket->async_read_some(asio::buffer(chunk), std::move(done)); })) return false;
        tls->Received({chunk.data(), transferred_bytes});
    }
}

bool Peer::Impl::Pause(std::chrono::milliseconds pause) {
    std::unique_lock lock(mutex);
    return !changed.wait_for(lock, pause, [this] { return ending; });
}

void Peer::Impl::ReadThrough(std::string_view token) {
    std::size_t searched = 0;
    while (received.find(token, searched) == std::string::npos) {
        searched = received.size() < token.size() ? 0 : received.size() - token.size() + 1;
        if (ReceiveMore()) continue;
        EndOfClient();
        throw SessionOver();
    }
}

void Peer::Impl::HearLines() {
    for (std::size_t end; (end = received.find('\n')) != std::string::npos;) Hear(Take(end + 1));
}

void Peer::Impl::EndOfClient() {
    HearLines();
    if (!received.empty()) Hear(std::exchange(received, {}));
    const std::lock_guard guard(mutex);
    if (ending) return;
    transcript += timed_out ? "(no more from the client)\n" : "C: (closed)\n";
}

void Peer::Impl::Say(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        const std::size_t length = end == std::string_view::npos ? bytes.size() : end + 1;
        Record("S: ", WithoutLineEnd(bytes.substr(0, length)));
        bytes.remove_prefix(length);
    }
}

void Peer::Impl::Record(std::string_view who, std::string_view what) {
    transcript.append(who).append(what).append("\n");
}

std::string Peer::Impl::Take(std::size_t length) {
    std::string taken = received.substr(0, length);
    received.erase(0, length);
    return taken;
}

void Peer::Impl::Finish() {
    if (tls && notify_on_close) {
        tls->CloseNotify();
        Transmit(tls->TakeOutput());
    }
    asio::post(socket->get_executor(), [socket = socket] { loopback::EndAndDiscard(socket); });
    const std::lock_guard guard(mutex);
    finished = true;
    changed.notify_all();
}

void Peer::Send(std::string_view bytes) {
    impl_.Say(bytes);
    impl_.SendOrEnd(bytes);
}

void Peer::SendUnrecorded(std::string_view bytes) { impl_.SendOrEnd(bytes); }

void Peer::Drip(std::string_view bytes, std::chrono::milliseconds pause, std::size_t piece_bytes) {
    impl_.Say(bytes);
    for (std::size_t i = 0; i < bytes.size(); i += piece_bytes) {
        if (i > 0) Pause(pause);
        impl_.SendOrEnd(bytes.substr(i, piece_bytes));
    }
}

void Peer::WaitForAcknowledgements() { impl_.socket->set_option(tcp::no_delay(false)); }

void Peer::Pause(std::chrono::milliseconds pause) {
    if (!impl_.Pause(pause)) throw SessionOver();
}

std::string Peer::ReadLine() {
    impl_.ReadThrough("\n");
    const std::string line = impl_.Take(impl_.received.find('\n') + 1);
    impl_.Hear(line);
    return std::string(WithoutLineEnd(line));
}

void Peer::Expect(std::string_view line) {
    if (ReadLine() == line) return;
    impl_.Record("!! expected ", line);
    throw SessionOver();
}

std::string Peer::ReadMessage() {
    static constexpr std::string_view kTerminator = "\r\n.\r\n";
    static constexpr std::string_view kEmptyMessage = ".\r\n";
    while (impl_.received.size() < kEmptyMessage.size()) {
        if (impl_.ReceiveMore()) continue;
        impl_.EndOfClient();
        throw SessionOver();
    }
    std::size_t length = kEmptyMessage.size();
    if (!impl_.received.starts_with(kEmptyMessage)) {
        impl_.ReadThrough(kTerminator);
        length = impl_.received.find(kTerminator) + kTerminator.size();
    }
    impl_.Record("C: ", "(message of " + std::to_string(length) + " bytes)");
    return impl_.Take(length);
}

void Peer::WaitForClose() {
    do {
        impl_.HearLines();
    } while (impl_.ReceiveMore());
    impl_.EndOfClient();
}

void Peer::Close() {
    impl_.Record("S: ", "(closed)");
    if (impl_.tls) {
        impl_.tls->CloseNotify();
        impl_.Transmit(impl_.tls->TakeOutput());
    }
    CloseWithoutNotify();
}

void Peer::CloseWithoutNotify() {
    impl_.notify_on_close = false;
    asio::post(impl_.socket->get_executor(), [socket = impl_.socket] {
        std::error_code ignored;
        socket->shutdown(tcp::socket::shutdown_send, ignored);
    });
}

void Peer::Reset() {
    impl_.Record("S: ", "(reset)");
    impl_.notify_on_close = false;
    asio::post(impl_.socket->get_executor(), [socket = impl_.socket] {
        std::error_code ignored;
        socket->set_option(tcp::socket::linger(true, 0), ignored);
        socket->close(ignored);
    });
}

bool Peer::StartTls(const TlsIdentity& identity, std::string_view text) {
    TlsServer tls(identity);
    tls.Received(std::exchange(impl_.received, {}));
    TlsServer::Progress progress;
    while ((progress = tls.Handshake()) == TlsServer::Progress::NeedsMore) {
        if (!impl_.Transmit(tls.TakeOutput()) || !impl_.ReceiveMore()) break;
        tls.Received(std::exchange(impl_.received, {}));
    }
    const bool established = progress == TlsServer::Progress::Done;
    impl_.Record("-- ", established ? "TLS" : "TLS failed");
    if (established) {
        impl_.Say(text);
        tls.Write(text);
    }
    impl_.Transmit(tls.TakeOutput());
    if (established) impl_.tls.emplace(std::move(tls));
    return established;
}

struct ScriptedServer::Impl {
    Impl(std::vector<Session> scripts, bool repeat_first, const std::string& address)
        : sessions(std::move(scripts)),
          repeat(repeat_first),
          listener(address, [this](tcp::socket socket) { Serve(std::move(socket)); }) {}

    ~Impl();

    void Serve(tcp::socket socket);
    static void Run(const Session& session, Peer::Impl& connection);

    const std::vector<Session> sessions;
    const bool repeat;
    std::mutex mutex;
    int accepted = 0;
    std::vector<std::unique_ptr<Peer::Impl>> connections;  // that have a session
    loopback::Listener listener;
};

ScriptedServer::Impl::~Impl() {
    listener.Run([this] { listener.CloseListener(); });
    for (const auto& connection : connections) {
        const std::lock_guard guard(connection->mutex);
        connection->ending = true;
        connection->changed.notify_all();
    }
    for (const auto& connection : connections) connection->thread.join();
    listener.Stop();
    connections.clear();  // the sockets go before the context they belong to
}

void ScriptedServer::Impl::Serve(tcp::socket socket) {
    const std::lock_guard guard(mutex);
    const std::size_t index = repeat ? 0 : static_cast<std::size_t>(accepted);
    ++accepted;
    if (index >= sessions.size()) return;
    Peer::Impl& connection = *connections.emplace_back(std::make_unique<Peer::Impl>(std::move(socket)));
    connection.thread = std::thread([&session = sessions[index], &connection] { Run(session, connection); });
}

void ScriptedServer::Impl::Run(const Session& session, Peer::Impl& connection) {
    Peer peer(connection);
    try {
        session(peer);
    } catch (const SessionOver&) {
    } catch (const std::exception& exception) {
        connection.Record("!! ", exception.what());
    }
    connection.Finish();
}

ScriptedServer::ScriptedServer(Session session) : ScriptedServer(std::move(session), "127.0.0.1") {}

ScriptedServer::ScriptedServer(std::vector<Session> sessions)
    : impl_(std::make_unique<Impl>(std::move(sessions), false, "127.0.0.1")) {}

ScriptedServer::ScriptedServer(Session session, const std::string& address)
    : impl_(std::make_unique<Impl>(std::vector<Session>{std::move(session)}, true, address)) {}

ScriptedServer::~ScriptedServer() = default;

int ScriptedServer::Port() const { return impl_->listener.Port(); }

std::string ScriptedServer::Transcript() {
    impl_->listener.Run([this] { impl_->listener.AcceptWaiting(); });
    std::vector<Peer::Impl*> connections;
    {
        const std::lock_guard guard(impl_->mutex);
        for (const auto& connection : impl_->connections) connections.push_back(connection.get());
    }
    std::string transcript;
    for (Peer::Impl* connection : connections) {
        std::unique_lock lock(connection->mutex);
        connection->changed.wait(lock, [&] { return connection->finished; });
        transcript += connection->transcript;
    }
    return transcript;
}

int ScriptedServer::Connections() const {
    const std::lock_guard guard(impl_->mutex);
    return impl_->accepted;
}

int UnusedPort() {
    // Bound but not listening: nobody else can get the port while the program runs, and connecting is refused.
    static asio::io_context context;
    static std::mutex mutex;
    static std::vector<tcp::socket> reserved;
    const std::lock_guard guard(mutex);
    tcp::socket& socket = reserved.emplace_back(context, tcp::endpoint(asio::ip::make_address("127.0.0.1"), 0));
    return socket.local_endpoint().port();
}

}  // namespace tarvex::testing
