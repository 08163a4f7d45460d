#pragma once

// The client's side of TLS, without a socket: bytes from the server are fed in, bytes for it are picked up.
//
// TLS 1.2 or newer. The certificate chain is verified against the system's trust store and the certificate against the
// name or address of the server; that cannot be switched off.

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "platform/net/failure.h"
#include "platform/net/tcp_stream.h"

namespace tarvex {

class TlsSession {
    struct State;

public:
    explicit TlsSession(std::unique_ptr<State> state);  // see Make
    ~TlsSession();
    TlsSession(const TlsSession&) = delete;
    TlsSession& operator=(const TlsSession&) = delete;

    // Null when it cannot be set up; `failure` says why.
    static std::unique_ptr<TlsSession> Make(const std::string& server, Failure& failure);

    enum class Handshake { Done, NeedsMore, Failed };
    Handshake ContinueHandshake();

    void Feed(std::string_view received);  // what came over the wire
    void FeedEnd();                        // the wire ended
    bool HasReceived() const;              // whether Decrypt may still find something in what was fed

    // The next bytes in clear. Ended only after the server's close_notify: a mere end of the wire is a failure.
    [[nodiscard]] Transfer Decrypt(char* buffer, std::size_t size_bytes);

    [[nodiscard]] bool Encrypt(std::string_view clear);  // adds to what is to be sent; false on failure
    void EncryptEnd();                                   // adds a close_notify to what is to be sent
    std::string_view ToSend() const;
    void Sent(std::size_t bytes);

    const Failure& Why() const;  // what the last operation that failed failed by

private:
    std::unique_ptr<State> state_;
};

// The trust store is read once an hour; after this, by the next session.
void ForgetTrustStore();

}  // namespace tarvex
