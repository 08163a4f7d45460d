// Puts a test's certificate authority into the user's store.

#include "tests/support/trusted_authority.h"

#include <windows.h>
// Behind the one that it needs.
#include <wincrypt.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "platform/net/tls.h"

namespace tarvex::testing {

namespace {

std::vector<BYTE> FromPem(const std::string& text) {
    const auto length = static_cast<DWORD>(text.size());
    DWORD bytes = 0;
    CryptStringToBinaryA(text.c_str(), length, CRYPT_STRING_BASE64HEADER, nullptr, &bytes, nullptr, nullptr);
    std::vector<BYTE> binary(bytes);
    CryptStringToBinaryA(text.c_str(), length, CRYPT_STRING_BASE64HEADER, binary.data(), &bytes, nullptr, nullptr);
    return binary;
}

}  // namespace

// A change counts for others once the store has been closed.
struct TrustedAuthority::Impl {
    PCCERT_CONTEXT certificate = nullptr;

    template <class Change>
    static bool ChangeStore(Change change) {
        const HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"ROOT");
        const bool changed = change(store);
        return CertCloseStore(store, 0) && changed;
    }
};

TrustedAuthority::TrustedAuthority(const TlsIdentity& identity) : impl_(std::make_unique<Impl>()) {
    const std::vector<BYTE> encoded = FromPem(identity.ca_certificate);
    if (encoded.empty()) return;
    impl_->certificate =
        CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(), static_cast<DWORD>(encoded.size()));
    const bool added = Impl::ChangeStore([this](HCERTSTORE store) {
        return CertAddCertificateContextToStore(store, impl_->certificate, CERT_STORE_ADD_ALWAYS, nullptr) != FALSE;
    });
    if (!added) throw std::runtime_error("the system's store takes no certificate");
    ForgetTrustStore();
}

TrustedAuthority::~TrustedAuthority() {
    if (!impl_->certificate) return;
    Impl::ChangeStore([this](HCERTSTORE store) {
        const PCCERT_CONTEXT stored =
            CertFindCertificateInStore(store, X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, impl_->certificate, nullptr);
        return stored && CertDeleteCertificateFromStore(stored);
    });
    CertFreeCertificateContext(impl_->certificate);
    ForgetTrustStore();
}

}  // namespace tarvex::testing
