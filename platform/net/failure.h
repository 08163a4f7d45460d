#pragma once

// Why a connection cannot be used, or an exchange got no answer: the kind, for code that decides, and the words of the
// system or the server, for people.

#include <string>

namespace tarvex {

enum class FailureKind {
    None,
    NoSuchServer,            // its name has no address
    NotListening,            // the machine refuses the connection
    NoRoute,                 // the network does not reach the machine
    NoConnection,            // connecting failed for another reason, such as an impossible port number
    TimedOut,                // nothing came, or went, in time
    NoTls,                   // the server does not offer it, or the handshake failed
    TlsRefused,              // the server speaks TLS, and refused the handshake
    CertificateOfOther,      // the certificate names another server
    CertificateOutOfDate,    // it has expired, or is not yet valid
    CertificateNotTrusted,   // this machine does not trust the authority that signed it
    CertificateNotAccepted,  // it fails another check
    Protocol,                // the server breaks the rules: it speaks out of turn, or without an end
    Lost,                    // the connection ended
    Interrupted,             // the worker was told to end
    Local,                   // the fault is here: no descriptor, no trust store, an argument that must not be sent
};

struct Failure {
    FailureKind kind = FailureKind::None;
    std::string reason = {};

    explicit operator bool() const { return kind != FailureKind::None; }
};

}  // namespace tarvex
