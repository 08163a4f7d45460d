#pragma once

// The certificate authorities that the system trusts.

#include <openssl/types.h>

namespace tarvex {

// Makes the store trust them; false when they cannot be had.
bool TrustSystemRoots(X509_STORE* store);

}  // namespace tarvex
