#pragma once

// The certificates that the system trusts.

#include <openssl/types.h>

namespace tarvex::host {

// Adds them to the store; false when they cannot be had.
bool TrustSystemRoots(X509_STORE* store);

}  // namespace tarvex::host
