#pragma once

// A server on loopback whose every word is scripted by the test, with a transcript of what was said.
//
//     ScriptedServer server([](Peer& peer) {
//         peer.Send("+OK ready\r\n");
//         peer.Expect("USER alice");
//         peer.Send("-ERR no\r\n");
//         peer.WaitForClose();
//     });
//     ... talk to 127.0.0.1, server.Port() ...
//     EXPECT_EQ(server.Transcript(), "S: +OK ready\nC: USER alice\nS: -ERR no\nC: (closed)\n");
//
// Nothing here waits for ever: every read and every write has a deadline of 20 seconds, after which the session ends
// and the transcript says "(no more from the client)". A session that returns closes its connection as Close does,
// without a record; what was sent always reaches the client, also when the client has sent something that nobody read.

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex::testing {

struct TlsIdentity;

// The server's end of one connection. Used by the session's thread only. When the client has gone, reading and sending
// record "C: (closed)" and end the session by an exception that the server catches.
class Peer {
public:
    // Sends the bytes in one write. Recorded line by line, each as "S: <line>" without its line end.
    void Send(std::string_view bytes);

    // Sends byte by byte, or piece by piece, with a pause between. Recorded as by Send. Ends quietly when the client
    // closes meanwhile.
    void Drip(std::string_view bytes, std::chrono::milliseconds pause, std::size_t piece_bytes = 1);

    // From here on a small piece waits until the client's system has acknowledged the one before (Nagle's algorithm).
    void WaitForAcknowledgements();

    // Does nothing for that long, as a slow server does.
    void Pause(std::chrono::milliseconds pause);

    // Sends without a record: for large answers.
    void SendUnrecorded(std::string_view bytes);

    // Reads through the next LF. Recorded as "C: <line>"; the result has no line end.
    std::string ReadLine();

    // Reads a line; when it is another one than expected, records "!! expected <line>" and ends the session.
    void Expect(std::string_view line);

    // Reads the message after a DATA answered 354, through its terminator, and returns the bytes as they came over the
    // wire, terminator included. Recorded as "C: (message of N bytes)".
    std::string ReadMessage();

    // Reads until the client closes. Recorded as "C: (closed)"; whatever else comes is recorded line by line.
    void WaitForClose();

    // An orderly end (FIN; with TLS a close_notify first). Recorded as "S: (closed)". Reading goes on: WaitForClose may
    // follow.
    void Close();
    void CloseWithoutNotify();  // FIN without close_notify
    void Reset();               // RST. Recorded as "S: (reset)"

    // Upgrades to TLS as the server. False when the handshake failed; recorded as "-- TLS" or "-- TLS failed". The text
    // goes out in one write with the last of the handshake, and is recorded as by Send.
    bool StartTls(const TlsIdentity& identity, std::string_view text = {});

private:
    friend class ScriptedServer;
    struct Impl;
    explicit Peer(Impl& impl) : impl_(impl) {}
    Impl& impl_;
};

class ScriptedServer {
public:
    using Session = std::function<void(Peer&)>;

    // Every connection runs the session, each on a thread of its own.
    explicit ScriptedServer(Session session);
    // The first connection runs the first session, and so on; further connections are closed at once.
    explicit ScriptedServer(std::vector<Session> sessions);
    // Listens on 127.0.0.1 or on another loopback address such as "::1".
    ScriptedServer(Session session, const std::string& address);
    ~ScriptedServer();  // ends every session

    int Port() const;

    // Waits until every session that was started has ended and returns all transcripts, in the order of the
    // connections.
    std::string Transcript();

    // The number of connections that were accepted so far.
    int Connections() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// A throw-away certificate authority and a server certificate signed by it (PEM), made in memory.
struct TlsIdentity {
    std::string ca_certificate;
    std::string certificate;
    std::string key;
    int only_version = 0;  // of the protocol, TLS1_2_VERSION and so on; 0 = any
};

struct TlsOptions {
    std::vector<std::string> names = {"localhost"};      // DNS names of the certificate
    std::vector<std::string> addresses = {"127.0.0.1"};  // IP addresses of the certificate
    bool expired = false;
};

TlsIdentity MakeTlsIdentity(const TlsOptions& options = {});

// A port of 127.0.0.1 on which nobody listens.
int UnusedPort();

}  // namespace tarvex::testing
