#pragma once

// How a person lets Tarvex in at a provider. Both ways end with an answer that is a token, or throw TokenTrouble.

#include <chrono>
#include <functional>
#include <string>

#include "host/tokens/posix/provider.h"
#include "host/tokens/token_answer.h"
#include "host/tokens/token_trouble.h"

namespace tarvex::host {

struct LoginDialogue {
    std::function<void(const std::string&)> say;       // a line for the person
    std::function<bool(std::chrono::seconds)> pauses;  // waits; false when the person has had enough
    std::function<void(const std::string&)> open;      // shows a URL in a browser, where there is one
    std::string login;                                 // as whom, as a hint for the provider
};

// The device authorization grant (RFC 8628): the person types a code at the provider, on whatever machine has a
// browser.
TokenAnswer LogInByDevice(const Provider& provider, const LoginDialogue& dialogue);

// In a browser on this machine (RFC 8252, with PKCE, RFC 7636): the provider sends it back to a port of 127.0.0.1 that
// is open for that long, at most `time`. What does not know the secret state of the login is turned away.
TokenAnswer LogInByBrowser(const Provider& provider, const LoginDialogue& dialogue, std::chrono::seconds time);

}  // namespace tarvex::host
