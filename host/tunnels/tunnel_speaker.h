#pragma once

// A part of a conversation that the host has with the server, and with the run, in the place of the other.
//
// A tunnel relays bytes. A speaker stands in between for a while: it hears what either side says, answers for the
// other where it must, and steps aside. One may speak before TLS (host/tunnels/stls.h), one after it.

#include <string>

#include "host/tunnels/tls_client.h"

namespace tarvex::host {

// What a speaker wants said. What goes to the run before TLS waits until TLS stands, so that a run never answers a
// server that is not verified.
struct Said {
    std::string to_server;
    std::string to_run;
    TlsFailure failure;  // with Turn::Ends: told to the run as the server's refusal, in the place of all that waits
};

enum class Turn {
    GoesOn,  // the speaker hears what comes next
    Done,    // it steps aside
    Ends,    // the connection ends when what is said has been sent
};

class TunnelSpeaker {
public:
    virtual ~TunnelSpeaker() = default;

    // `heard` is what that side has said and nobody has taken; the speaker takes away what it has understood. What it
    // leaves when it is done goes on to the other side. On the loop's thread: it must not wait.
    virtual Turn FromServer(std::string& heard, Said& said) = 0;
    virtual Turn FromRun(std::string& heard, Said& said) = 0;  // not before TLS
};

}  // namespace tarvex::host
