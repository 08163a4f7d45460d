#pragma once

// What is asked of a provider's token endpoint.

#include "host/tokens/posix/https.h"
#include "host/tokens/posix/provider.h"
#include "host/tokens/posix/token_file.h"
#include "host/tokens/token_answer.h"

namespace tarvex::host {

// Asks at the endpoint in the name of the client; the answer is a token or an error of the provider. Throws
// TokenTrouble (ForNow) when there is none that can be used.
TokenAnswer AskForToken(const Provider& provider, Form form, const Stops& stops);

// Throws what an error of the provider means, unless the answer is a token.
void RequireToken(const TokenAnswer& answer);

// Puts what came into what is kept. A refresh token that did not come again stays.
void Keep(const TokenAnswer& answer, StoredToken& token);

}  // namespace tarvex::host
