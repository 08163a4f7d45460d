#pragma once

#include <string>

namespace tarvex::testing {

struct TlsPage {
    std::string certificate;  // the server's, PEM; empty when there was no TLS
    std::string answer;
};

// Sends the request to 127.0.0.1 over TLS, of that version at most, and reads to the end.
TlsPage AskOverTls(int port, const std::string& request, int highest_version = 0);

}  // namespace tarvex::testing
