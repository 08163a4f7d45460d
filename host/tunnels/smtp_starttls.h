#pragma once

// The upgrade of SMTP to TLS (RFC 3207).

#include "host/tunnels/tunnel_speaker.h"

namespace tarvex::host {

// Keeps the greeting for the run, says EHLO and STARTTLS and steps aside before the handshake. Whatever else the server
// answers ends the connection: nothing else is ever said in clear. The run says its own EHLO behind TLS.
class StartTlsSpeaker final : public TunnelSpeaker {
public:
    Turn FromServer(std::string& heard, Said& said) override;
    Turn FromRun(std::string& heard, Said& said) override;

private:
    enum class State { Greeting, Hello, StartTls };

    State state_ = State::Greeting;
};

}  // namespace tarvex::host
