// The provider's server of the tests.

#include "tests/host/tokens/posix/authorization_server.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "host/system/posix/descriptor.h"
#include "testing/tls.h"

namespace tarvex::testing {
namespace {

using host::Descriptor;

std::string Decoded(std::string_view word) {
    std::string text;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (word[i] == '%') {
            text += static_cast<char>(std::strtol(std::string(word.substr(i + 1, 2)).c_str(), nullptr, 16));
            i += 2;
        } else {
            text += word[i];
        }
    }
    return text;
}

// A whole request with its body; nothing while more has to come.
std::optional<ProviderRequest> RequestIn(std::string_view text) {
    const std::size_t end = text.find("\r\n\r\n");
    if (end == std::string_view::npos) return std::nullopt;
    const std::size_t length_at = text.find("Content-Length: ");
    if (length_at == std::string_view::npos) throw std::runtime_error("a request without a length");
    std::string_view body = text.substr(end + 4);
    if (body.size() < std::strtoul(text.data() + length_at + 16, nullptr, 10)) return std::nullopt;
    ProviderRequest request;
    const std::size_t path = text.find(' ') + 1;
    request.path = text.substr(path, text.find(' ', path) - path);
    while (!body.empty()) {
        const std::string_view field = body.substr(0, body.find('&'));
        body.remove_prefix(std::min(field.size() + 1, body.size()));
        request.form[Decoded(field.substr(0, field.find('=')))] = Decoded(field.substr(field.find('=') + 1));
    }
    return request;
}

}  // namespace

struct AuthorizationServer::Impl {
    Impl(Handler answer, std::optional<TlsIdentity> of) : handler(std::move(answer)), identity(std::move(of)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        if (bind(listener.Get(), any, size) != 0 || listen(listener.Get(), 64) != 0 ||
            getsockname(listener.Get(), any, &size) != 0) {
            throw std::runtime_error("no port");
        }
        port = ntohs(address.sin_port);
        thread = std::thread([this] { Serve(); });
    }
    ~Impl() {
        stopped = true;
        thread.join();
    }

    void Serve() {
        while (!stopped) {
            pollfd wanted{listener.Get(), POLLIN, 0};
            if (poll(&wanted, 1, 20) <= 0) continue;
            const Descriptor connection(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (connection.IsOpen()) Talk(connection);
        }
    }

    // False at the end of the connection.
    bool Receive(const Descriptor& connection, std::string& bytes) const {
        while (!stopped) {
            pollfd wanted{connection.Get(), POLLIN, 0};
            if (poll(&wanted, 1, 20) <= 0) continue;
            std::array<char, 4096> piece{};
            const ssize_t count = recv(connection.Get(), piece.data(), piece.size(), 0);
            if (count <= 0) return false;
            bytes.assign(piece.data(), static_cast<std::size_t>(count));
            return true;
        }
        return false;
    }

    static void Send(const Descriptor& connection, std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t sent = send(connection.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0) return;
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
    }

    void Talk(const Descriptor& connection) {
        std::optional<TlsServer> tls;
        if (identity) tls.emplace(*identity);
        std::string text;
        std::string bytes;
        std::optional<ProviderRequest> request;
        bool greeted = !tls;
        while (!request) {
            if (!Receive(connection, bytes)) return;
            if (tls) {
                tls->Received(bytes);
                if (!greeted) greeted = tls->Handshake() == TlsServer::Progress::Done;
                if (greeted) tls->Read(text);
                Send(connection, tls->TakeOutput());
            } else {
                text += bytes;
            }
            request = RequestIn(text);
        }
        const std::optional<ProviderAnswer> answer = Answer(*request);
        if (!answer) {
            while (Receive(connection, bytes)) continue;
            return;
        }
        std::string reply = "HTTP/1.1 " + std::to_string(answer->status) + " X\r\n" + answer->more_header +
                            "Content-Length: " + std::to_string(answer->body.size()) + "\r\n\r\n" + answer->body;
        if (tls) {
            tls->Write(reply);
            tls->CloseNotify();
            reply = tls->TakeOutput();
        }
        Send(connection, reply);
        shutdown(connection.Get(), SHUT_WR);
        while (Receive(connection, bytes)) continue;
    }

    std::optional<ProviderAnswer> Answer(const ProviderRequest& request) {
        {
            const std::scoped_lock lock(mutex);
            requests.push_back(request);
        }
        return handler(request);
    }

    const Handler handler;
    const std::optional<TlsIdentity> identity;
    const Descriptor listener{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    int port = 0;
    std::atomic<bool> stopped = false;
    mutable std::mutex mutex;
    std::vector<ProviderRequest> requests;
    std::thread thread;
};

AuthorizationServer::AuthorizationServer(Handler handler, std::optional<TlsIdentity> identity)
    : impl_(std::make_unique<Impl>(std::move(handler), std::move(identity))) {}

AuthorizationServer::~AuthorizationServer() = default;

std::string AuthorizationServer::Url(const std::string& path) const {
    return (impl_->identity ? "https" : "http") + std::string("://127.0.0.1:") + std::to_string(impl_->port) + path;
}

std::vector<ProviderRequest> AuthorizationServer::Requests() const {
    const std::scoped_lock lock(impl_->mutex);
    return impl_->requests;
}

std::string AuthorizationServer::ProviderFile() const {
    return "[client_id]\nthe-client\n[client_secret]\nthe-secret\n[token_endpoint]\n" + Url("/token") +
           "\n[device_endpoint]\n" + Url("/device") + "\n[authorization_endpoint]\n" + Url("/authorize") +
           "\n[scopes]\nmail offline_access\n";
}

}  // namespace tarvex::testing
