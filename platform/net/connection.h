#pragma once

// A connection for both protocols: opened by name, in clear or TLS, read by lines and in large pieces.
//
// Every operation that waits takes its time limit. A failure returns false, ends the connection and leaves the reason
// in Why; every later operation fails at once. The server must not speak out of turn: SendCommand and SendMessage send
// only while nothing has arrived that was not asked for.

#include <array>
#include <chrono>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform/net/connect_step.h"
#include "platform/net/deadline.h"
#include "platform/net/failure.h"
#include "platform/net/given_socket.h"
#include "platform/net/tcp_stream.h"
#include "platform/net/tls.h"

namespace tarvex {

class Connection {
public:
    void AskForSockets(SocketGiver giver) { giver_ = std::move(giver); }

    // Has each step of connecting announced before it begins.
    void AnnounceSteps(OnConnectStep on_step) { on_step_ = std::move(on_step); }
    void Announce(ConnectStep step) {
        if (on_step_) on_step_(step);
    }

    // Takes a socket descriptor; false when there is none.
    [[nodiscard]] bool Reserve();

    // Asks for a socket where somebody gives one, else tries each address of the name in turn. Whatever the connection
    // was before is forgotten.
    [[nodiscard]] bool Open(const std::string& server, int port, std::chrono::milliseconds time);

    // Whether the socket was given as one that needs no TLS.
    bool IsSecured() const { return is_secured_; }

    // From here on everything is TLS.
    [[nodiscard]] bool StartTls(std::chrono::milliseconds time);

    // Says goodbye where TLS wants it, and closes.
    void Close();

    // Ends the connection for this reason, unless it has ended before. Always false.
    bool Fail(Failure failure);
    bool FailUnexpected();  // because of what has arrived out of turn

    const Failure& Why() const { return failure_; }  // None as long as the connection is usable

    // Whether the connection can be used; an interrupted worker's cannot.
    bool IsUsable();

    // Sends the command (with its CR LF) as a whole until the deadline.
    [[nodiscard]] bool SendCommand(std::string_view command, const Deadline& deadline);

    enum class SendResult { Sent, ServerSpoke, Failed };
    // Sends the parts one after the other; the time starts anew with each piece that the system takes. When the server
    // speaks before everything was sent, the rest is not sent and what it said waits in Received.
    [[nodiscard]] SendResult SendMessage(const std::array<std::string_view, 2>& parts, std::chrono::milliseconds time);

    // Waits for the next line until the deadline. `line` comes without its line end, CR LF or a bare LF, and is valid
    // until the next operation.
    [[nodiscard]] bool ReadLine(std::string_view& line, const Deadline& deadline);

    // Received and not yet taken.
    std::string_view Received() const { return {buffer_.get() + begin_, end_ - begin_}; }
    void Take(std::size_t bytes) { begin_ += bytes; }

    // Waits until at least one byte more has been received.
    [[nodiscard]] bool ReceiveMore(const Deadline& deadline);

private:
    class Outgoing;

    Failure Reach(const std::string& server, int port, std::chrono::milliseconds time);
    Failure ConnectToAny(const std::string& server, int port, const Deadline& deadline);
    Failure ShakeHands(const Deadline& deadline);
    Failure SendHandshake(const Deadline& deadline);

    SendResult Send(Outgoing& outgoing, Deadline deadline, std::chrono::milliseconds time_anew);
    Transfer SendSome(Outgoing& outgoing);
    SendResult SendingFailed(const std::string& reason);

    bool HasSpoken();
    Transfer::Status TryReceive();
    Transfer ReceiveSome();
    Transfer ReceiveDecrypted(char* buffer, std::size_t size_bytes);
    Transfer SendToWire(std::span<const std::string_view> parts);
    Transfer ReceiveFromWire(char* buffer, std::size_t size_bytes);
    void MakeRoom();

    OnConnectStep on_step_;
    SocketGiver giver_;
    bool is_secured_ = false;
    TcpStream stream_;
    std::unique_ptr<TlsSession> tls_;
    std::string server_;
    Failure failure_ = {FailureKind::Local, "not connected"};
    std::unique_ptr<char[]> buffer_;  // made when first needed, since a connection may never come about
    std::unique_ptr<char[]> wire_;    // what TLS received; made when first needed
    std::size_t begin_ = 0;           // Received
    std::size_t end_ = 0;
    bool filled_room_ = false;  // by the last receive, so more is likely to be at hand
};

}  // namespace tarvex
