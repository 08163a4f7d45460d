#pragma once

// Whom the system trusts in a test.

#include <memory>

#include "testing/scripted_server.h"

namespace tarvex::testing {

// A certificate authority that is trusted as long as it lives: on POSIX it alone, on Windows beside the system's own.
// One without a certificate adds nobody.
class TrustedAuthority {
public:
    explicit TrustedAuthority(const TlsIdentity& identity);
    ~TrustedAuthority();
    TrustedAuthority(const TrustedAuthority&) = delete;
    TrustedAuthority& operator=(const TrustedAuthority&) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::testing
