// OpenSSL knows where the system keeps them.

#include "host/tunnels/trust_store.h"

#include <openssl/x509_vfy.h>

namespace tarvex::host {

bool TrustSystemRoots(X509_STORE* store) { return X509_STORE_set_default_paths(store) == 1; }

}  // namespace tarvex::host
