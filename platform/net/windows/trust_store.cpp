// The system's certificate store "ROOT".

#include "platform/net/trust_store.h"

#include <openssl/err.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <windows.h>
// Behind all of them: it needs the one, and its macros have names of the others.
#include <wincrypt.h>

#include <memory>

namespace tarvex {

namespace {

struct CloseStore {
    using pointer = HCERTSTORE;
    void operator()(HCERTSTORE store) const { CertCloseStore(store, 0); }
};
using SystemStore = std::unique_ptr<HCERTSTORE, CloseStore>;

struct FreeCertificate {
    void operator()(X509* certificate) const { X509_free(certificate); }
};
using Certificate = std::unique_ptr<X509, FreeCertificate>;

}  // namespace

// One that OpenSSL cannot read is left out.
bool TrustSystemRoots(X509_STORE* store) {
    const SystemStore roots(CertOpenSystemStoreW(0, L"ROOT"));
    if (!roots) return false;
    PCCERT_CONTEXT root = nullptr;
    while ((root = CertEnumCertificatesInStore(roots.get(), root)) != nullptr) {
        const unsigned char* encoded = root->pbCertEncoded;
        const Certificate certificate(d2i_X509(nullptr, &encoded, static_cast<long>(root->cbCertEncoded)));
        if (certificate) X509_STORE_add_cert(store, certificate.get());
    }
    ERR_clear_error();
    return true;
}

}  // namespace tarvex
