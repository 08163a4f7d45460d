// Deadlines, the receive buffer and what may arrive when.

#include "platform/net/connection.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/net/limits.h"
#include "platform/net/printable.h"
#include "platform/net/traffic.h"
#include "platform/os/threads.h"

namespace tarvex {

namespace {

constexpr std::size_t kReadBytes = 128 * kKibibyte;  // the least room for a read
// What is not taken is never more than the longest reply, so this always leaves room for a read.
constexpr std::size_t kBufferBytes = kReadBytes + std::max(kMaxReplyLineBytes, kMaxSmtpReplyBytes);
// What is encrypted before it is sent: eight full records of TLS, one write.
constexpr std::size_t kEncryptBytes = 128 * kKibibyte;

constexpr std::chrono::milliseconds kNeverAnew{0};

}  // namespace

// The parts of a message on their way out.
class Connection::Outgoing {
public:
    explicit Outgoing(const std::array<std::string_view, 2>& parts) : parts_(parts) {}

    bool IsEmpty() const { return parts_[0].empty() && parts_[1].empty(); }
    const std::array<std::string_view, 2>& Parts() const { return parts_; }

    void Advance(std::size_t bytes) {
        for (std::string_view& part : parts_) {
            const std::size_t taken = std::min(bytes, part.size());
            part.remove_prefix(taken);
            bytes -= taken;
        }
    }

    // The next piece in one stretch, so that a short second part does not get a record of its own.
    std::string_view NextPiece(std::size_t max_bytes) {
        if (parts_[0].size() >= max_bytes) return parts_[0].substr(0, max_bytes);
        if (parts_[0].empty()) return parts_[1].substr(0, max_bytes);
        joined_ = parts_[0];
        joined_ += parts_[1].substr(0, max_bytes - parts_[0].size());
        return joined_;
    }

private:
    std::array<std::string_view, 2> parts_;
    std::string joined_;
};

bool Connection::Reserve() {
    Close();
    failure_ = {FailureKind::Local, "not connected"};
    return stream_.Reserve();
}

bool Connection::Open(const std::string& server, int port, std::chrono::milliseconds time) {
    tls_.reset();
    failure_ = {};
    begin_ = end_ = 0;
    filled_room_ = false;
    server_ = server;
    is_secured_ = false;
    if (Failure failure = Reach(server, port, time)) return Fail(std::move(failure));
    if (!buffer_) buffer_ = std::make_unique_for_overwrite<char[]>(kBufferBytes);
    return true;
}

Failure Connection::Reach(const std::string& server, int port, std::chrono::milliseconds time) {
    if (!giver_) return ConnectToAny(server, port, Deadline(time));
    if (ThreadInterrupted()) return {FailureKind::Interrupted, "interrupted"};
    Failure failure;
    const auto connect = [&]() -> std::intptr_t {
        failure = ConnectToAny(server, port, Deadline(time));
        return failure ? -1 : stream_.Release();
    };
    const GivenSocket given = giver_(server, port, connect);
    if (given.socket != -1) {
        is_secured_ = given.is_secured;
        return stream_.Adopt(given.socket);
    }
    return failure ? failure : ConnectToAny(server, port, Deadline(time));
}

Failure Connection::ConnectToAny(const std::string& server, int port, const Deadline& deadline) {
    if (port <= 0 || port > 65535) return {FailureKind::NoConnection, "there is no port " + std::to_string(port)};
    if (ThreadInterrupted()) return {FailureKind::Interrupted, "interrupted"};
    Announce(ConnectStep::FindServer);
    std::vector<NetworkAddress> addresses;
    if (Failure failure = LookUpName(server, deadline, addresses)) return failure;

    Announce(ConnectStep::Connect);
    Failure failure;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        // An address that swallows everything must leave time for the others.
        failure = stream_.Connect(addresses[i], port, deadline.FirstShare(addresses.size() - i));
        if (!failure) return failure;
        if (ThreadInterrupted()) return {FailureKind::Interrupted, "interrupted"};
        failure.reason =
            "could not connect to " + ToText(addresses[i]) + " port " + std::to_string(port) + ": " + failure.reason;
    }
    return failure;
}

bool Connection::StartTls(std::chrono::milliseconds time) {
    if (!IsUsable()) return false;
    if (!Received().empty()) return FailUnexpected();
    Announce(ConnectStep::StartTls);
    Failure none;
    tls_ = TlsSession::Make(server_, none);
    if (!tls_) return Fail(std::move(none));
    if (!wire_) wire_ = std::make_unique_for_overwrite<char[]>(kReadBytes);
    if (Failure failure = ShakeHands(Deadline(time))) {
        failure.reason = "TLS handshake: " + failure.reason;
        return Fail(std::move(failure));
    }
    return true;
}

Failure Connection::ShakeHands(const Deadline& deadline) {
    for (;;) {
        const TlsSession::Handshake state = tls_->ContinueHandshake();
        Failure failure = SendHandshake(deadline);
        // An alert that could not be sent tells less than what it was about.
        if (state == TlsSession::Handshake::Failed) return tls_->Why();
        if (failure || state == TlsSession::Handshake::Done) return failure;
        if (Failure waited = stream_.Wait(TcpStream::Event::ToRead, deadline)) return waited;

        const Transfer received = ReceiveFromWire(wire_.get(), kReadBytes);
        // What a client has to ignore may keep it waiting without the wait ever being long.
        if (deadline.HasPassed()) return {FailureKind::TimedOut, "no end in time"};
        if (received.status == Transfer::Status::Progress) tls_->Feed({wire_.get(), received.bytes});
        if (received.status == Transfer::Status::Ended) return {FailureKind::NoTls, "the server closed the connection"};
        if (received.status == Transfer::Status::Failed) return {FailureKind::NoTls, received.reason};
    }
}

Failure Connection::SendHandshake(const Deadline& deadline) {
    while (!tls_->ToSend().empty()) {
        const std::array part = {tls_->ToSend()};
        const Transfer sent = SendToWire(part);
        tls_->Sent(sent.bytes);
        if (sent.status == Transfer::Status::Failed) return {FailureKind::NoTls, sent.reason};
        if (sent.status == Transfer::Status::Progress) continue;
        if (Failure failure = stream_.Wait(TcpStream::Event::ToWrite, deadline)) return failure;
    }
    return {};
}

void Connection::Close() {
    if (tls_ && !failure_) {
        tls_->EncryptEnd();
        const std::array part = {tls_->ToSend()};
        (void)SendToWire(part);  // a courtesy: nothing waits for it
    }
    Fail({FailureKind::Local, "the connection is closed"});
}

bool Connection::Fail(Failure failure) {
    if (!failure_) failure_ = std::move(failure);
    stream_.Close();
    return false;
}

bool Connection::FailUnexpected() {
    return Fail({FailureKind::Protocol, "unexpected data from the server: " + Printable(Received())});
}

bool Connection::IsUsable() {
    if (!failure_ && ThreadInterrupted()) Fail({FailureKind::Interrupted, "interrupted"});
    return !failure_;
}

bool Connection::SendCommand(std::string_view command, const Deadline& deadline) {
    Outgoing outgoing({command, {}});
    switch (Send(outgoing, deadline, kNeverAnew)) {
        case SendResult::Sent:
            return true;
        case SendResult::ServerSpoke:
            return FailUnexpected();
        case SendResult::Failed:
            break;
    }
    return false;
}

Connection::SendResult Connection::SendMessage(const std::array<std::string_view, 2>& parts,
                                               std::chrono::milliseconds time) {
    Outgoing outgoing(parts);
    return Send(outgoing, Deadline(time), time);
}

// Looks whether the server has spoken before every piece that is handed to the system, so that a reply can only be
// taken for the answer to something that was sent as a whole.
Connection::SendResult Connection::Send(Outgoing& outgoing, Deadline deadline, std::chrono::milliseconds time_anew) {
    for (;;) {
        if (!IsUsable()) return SendResult::Failed;
        if (HasSpoken()) return SendResult::ServerSpoke;
        if (failure_) return SendResult::Failed;

        const Transfer sent = SendSome(outgoing);
        if (sent.status == Transfer::Status::Failed) return SendingFailed(sent.reason);
        if (sent.status == Transfer::Status::Progress && time_anew != kNeverAnew) deadline = Deadline(time_anew);
        const bool taken_whole = tls_ ? tls_->ToSend().empty() : outgoing.IsEmpty();
        if (taken_whole && outgoing.IsEmpty()) return SendResult::Sent;
        if (taken_whole) continue;
        // Records of TLS that are no data end the wait as well, and must not put the deadline off.
        if (sent.status != Transfer::Status::Progress && deadline.HasPassed()) {
            Fail({FailureKind::TimedOut, "nothing could be sent in time"});
            return SendResult::Failed;
        }
        if (Failure failure = stream_.Wait(TcpStream::Event::ToReadOrWrite, deadline)) {
            Fail(std::move(failure));
            return SendResult::Failed;
        }
    }
}

Transfer Connection::SendSome(Outgoing& outgoing) {
    if (!tls_) {
        Transfer sent = SendToWire(outgoing.Parts());
        outgoing.Advance(sent.bytes);
        return sent;
    }
    if (tls_->ToSend().empty()) {
        const std::string_view piece = outgoing.NextPiece(kEncryptBytes);
        if (!tls_->Encrypt(piece)) return {Transfer::Status::Failed, 0, tls_->Why().reason};
        outgoing.Advance(piece.size());
    }
    const std::array part = {tls_->ToSend()};
    Transfer sent = SendToWire(part);
    tls_->Sent(sent.bytes);
    return sent;
}

// A server that refuses and goes has often said why.
Connection::SendResult Connection::SendingFailed(const std::string& reason) {
    if (ReceiveSome().status == Transfer::Status::Progress) return SendResult::ServerSpoke;
    Fail({FailureKind::Lost, "connection lost: " + reason});
    return SendResult::Failed;
}

bool Connection::HasSpoken() { return !Received().empty() || TryReceive() == Transfer::Status::Progress; }

Transfer::Status Connection::TryReceive() {
    const Transfer received = ReceiveSome();
    if (received.status == Transfer::Status::Ended) Fail({FailureKind::Lost, "the server closed the connection"});
    if (received.status == Transfer::Status::Failed) Fail({FailureKind::Lost, "connection lost: " + received.reason});
    return received.status;
}

Transfer Connection::ReceiveSome() {
    MakeRoom();
    char* const room = buffer_.get() + end_;
    const std::size_t room_bytes = kBufferBytes - end_;
    Transfer received = tls_ ? ReceiveDecrypted(room, room_bytes) : ReceiveFromWire(room, room_bytes);
    end_ += received.bytes;
    filled_room_ = received.bytes == room_bytes;
    return received;
}

Transfer Connection::ReceiveDecrypted(char* buffer, std::size_t size_bytes) {
    Transfer clear = tls_->Decrypt(buffer, size_bytes);
    if (clear.status != Transfer::Status::WouldBlock) return clear;
    Transfer received = ReceiveFromWire(wire_.get(), kReadBytes);
    if (received.status == Transfer::Status::Progress) {
        tls_->Feed({wire_.get(), received.bytes});
    } else if (received.status == Transfer::Status::Ended) {
        tls_->FeedEnd();
    } else {
        return received;
    }
    return tls_->Decrypt(buffer, size_bytes);
}

Transfer Connection::SendToWire(std::span<const std::string_view> parts) {
    Transfer sent = stream_.Send(parts);
    CountSent(sent.bytes);
    return sent;
}

Transfer Connection::ReceiveFromWire(char* buffer, std::size_t size_bytes) {
    Transfer received = stream_.Receive(buffer, size_bytes);
    CountReceived(received.bytes);
    return received;
}

void Connection::MakeRoom() {
    if (begin_ == end_) begin_ = end_ = 0;
    if (kBufferBytes - end_ >= kReadBytes) return;
    std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
}

bool Connection::ReceiveMore(const Deadline& deadline) {
    // The system does not announce again what TLS holds already, be it from the end of the handshake.
    for (bool at_hand = tls_ ? tls_->HasReceived() : filled_room_; IsUsable(); at_hand = false) {
        if (!at_hand) {
            if (Failure failure = stream_.Wait(TcpStream::Event::ToRead, deadline)) return Fail(std::move(failure));
        }
        if (TryReceive() == Transfer::Status::Progress) return true;
        // Records of TLS that are no data end the wait as well, and must not put the deadline off.
        if (!failure_ && deadline.HasPassed()) return Fail({FailureKind::TimedOut, "no answer in time"});
    }
    return false;
}

bool Connection::ReadLine(std::string_view& line, const Deadline& deadline) {
    for (std::size_t searched = 0;;) {
        const std::string_view received = Received();
        const std::size_t lf = received.find('\n', searched);
        const std::size_t line_bytes = lf == std::string_view::npos ? received.size() : lf + 1;
        if (line_bytes > kMaxReplyLineBytes) {
            return Fail({FailureKind::Protocol,
                         "a reply line is over the limit of " + std::to_string(kMaxReplyLineBytes) + " bytes"});
        }
        if (lf != std::string_view::npos) {
            line = received.substr(0, lf);
            if (line.ends_with('\r')) line.remove_suffix(1);
            Take(line_bytes);
            return true;
        }
        searched = received.size();
        if (!ReceiveMore(deadline)) return false;
    }
}

}  // namespace tarvex
