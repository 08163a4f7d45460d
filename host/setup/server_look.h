#pragma once

// A look at a mail server before any password is sent to it: whether TLS stands with a certificate that is good for it,
// and which logins it takes.

#include <string>

#include "host/setup/known_servers.h"
#include "host/tunnels/tls_client.h"
#include "tarvex/connection.h"

namespace tarvex::host {

struct ServerLook {
    std::string trouble;  // why it cannot be used, fit to be shown, without a full stop; empty when it can
    TlsFacts facts;       // when it can
    bool takes_passwords = false;
    bool takes_xoauth2 = false;
    bool takes_oauthbearer = false;

    bool IsGood() const { return trouble.empty(); }
    bool TakesTokensOnly() const { return !takes_passwords && (takes_xoauth2 || takes_oauthbearer); }
};

// Connects, makes TLS stand, verifies chain and name, asks for the server's capabilities and says goodbye; at most ten
// seconds for each step. `authority`: see TlsClient. Any thread.
ServerLook LookAt(CProtocol protocol, const MailServer& server, const std::string& authority);

}  // namespace tarvex::host
