// A browser that speaks TLS and believes everybody.

#include "tests/console/support/posix/tls_client.h"

#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <array>

#include "testing/owned.h"

namespace tarvex::testing {
namespace {

std::string PemOf(X509* certificate) {
    const Owned<BIO, BIO_free_all> memory(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(memory.get(), certificate);
    char* bytes = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &bytes);
    return {bytes, static_cast<std::size_t>(length)};
}

}  // namespace

TlsPage AskOverTls(int port, const std::string& request, int highest_version) {
    const Owned<SSL_CTX, SSL_CTX_free> context(SSL_CTX_new(TLS_client_method()));
    if (highest_version) SSL_CTX_set_max_proto_version(context.get(), highest_version);
    const Owned<BIO, BIO_free_all> connection(BIO_new_ssl_connect(context.get()));
    BIO_set_conn_hostname(connection.get(), ("127.0.0.1:" + std::to_string(port)).c_str());
    if (BIO_do_connect(connection.get()) != 1) return {};
    SSL* ssl = nullptr;
    BIO_get_ssl(connection.get(), &ssl);
    const Owned<X509, X509_free> certificate(SSL_get1_peer_certificate(ssl));
    TlsPage page{PemOf(certificate.get()), {}};
    for (std::size_t sent = 0; sent < request.size();) {
        const int bytes = BIO_write(connection.get(), request.data() + sent, static_cast<int>(request.size() - sent));
        if (bytes <= 0) break;
        sent += static_cast<std::size_t>(bytes);
    }
    std::array<char, 4096> piece;
    for (int bytes = 0; (bytes = BIO_read(connection.get(), piece.data(), piece.size())) > 0;)
        page.answer.append(piece.data(), static_cast<std::size_t>(bytes));
    return page;
}

}  // namespace tarvex::testing
