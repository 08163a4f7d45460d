// Reads and writes the bytes of a connection.

#include <utility>  // Boost.Asio 1.74 leaves it out

#include "console/channel.h"

#include <openssl/ssl.h>

#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>

#include "console/listener.h"
#include "console/log.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"

namespace tarvex::console {

namespace net = boost::asio;
using boost::system::error_code;

TlsContext LoadCertificate(const std::string& certificate, const std::string& key) {
    if (certificate.empty()) return nullptr;
    try {
        auto context = std::make_shared<net::ssl::context>(net::ssl::context::tls_server);
        SSL_CTX_set_min_proto_version(context->native_handle(), TLS1_2_VERSION);
        SSL_CTX_set_options(context->native_handle(), SSL_OP_NO_RENEGOTIATION);
        SSL_CTX_set_mode(context->native_handle(), SSL_MODE_RELEASE_BUFFERS);
        context->use_certificate_chain_file(certificate);
        context->use_private_key_file(key, net::ssl::context::pem);
        return context;
    } catch (const boost::system::system_error& error) {
        throw host::CommandError(
            host::kBadSettings, host::Tr("cannot use certificate \"{0}\" with key \"{1}\": {2}", Printable(certificate),
                                         Printable(key), error.code().message()));
    }
}

Channel::Channel(Socket socket, TlsContext tls) : socket_(std::move(socket)), context_(std::move(tls)) {
    if (context_) tls_.emplace(socket_, *context_);
}

void Channel::Open(Done done) {
    if (!tls_) return net::post(socket_.get_executor(), [done = std::move(done)] { done({}, 0); });
    tls_->async_handshake(net::ssl::stream_base::server,
                          [done = std::move(done)](error_code error) { done(error, 0); });
}

void Channel::Read(net::mutable_buffer into, Done done) {
    tls_ ? tls_->async_read_some(into, std::move(done)) : socket_.async_read_some(into, std::move(done));
}

void Channel::Write(const std::array<net::const_buffer, 2>& bytes, Done done) {
    tls_ ? net::async_write(*tls_, bytes, std::move(done)) : net::async_write(socket_, bytes, std::move(done));
}

void Channel::Finish(Done done) {
    if (tls_) return tls_->async_shutdown([done = std::move(done)](error_code error) { done(error, 0); });
    error_code error;
    socket_.shutdown(Socket::shutdown_send, error);
    net::post(socket_.get_executor(), [done = std::move(done), error] { done(error, 0); });
}

void Channel::Close() {
    error_code ignored;
    socket_.close(ignored);
}

std::string Channel::Peer() const {
    error_code error;
    const auto endpoint = socket_.remote_endpoint(error);
    return error ? std::string() : AddressIn(endpoint);
}

}  // namespace tarvex::console
