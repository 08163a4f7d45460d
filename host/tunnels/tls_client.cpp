// TLS by OpenSSL between two memory buffers.

#include "host/tunnels/tls_client.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <mutex>
#include <utility>

#include "host/tunnels/trust_store.h"

namespace tarvex::host {
namespace {

template <class Type, void (*release)(Type*)>
struct Release {
    void operator()(Type* object) const { release(object); }
};
using Context = std::unique_ptr<SSL_CTX, Release<SSL_CTX, SSL_CTX_free>>;
using Ssl = std::unique_ptr<SSL, Release<SSL, SSL_free>>;
using Names = std::unique_ptr<GENERAL_NAMES, Release<GENERAL_NAMES, GENERAL_NAMES_free>>;

constexpr auto kTrustStoreAge = std::chrono::hours(1);
constexpr std::size_t kRecordBytes = 16 * 1024;

std::string LastError() {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    const char* const text = ERR_reason_error_string(code);
    return text ? text : "error " + std::to_string(code);
}

Context MakeContext(const std::string& authority) {
    Context context(SSL_CTX_new(TLS_client_method()));
    if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1) return nullptr;
    const bool trusts = authority.empty() ? TrustSystemRoots(SSL_CTX_get_cert_store(context.get()))
                                          : SSL_CTX_load_verify_file(context.get(), authority.c_str()) == 1;
    if (!trusts) return nullptr;
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION);
    SSL_CTX_set_mode(context.get(), SSL_MODE_RELEASE_BUFFERS);
    return context;
}

// Reading the system's trust store takes tens of milliseconds, so that all share one, which an administrator's change
// reaches within an hour. Another process would not free it either: workers may use it while this one ends.
Context SystemContext() {
    static std::mutex mutex;
    static SSL_CTX* shared = nullptr;
    static std::chrono::steady_clock::time_point made;
    const std::lock_guard lock(mutex);
    const auto now = std::chrono::steady_clock::now();
    if (!shared || now - made > kTrustStoreAge) {
        Context context = MakeContext("");
        if (!context) return nullptr;
        SSL_CTX_free(std::exchange(shared, context.release()));
        made = now;
    }
    SSL_CTX_up_ref(shared);
    return Context(shared);
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

TlsFailure CertificateFailure(long result) {
    switch (result) {
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return {TlsTrouble::OtherName, "the certificate is for another host"};
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return {TlsTrouble::OutOfDate, "the certificate has expired"};
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return {TlsTrouble::OutOfDate, "the certificate is not valid yet"};
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        case X509_V_ERR_CERT_SIGNATURE_FAILURE:
            return {TlsTrouble::NotTrusted, "the certificate is of an authority that is not trusted here"};
        default:
            return {TlsTrouble::NotAccepted,
                    std::string("the certificate is not accepted: ") + X509_verify_cert_error_string(result)};
    }
}

// An alert of the server, or a version that is too old: only a server that speaks TLS fails like this.
TlsFailure ProtocolFailure() {
    const int reason = ERR_GET_REASON(ERR_peek_error());
    if (reason == SSL_R_UNSUPPORTED_PROTOCOL || reason == SSL_R_TLSV1_ALERT_PROTOCOL_VERSION) {
        ERR_clear_error();
        return {TlsTrouble::Refused, "the server does not speak TLS 1.2 or newer"};
    }
    if (reason > SSL_AD_REASON_OFFSET)
        return {TlsTrouble::Refused, "the server refuses the connection: " + LastError()};
    if (reason == SSL_R_WRONG_VERSION_NUMBER || reason == SSL_R_HTTP_REQUEST) {
        ERR_clear_error();
        return {TlsTrouble::NoTls, "the server does not speak TLS here"};
    }
    return {TlsTrouble::NoTls, LastError()};
}

std::string Printed(const ASN1_STRING* text) {
    return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
            static_cast<std::size_t>(ASN1_STRING_length(text))};
}

std::string AddressIn(const ASN1_OCTET_STRING* bytes) {
    const unsigned char* const data = ASN1_STRING_get0_data(bytes);
    std::string text;
    if (ASN1_STRING_length(bytes) != 4) return "an IPv6 address";
    for (int i = 0; i < 4; ++i) text += (i > 0 ? "." : "") + std::to_string(data[i]);
    return text;
}

std::vector<std::string> NamesIn(X509* certificate) {
    std::vector<std::string> names;
    const Names found(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; found && i < sk_GENERAL_NAME_num(found.get()); ++i) {
        const GENERAL_NAME* const name = sk_GENERAL_NAME_value(found.get(), i);
        if (name->type == GEN_DNS) names.push_back(Printed(name->d.dNSName));
        if (name->type == GEN_IPADD) names.push_back(AddressIn(name->d.iPAddress));
    }
    if (!names.empty()) return names;
    std::array<char, 256> common_name{};
    if (X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, common_name.data(),
                                  static_cast<int>(common_name.size())) > 0) {
        names.emplace_back(common_name.data());
    }
    return names;
}

}  // namespace

struct TlsClient::State {
    Ssl ssl;
    BIO* received = nullptr;  // both belong to `ssl`
    BIO* to_send = nullptr;
    std::size_t sent_bytes = 0;  // of what is in `to_send`
    TlsFailure failure;

    Step Fail() {
        const long verified = SSL_get_verify_result(ssl.get());
        failure = verified != X509_V_OK ? CertificateFailure(verified) : ProtocolFailure();
        ERR_clear_error();
        return Step::Failed;
    }
};

TlsClient::TlsClient(std::unique_ptr<State> state) : state_(std::move(state)) {}
TlsClient::~TlsClient() = default;

std::unique_ptr<TlsClient> TlsClient::Make(const std::string& server, const std::string& authority,
                                           TlsFailure& failure) {
    ERR_clear_error();
    const Context context = authority.empty() ? SystemContext() : MakeContext(authority);
    if (!context) {
        const std::string what = authority.empty() ? "the system's trust store" : "the file of tls_authority";
        failure = {TlsTrouble::Local, what + " cannot be read: " + LastError()};
        return nullptr;
    }
    auto state = std::make_unique<State>();
    state->ssl.reset(SSL_new(context.get()));
    BIO* const received = BIO_new(BIO_s_mem());
    BIO* const to_send = BIO_new(BIO_s_mem());
    if (!state->ssl || !received || !to_send || !ExpectServer(state->ssl.get(), server)) {
        BIO_free(received);
        BIO_free(to_send);
        failure = {TlsTrouble::Local, "it cannot be set up: " + LastError()};
        return nullptr;
    }
    state->received = received;
    state->to_send = to_send;
    SSL_set_bio(state->ssl.get(), received, to_send);
    SSL_set_connect_state(state->ssl.get());
    return std::make_unique<TlsClient>(std::move(state));
}

TlsClient::Step TlsClient::Handshake() {
    ERR_clear_error();
    const int result = SSL_do_handshake(state_->ssl.get());
    if (result == 1) return Step::Done;
    return SSL_get_error(state_->ssl.get(), result) == SSL_ERROR_WANT_READ ? Step::NeedsMore : state_->Fail();
}

void TlsClient::Feed(std::string_view received) {
    BIO_write(state_->received, received.data(), static_cast<int>(received.size()));
}

TlsClient::Step TlsClient::Decrypt(std::string& clear) {
    for (;;) {
        ERR_clear_error();
        const std::size_t before = clear.size();
        clear.resize(before + kRecordBytes);
        std::size_t bytes = 0;
        const int result = SSL_read_ex(state_->ssl.get(), clear.data() + before, kRecordBytes, &bytes);
        clear.resize(before + bytes);
        if (result == 1) continue;
        const int error = SSL_get_error(state_->ssl.get(), result);
        if (error == SSL_ERROR_WANT_READ) return Step::NeedsMore;
        return error == SSL_ERROR_ZERO_RETURN ? Step::Ended : state_->Fail();
    }
}

bool TlsClient::Encrypt(std::string_view clear) {
    ERR_clear_error();
    std::size_t bytes = 0;
    if (clear.empty() || SSL_write_ex(state_->ssl.get(), clear.data(), clear.size(), &bytes) == 1) return true;
    state_->Fail();
    return false;
}

void TlsClient::EncryptEnd() {
    SSL_shutdown(state_->ssl.get());
    ERR_clear_error();
}

std::string_view TlsClient::ToSend() const {
    char* data = nullptr;
    const long size = BIO_get_mem_data(state_->to_send, &data);
    if (size <= 0) return {};
    return std::string_view(data, static_cast<std::size_t>(size)).substr(state_->sent_bytes);
}

void TlsClient::Sent(std::size_t bytes) {
    state_->sent_bytes += bytes;
    if (!ToSend().empty()) return;
    (void)BIO_reset(state_->to_send);
    state_->sent_bytes = 0;
}

const TlsFailure& TlsClient::Why() const { return state_->failure; }

TlsFacts TlsClient::Facts() const {
    SSL* const ssl = state_->ssl.get();
    TlsFacts facts{SSL_get_version(ssl), SSL_get_cipher_name(ssl), {}, 0};
    if (X509* const certificate = SSL_get0_peer_certificate(ssl)) {
        facts.names = NamesIn(certificate);
        int seconds = 0;
        ASN1_TIME_diff(&facts.days_left, &seconds, nullptr, X509_get0_notAfter(certificate));
    }
    return facts;
}

}  // namespace tarvex::host
