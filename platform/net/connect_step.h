#pragma once

// The steps of making a connection, for those who want to know where it fails and what takes its time.

#include <functional>

namespace tarvex {

enum class ConnectStep {
    FindServer,  // looking its name up
    Connect,     // TCP, each address of the name in turn
    StartTls,    // what leads to TLS, the handshake and the look at the certificate
    Greeting,    // waiting for the server's first words
};

// Is called as each step begins.
using OnConnectStep = std::function<void(ConnectStep)>;

}  // namespace tarvex
