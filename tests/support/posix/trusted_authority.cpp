// Makes OpenSSL trust a test's certificate authority, by SSL_CERT_FILE.

#include "tests/support/trusted_authority.h"

#include "platform/net/tls.h"
#include "testing/temp_dir.h"
#include "tests/support/environment.h"

namespace tarvex::testing {

struct TrustedAuthority::Impl {
    TempDir folder;
    Variable variable{"SSL_CERT_FILE", folder / "ca.pem"};
};

TrustedAuthority::TrustedAuthority(const TlsIdentity& identity) : impl_(std::make_unique<Impl>()) {
    WriteFile(impl_->folder / "ca.pem", identity.ca_certificate);
    ForgetTrustStore();
}

TrustedAuthority::~TrustedAuthority() {
    impl_.reset();
    ForgetTrustStore();
}

}  // namespace tarvex::testing
