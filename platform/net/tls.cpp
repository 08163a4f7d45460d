// TLS by OpenSSL between two memory buffers.

#include "platform/net/tls.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

#include "platform/net/trust_store.h"

namespace tarvex {

namespace {

struct FreeContext {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
struct FreeSsl {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
};
using ContextPtr = std::unique_ptr<SSL_CTX, FreeContext>;
using SslPtr = std::unique_ptr<SSL, FreeSsl>;

constexpr auto kTrustStoreAge = std::chrono::hours(1);

// Reading a trust store takes tens of milliseconds, so all sessions share one. It is left to the end of the process:
// workers may still use it while the process ends.
struct SharedContext {
    std::mutex mutex;
    SSL_CTX* context = nullptr;
    std::chrono::steady_clock::time_point made;
};
SharedContext shared;

std::string LastError() {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    const char* text = ERR_reason_error_string(code);
    return text != nullptr ? text : "error " + std::to_string(code);
}

ContextPtr MakeContext() {
    ContextPtr context(SSL_CTX_new(TLS_client_method()));
    if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1 ||
        !TrustSystemRoots(SSL_CTX_get_cert_store(context.get()))) {
        return nullptr;
    }
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION);
    return context;
}

ContextPtr CurrentContext() {
    // No clean-up by OpenSSL at the end of the process, for the same reason.
    OPENSSL_init_ssl(OPENSSL_INIT_NO_ATEXIT, nullptr);
    ERR_clear_error();
    const std::lock_guard lock(shared.mutex);
    const auto now = std::chrono::steady_clock::now();
    if (shared.context == nullptr || now - shared.made > kTrustStoreAge) {
        ContextPtr context = MakeContext();
        if (!context) return nullptr;
        SSL_CTX_free(std::exchange(shared.context, context.release()));
        shared.made = now;
    }
    SSL_CTX_up_ref(shared.context);
    return ContextPtr(shared.context);
}

// The name as a certificate holds it: without the dot of the DNS root, an address without its scope.
std::string NameInCertificate(std::string name) {
    if (name.ends_with('.')) name.pop_back();
    if (name.find(':') != std::string::npos) name.erase(std::min(name.find('%'), name.size()));
    return name;
}

// An address must be in the certificate as an address, and server name indication is for names alone (RFC 6066 section
// 3).
bool ExpectServer(SSL* ssl, const std::string& server) {
    const std::string name = NameInCertificate(server);
    if (name.empty()) return false;
    if (X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), name.c_str()) == 1) return true;
    ERR_clear_error();
    SSL_set_hostflags(ssl, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    return SSL_set1_host(ssl, name.c_str()) == 1 && SSL_set_tlsext_host_name(ssl, name.c_str()) == 1;
}

FailureKind CertificateFailureKind(long verify_result) {
    switch (verify_result) {
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return FailureKind::CertificateOfOther;
        case X509_V_ERR_CERT_HAS_EXPIRED:
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return FailureKind::CertificateOutOfDate;
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
            return FailureKind::CertificateNotTrusted;
        default:
            return FailureKind::CertificateNotAccepted;
    }
}

// An alert of the server, or a version that is too old: only a server that speaks TLS fails like this.
bool IsRefusal(int reason) { return reason > SSL_AD_REASON_OFFSET || reason == SSL_R_UNSUPPORTED_PROTOCOL; }

int AsInt(std::size_t size) { return static_cast<int>(size); }

}  // namespace

struct TlsSession::State {
    SslPtr ssl;
    BIO* received = nullptr;  // both belong to `ssl`
    BIO* to_send = nullptr;
    std::size_t sent_bytes = 0;  // of what is in `to_send`
    Failure failure;

    // Why the last operation failed.
    void KeepFailure() {
        const long verified = SSL_get_verify_result(ssl.get());
        const bool ended = ERR_GET_REASON(ERR_peek_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING;
        if (verified != X509_V_OK) {
            failure = {CertificateFailureKind(verified),
                       std::string("certificate: ") + X509_verify_cert_error_string(verified)};
            ERR_clear_error();
        } else if (ended) {
            failure = {FailureKind::NoTls, "the connection was cut without a TLS close"};
            ERR_clear_error();
        } else {
            const FailureKind kind =
                IsRefusal(ERR_GET_REASON(ERR_peek_error())) ? FailureKind::TlsRefused : FailureKind::NoTls;
            failure = {kind, "TLS: " + LastError()};
        }
    }
};

TlsSession::TlsSession(std::unique_ptr<State> state) : state_(std::move(state)) {}
TlsSession::~TlsSession() = default;

std::unique_ptr<TlsSession> TlsSession::Make(const std::string& server, Failure& failure) {
    auto state = std::make_unique<State>();
    const ContextPtr context = CurrentContext();
    if (context) state->ssl.reset(SSL_new(context.get()));
    if (!state->ssl || !ExpectServer(state->ssl.get(), server)) {
        failure = {FailureKind::Local, "TLS: " + LastError()};
        return nullptr;
    }
    state->received = BIO_new(BIO_s_mem());
    state->to_send = BIO_new(BIO_s_mem());
    SSL_set_bio(state->ssl.get(), state->received, state->to_send);
    if (state->received == nullptr || state->to_send == nullptr) {
        failure = {FailureKind::Local, "TLS: out of memory"};
        return nullptr;
    }
    SSL_set_connect_state(state->ssl.get());
    return std::make_unique<TlsSession>(std::move(state));
}

TlsSession::Handshake TlsSession::ContinueHandshake() {
    ERR_clear_error();
    const int result = SSL_do_handshake(state_->ssl.get());
    if (result == 1) return Handshake::Done;
    if (SSL_get_error(state_->ssl.get(), result) == SSL_ERROR_WANT_READ) return Handshake::NeedsMore;
    state_->KeepFailure();
    return Handshake::Failed;
}

void TlsSession::Feed(std::string_view received) {
    BIO_write(state_->received, received.data(), AsInt(received.size()));
}

void TlsSession::FeedEnd() { BIO_set_mem_eof_return(state_->received, 0); }

bool TlsSession::HasReceived() const {
    return SSL_has_pending(state_->ssl.get()) == 1 || BIO_ctrl_pending(state_->received) > 0;
}

Transfer TlsSession::Decrypt(char* buffer, std::size_t size_bytes) {
    ERR_clear_error();
    std::size_t bytes = 0;
    const int result = SSL_read_ex(state_->ssl.get(), buffer, size_bytes, &bytes);
    if (result == 1) return {Transfer::Status::Progress, bytes};
    switch (SSL_get_error(state_->ssl.get(), result)) {
        case SSL_ERROR_WANT_READ:
            return {Transfer::Status::WouldBlock};
        case SSL_ERROR_ZERO_RETURN:
            return {Transfer::Status::Ended};
        default:
            state_->KeepFailure();
            return {Transfer::Status::Failed, 0, state_->failure.reason};
    }
}

bool TlsSession::Encrypt(std::string_view clear) {
    ERR_clear_error();
    std::size_t bytes = 0;
    if (clear.empty() || SSL_write_ex(state_->ssl.get(), clear.data(), clear.size(), &bytes) == 1) return true;
    state_->KeepFailure();
    return false;
}

void TlsSession::EncryptEnd() {
    ERR_clear_error();
    SSL_shutdown(state_->ssl.get());
    ERR_clear_error();
}

std::string_view TlsSession::ToSend() const {
    char* data = nullptr;
    const long size = BIO_get_mem_data(state_->to_send, &data);
    if (size <= 0) return {};
    return std::string_view(data, static_cast<std::size_t>(size)).substr(state_->sent_bytes);
}

void TlsSession::Sent(std::size_t bytes) {
    state_->sent_bytes += bytes;
    if (!ToSend().empty()) return;
    (void)BIO_reset(state_->to_send);
    state_->sent_bytes = 0;
}

const Failure& TlsSession::Why() const { return state_->failure; }

void ForgetTrustStore() {
    const std::lock_guard lock(shared.mutex);
    SSL_CTX_free(std::exchange(shared.context, nullptr));
}

}  // namespace tarvex
