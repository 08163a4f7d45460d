// Certificates for tests, made in memory: an authority and a server certificate that it signed.

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>

#include "testing/owned.h"
#include "testing/scripted_server.h"

namespace tarvex::testing {

namespace {

using Bio = Owned<BIO, BIO_free_all>;
using Certificate = Owned<X509, X509_free>;
using Key = Owned<EVP_PKEY, EVP_PKEY_free>;
using Extension = Owned<X509_EXTENSION, X509_EXTENSION_free>;

constexpr long kDay_s = 24L * 60 * 60;

void Require(bool done) {
    if (!done) throw std::runtime_error("OpenSSL cannot make a certificate");
}

Key MakeKey() {
    Key key(EVP_EC_gen("P-256"));
    Require(key != nullptr);
    return key;
}

void SetRandomSerial(X509* certificate) {
    std::uint64_t serial = 0;
    Require(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1);
    Require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial >> 1) == 1);
}

// A certificate of this name and key, issued by the issuer, or by itself when that is null.
Certificate MakeCertificate(const std::string& common_name, EVP_PKEY* key, X509* issuer) {
    Certificate certificate(X509_new());
    X509* const x509 = certificate.get();
    Require(x509 != nullptr && X509_set_version(x509, X509_VERSION_3) == 1);
    SetRandomSerial(x509);
    X509_NAME* const name = X509_get_subject_name(x509);
    const auto* bytes = reinterpret_cast<const unsigned char*>(common_name.c_str());
    Require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, bytes, -1, -1, 0) == 1);
    Require(X509_set_issuer_name(x509, issuer ? X509_get_subject_name(issuer) : name) == 1);
    Require(X509_set_pubkey(x509, key) == 1);
    return certificate;
}

void SetValidity(X509* certificate, bool expired) {
    X509_gmtime_adj(X509_getm_notBefore(certificate), -2 * kDay_s);
    X509_gmtime_adj(X509_getm_notAfter(certificate), expired ? -kDay_s : 30 * kDay_s);
}

void AddExtension(X509* certificate, X509* issuer, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    Require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

std::string AlternativeNames(const TlsOptions& options) {
    std::string names;
    for (const std::string& name : options.names) names += ",DNS:" + name;
    for (const std::string& address : options.addresses) names += ",IP:" + address;
    return names.empty() ? names : names.substr(1);
}

std::string Content(BIO* bio) {
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    return {data, static_cast<std::size_t>(length)};
}

std::string Pem(X509* certificate) {
    const Bio bio(BIO_new(BIO_s_mem()));
    Require(PEM_write_bio_X509(bio.get(), certificate) == 1);
    return Content(bio.get());
}

std::string Pem(EVP_PKEY* key) {
    const Bio bio(BIO_new(BIO_s_mem()));
    Require(PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1);
    return Content(bio.get());
}

}  // namespace

TlsIdentity MakeTlsIdentity(const TlsOptions& options) {
    const Key authority_key = MakeKey();
    const Certificate authority = MakeCertificate("Throw-away test authority", authority_key.get(), nullptr);
    SetValidity(authority.get(), false);
    AddExtension(authority.get(), authority.get(), NID_basic_constraints, "critical,CA:TRUE");
    AddExtension(authority.get(), authority.get(), NID_key_usage, "critical,keyCertSign,cRLSign");
    AddExtension(authority.get(), authority.get(), NID_subject_key_identifier, "hash");
    Require(X509_sign(authority.get(), authority_key.get(), EVP_sha256()) > 0);

    const Key key = MakeKey();
    const Certificate server = MakeCertificate("Throw-away test server", key.get(), authority.get());
    SetValidity(server.get(), options.expired);
    AddExtension(server.get(), authority.get(), NID_basic_constraints, "critical,CA:FALSE");
    AddExtension(server.get(), authority.get(), NID_ext_key_usage, "serverAuth");
    AddExtension(server.get(), authority.get(), NID_authority_key_identifier, "keyid");
    const std::string names = AlternativeNames(options);
    if (!names.empty()) AddExtension(server.get(), authority.get(), NID_subject_alt_name, names);
    Require(X509_sign(server.get(), authority_key.get(), EVP_sha256()) > 0);

    return {Pem(authority.get()), Pem(server.get()), Pem(key.get())};
}

}  // namespace tarvex::testing
