#pragma once

// The client's side of TLS, without a socket, and what it finds out about the server.
//
// TLS 1.2 or newer. The chain is verified against the system's trust store, or against the authority that is named, and
// the certificate against the name or address of the server. Nothing switches that off.

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex::host {

enum class TlsTrouble {
    None,
    NoTls,        // the server does not speak it, or not yet
    Refused,      // it speaks TLS and refuses: no common version, for one
    OtherName,    // of the certificate, as the next three
    OutOfDate,    // expired, or not yet valid
    NotTrusted,   // by this machine
    NotAccepted,  // for another reason
    Lost,         // the connection ended
    Local,        // the fault is here: an authority that cannot be read
};

struct TlsFailure {
    TlsTrouble trouble = TlsTrouble::None;
    std::string reason;  // "the certificate is for another host"

    // Whether another attempt may do better without anybody's help.
    bool MayPass() const { return trouble == TlsTrouble::Lost; }
    explicit operator bool() const { return trouble != TlsTrouble::None; }
};

struct TlsFacts {
    std::string version;             // "TLSv1.3"
    std::string cipher;              // "TLS_AES_256_GCM_SHA384"
    std::vector<std::string> names;  // of the certificate
    int days_left = 0;               // until it expires
};

class TlsClient {
    struct State;

public:
    // Null when it cannot be set up; `failure` says why. `authority`: a file of certificates in PEM that are trusted in
    // the place of the system's; empty for the system's. Reads files: not for a thread that must not wait.
    static std::unique_ptr<TlsClient> Make(const std::string& server, const std::string& authority,
                                           TlsFailure& failure);

    explicit TlsClient(std::unique_ptr<State> state);  // see Make
    ~TlsClient();
    TlsClient(const TlsClient&) = delete;
    TlsClient& operator=(const TlsClient&) = delete;

    enum class Step { Done, NeedsMore, Ended, Failed };

    Step Handshake();                      // Failed: Why tells
    void Feed(std::string_view received);  // what came over the wire
    // Appends all that what was fed holds. NeedsMore when that was all; Ended after the server's close_notify.
    Step Decrypt(std::string& clear);
    bool Encrypt(std::string_view clear);  // adds to what is to be sent; false on failure
    void EncryptEnd();                     // adds a close_notify to what is to be sent
    std::string_view ToSend() const;
    void Sent(std::size_t bytes);

    const TlsFailure& Why() const;
    TlsFacts Facts() const;  // after the handshake

private:
    std::unique_ptr<State> state_;
};

}  // namespace tarvex::host
