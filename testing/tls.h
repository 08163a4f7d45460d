#pragma once

// The server's side of TLS over memory: bytes from the client go in, bytes for the client come out. Who carries them is
// another matter, so the test decides what is sent when, close_notify included.

#include <memory>
#include <string>
#include <string_view>

namespace tarvex::testing {

struct TlsIdentity;

class TlsServer {
public:
    explicit TlsServer(const TlsIdentity& identity);
    TlsServer(TlsServer&& other) noexcept;
    ~TlsServer();

    void Received(std::string_view bytes);  // from the client
    std::string TakeOutput();               // for the client

    enum class Progress { Done, NeedsMore, Failed };

    Progress Handshake();
    Progress Read(std::string& text);  // appends what can be decrypted; Done when the client has closed the session
    bool Write(std::string_view text);
    void CloseNotify();
    void AskForNewKeys();  // of TLS 1.3: the client has to answer

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::testing
