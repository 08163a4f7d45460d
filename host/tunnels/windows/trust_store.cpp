// The system's certificate store "ROOT".

#include "host/tunnels/trust_store.h"

#include <openssl/err.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <windows.h>
// Behind all of them: it needs the one, and its macros have names of the others.
#include <wincrypt.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace tarvex::host {

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

// The system, or who looks after it, may limit what a root is trusted for.
bool IsTrustedForServers(PCCERT_CONTEXT root) {
    DWORD bytes = 0;
    if (!CertGetEnhancedKeyUsage(root, CERT_FIND_PROP_ONLY_ENHKEY_USAGE_FLAG, nullptr, &bytes)) {
        return GetLastError() == static_cast<DWORD>(CRYPT_E_NOT_FOUND);
    }
    std::vector<unsigned char> buffer(bytes);
    auto* const usage = reinterpret_cast<CERT_ENHKEY_USAGE*>(buffer.data());
    if (!CertGetEnhancedKeyUsage(root, CERT_FIND_PROP_ONLY_ENHKEY_USAGE_FLAG, usage, &bytes)) return false;
    const std::span purposes(usage->rgpszUsageIdentifier, usage->cUsageIdentifier);
    if (purposes.empty()) return GetLastError() == static_cast<DWORD>(CRYPT_E_NOT_FOUND);  // no limit
    return std::ranges::any_of(purposes, [](std::string_view purpose) { return purpose == szOID_PKIX_KP_SERVER_AUTH; });
}

}  // namespace

// One that OpenSSL cannot read is left out.
bool TrustSystemRoots(X509_STORE* store) {
    const SystemStore roots(CertOpenSystemStoreW(0, L"ROOT"));
    if (!roots) return false;
    PCCERT_CONTEXT root = nullptr;
    while ((root = CertEnumCertificatesInStore(roots.get(), root)) != nullptr) {
        if (!IsTrustedForServers(root)) continue;
        const unsigned char* encoded = root->pbCertEncoded;
        const Certificate certificate(d2i_X509(nullptr, &encoded, static_cast<long>(root->cbCertEncoded)));
        if (certificate) X509_STORE_add_cert(store, certificate.get());
    }
    ERR_clear_error();
    return true;
}

}  // namespace tarvex::host
