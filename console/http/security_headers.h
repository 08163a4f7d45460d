#pragma once

// The headers that keep pages private and foreign content out.

#include "console/http/message.h"

namespace tarvex::console {

// Adds to an answer what each has to have. Encrypted: the browser came over TLS, and shall from now on.
void AddSecurityHeaders(HttpResponse& response, bool is_encrypted);

}  // namespace tarvex::console
