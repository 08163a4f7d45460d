// TLS over memory with OpenSSL.

#include "testing/tls.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <array>
#include <stdexcept>

#include "testing/owned.h"
#include "testing/scripted_server.h"

namespace tarvex::testing {

namespace {

using Context = Owned<SSL_CTX, SSL_CTX_free>;
using Session = Owned<SSL, SSL_free>;
using Bio = Owned<BIO, BIO_free_all>;
using Certificate = Owned<X509, X509_free>;
using Key = Owned<EVP_PKEY, EVP_PKEY_free>;

Bio Source(const std::string& text) { return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size()))); }

Context MakeContext(const TlsIdentity& identity) {
    Context context(SSL_CTX_new(TLS_server_method()));
    const Bio certificate_text = Source(identity.certificate);
    const Bio key_text = Source(identity.key);
    const Certificate certificate(PEM_read_bio_X509(certificate_text.get(), nullptr, nullptr, nullptr));
    const Key key(PEM_read_bio_PrivateKey(key_text.get(), nullptr, nullptr, nullptr));
    if (!context || SSL_CTX_use_certificate(context.get(), certificate.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context.get(), key.get()) != 1) {
        throw std::invalid_argument("no usable TLS identity");
    }
    if (identity.only_version != 0) {
        SSL_CTX_set_security_level(context.get(), 0);  // an old version would not even be offered otherwise
        SSL_CTX_set_min_proto_version(context.get(), identity.only_version);
        SSL_CTX_set_max_proto_version(context.get(), identity.only_version);
    }
    // A client that never reads would otherwise close with tickets unread, which resets the connection.
    SSL_CTX_set_num_tickets(context.get(), 0);
    return context;
}

}  // namespace

struct TlsServer::Impl {
    Context context;
    Session session;
    BIO* from_client;  // owned by the session
    BIO* to_client;    // owned by the session

    TlsServer::Progress After(int result) const {
        const int error = SSL_get_error(session.get(), result);
        return error == SSL_ERROR_WANT_READ ? TlsServer::Progress::NeedsMore : TlsServer::Progress::Failed;
    }
};

TlsServer::TlsServer(const TlsIdentity& identity) : impl_(std::make_unique<Impl>()) {
    impl_->context = MakeContext(identity);
    impl_->session.reset(SSL_new(impl_->context.get()));
    impl_->from_client = BIO_new(BIO_s_mem());
    impl_->to_client = BIO_new(BIO_s_mem());
    SSL_set_bio(impl_->session.get(), impl_->from_client, impl_->to_client);
    SSL_set_accept_state(impl_->session.get());
}

TlsServer::TlsServer(TlsServer&& other) noexcept = default;
TlsServer::~TlsServer() = default;

void TlsServer::Received(std::string_view bytes) {
    BIO_write(impl_->from_client, bytes.data(), static_cast<int>(bytes.size()));
}

std::string TlsServer::TakeOutput() {
    std::string output(BIO_ctrl_pending(impl_->to_client), '\0');
    if (!output.empty()) BIO_read(impl_->to_client, output.data(), static_cast<int>(output.size()));
    return output;
}

TlsServer::Progress TlsServer::Handshake() {
    ERR_clear_error();
    const int result = SSL_do_handshake(impl_->session.get());
    return result == 1 ? Progress::Done : impl_->After(result);
}

TlsServer::Progress TlsServer::Read(std::string& text) {
    std::array<char, 16384> buffer;
    for (;;) {
        ERR_clear_error();
        const int length = SSL_read(impl_->session.get(), buffer.data(), static_cast<int>(buffer.size()));
        if (length > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(length));
        } else {
            return SSL_get_error(impl_->session.get(), length) == SSL_ERROR_ZERO_RETURN ? Progress::Done
                                                                                        : impl_->After(length);
        }
    }
}

bool TlsServer::Write(std::string_view text) {
    ERR_clear_error();
    return text.empty() || SSL_write(impl_->session.get(), text.data(), static_cast<int>(text.size())) > 0;
}

void TlsServer::CloseNotify() {
    ERR_clear_error();
    SSL_shutdown(impl_->session.get());
}

void TlsServer::AskForNewKeys() {
    ERR_clear_error();
    SSL_key_update(impl_->session.get(), SSL_KEY_UPDATE_REQUESTED);
    SSL_do_handshake(impl_->session.get());
}

}  // namespace tarvex::testing
