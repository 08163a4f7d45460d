// Roots of the system's store that are trusted for some purposes alone.

#include "platform/net/trust_store.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <windows.h>
// Behind all of them: it needs the one, and its macros have names of the others.
#include <wincrypt.h>

#include <memory>
#include <string>
#include <vector>

#include "testing/scripted_server.h"
#include "tests/support/windows/replaced_import.h"

extern "C" {
extern void* imported_open_store asm("__imp__CertOpenSystemStoreW@8");
}

namespace tarvex {
namespace {

HCERTSTORE system_roots = nullptr;

HCERTSTORE WINAPI SystemRoots(HCRYPTPROV_LEGACY, LPCWSTR) { return CertDuplicateStore(system_roots); }

// A store of one root.
class TrustedFor : public ::testing::Test {
protected:
    TrustedFor() {
        system_roots = CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr);
        const std::string pem = testing::MakeTlsIdentity().ca_certificate;
        const std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())),
                                                             BIO_free);
        const std::unique_ptr<X509, decltype(&X509_free)> certificate(
            PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr), X509_free);
        unsigned char* encoded = nullptr;
        const int bytes = i2d_X509(certificate.get(), &encoded);
        EXPECT_TRUE(CertAddEncodedCertificateToStore(system_roots, X509_ASN_ENCODING, encoded,
                                                     static_cast<DWORD>(bytes), CERT_STORE_ADD_ALWAYS, &root_));
        OPENSSL_free(encoded);
    }
    ~TrustedFor() override {
        CertFreeCertificateContext(root_);
        CertCloseStore(system_roots, 0);
    }

    void Limit(const std::vector<const char*>& purposes) {
        CERT_ENHKEY_USAGE usage{static_cast<DWORD>(purposes.size()), const_cast<char**>(purposes.data())};
        ASSERT_TRUE(CertSetEnhancedKeyUsage(root_, &usage));
    }

    static int TrustedRoots() {
        const testing::ReplacedImport replaced(imported_open_store, SystemRoots);
        const std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> store(X509_STORE_new(), X509_STORE_free);
        EXPECT_TRUE(TrustSystemRoots(store.get()));
        return sk_X509_OBJECT_num(X509_STORE_get0_objects(store.get()));
    }

private:
    PCCERT_CONTEXT root_ = nullptr;
};

TEST_F(TrustedFor, EverythingARootIsTrusted) { EXPECT_EQ(TrustedRoots(), 1); }

TEST_F(TrustedFor, OtherPurposesThanServersARootIsNot) {
    Limit({szOID_PKIX_KP_CODE_SIGNING});
    EXPECT_EQ(TrustedRoots(), 0);
    Limit({});
    EXPECT_EQ(TrustedRoots(), 0);
}

TEST_F(TrustedFor, ServersAmongOthersARootIsTrusted) {
    Limit({szOID_PKIX_KP_CODE_SIGNING, szOID_PKIX_KP_SERVER_AUTH});
    EXPECT_EQ(TrustedRoots(), 1);
}

}  // namespace
}  // namespace tarvex
