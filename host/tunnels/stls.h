#pragma once

// The upgrade of POP3 to TLS (RFC 2595 section 4).

#include "host/tunnels/tunnel_speaker.h"

namespace tarvex::host {

// Keeps the greeting for the run, says STLS and steps aside before the handshake. Whatever else the server answers ends
// the connection: nothing is ever said in clear but STLS.
class StlsSpeaker final : public TunnelSpeaker {
public:
    Turn FromServer(std::string& heard, Said& said) override;
    Turn FromRun(std::string& heard, Said& said) override;

private:
    bool greeted_ = false;
};

}  // namespace tarvex::host
