// SMTP (RFC 5321) with STARTTLS (RFC 3207) and CRAM-MD5 (RFC 2195).
//
// A reply is judged by its first three characters, whatever they are and whatever follows. The line without a hyphen as
// its fourth character is its last. A bare LF ends a line as well.

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>

#include "platform/codec/base64.h"
#include "platform/codec/digest.h"
#include "platform/codec/text.h"
#include "platform/net/connection.h"
#include "platform/net/framing.h"
#include "platform/net/limits.h"
#include "platform/net/printable.h"
#include "platform/net/sockets.h"
#include "platform/os/system.h"

namespace tarvex {

namespace {

constexpr int kNoTls = 0;
constexpr int kStartTls = 2;
constexpr std::size_t kCodeLength = 3;

bool IsLastLine(std::string_view line) { return line.size() <= kCodeLength || line[kCodeLength] != '-'; }

bool IsAcceptance(std::string_view reply) { return reply.starts_with('2'); }

bool IsRefusal(std::string_view reply) { return reply.starts_with('4') || reply.starts_with('5'); }

// Whether a line after the first of an EHLO reply is this keyword, alone or with parameters.
bool Offers(std::string_view ehlo_reply, std::string_view keyword) {
    for (std::size_t end = ehlo_reply.find("\r\n"); end != std::string_view::npos; end = ehlo_reply.find("\r\n")) {
        ehlo_reply.remove_prefix(end + 2);
        const std::string_view line = ehlo_reply.substr(0, ehlo_reply.find("\r\n"));
        const std::string_view offer = line.substr(std::min(line.size(), kCodeLength + 1));
        if (ToUpper(offer.substr(0, offer.find(' '))) == keyword) return true;
    }
    return false;
}

}  // namespace

std::string CSmtpSocket::SmtpConnect(const std::string& server, int port) {
    Keep({});
    if (!connection_->Open(server, port, TimeOut())) return WhyNot();
    const int tls = connection_->IsSecured() ? kNoTls : ssl;
    if (tls != kNoTls && tls != kStartTls && !connection_->StartTls(TimeOut())) return WhyNot();
    connection_->Announce(ConnectStep::Greeting);
    std::string greeting = ReadReply(Deadline(TimeOut()));
    return tls == kStartTls ? Upgrade(greeting) : greeting;
}

// Nothing but the greeting and the library's own EHLO ever goes over the wire in clear, and nothing that came before
// the handshake counts after it.
std::string CSmtpSocket::Upgrade(const std::string& greeting) {
    if (!greeting.starts_with("220")) {
        connection_->Fail({FailureKind::NoTls, "there was no upgrade to TLS"});
        return greeting;
    }
    connection_->Announce(ConnectStep::StartTls);
    const std::string offers = Exchange("EHLO ", HostName());
    if (!offers.starts_with("250")) return UpgradeFailed("EHLO before STARTTLS was refused: " + Printable(offers));
    if (!Offers(offers, "STARTTLS")) return UpgradeFailed("the server does not offer STARTTLS");
    const std::string reply = Exchange("STARTTLS", "");
    if (!reply.starts_with("220")) return UpgradeFailed("STARTTLS was refused: " + Printable(reply));
    return connection_->StartTls(TimeOut()) ? greeting : WhyNot();
}

// Keeps the first reason when the connection has failed by itself.
std::string CSmtpSocket::UpgradeFailed(const std::string& reason) {
    connection_->Fail({FailureKind::NoTls, reason});
    return WhyNot();
}

std::string CSmtpSocket::SendEHello(std::string* host) { return Exchange("EHLO ", *host); }

std::string CSmtpSocket::SendHello(std::string* host) { return Exchange("HELO ", *host); }

std::string CSmtpSocket::SendReset() { return Exchange("RSET", ""); }

std::string CSmtpSocket::SendQuit() {
    std::string reply = Exchange("QUIT", "");
    connection_->Close();  // nothing follows, however the server goes
    return reply;
}

std::string CSmtpSocket::SendAuth(const std::string& method) { return Exchange("AUTH ", method); }

std::string CSmtpSocket::SendUser(const std::string& encoded_user) { return Exchange("", encoded_user); }

std::string CSmtpSocket::SendPassWord(const std::string& encoded_password) { return Exchange("", encoded_password); }

std::string CSmtpSocket::SendMD5Auth(const std::string& user, const std::string& password,
                                     const std::string& challenge) {
    if (!IsSafeArgument(user)) return Exchange("", user);  // refused, although Base64 would hide it
    const std::string response = user + " " + HmacMd5Hex(password, challenge);
    std::string encoded;
    Base64Encode(&response, &encoded);
    return Exchange("", encoded);
}

std::string CSmtpSocket::SendCommand(const std::string& line) {
    std::string_view command = line;
    if (command.ends_with("\r\n")) command.remove_suffix(2);
    return Exchange(command, "");
}

std::string CSmtpSocket::SendMailFrom(std::string* sender) { return Exchange("MAIL FROM:", *sender); }

std::string CSmtpSocket::SendRcptTo(std::string* recipient) { return Exchange("RCPT TO:", *recipient); }

std::string CSmtpSocket::SendData(const std::string* text, DataForm form) {
    message_sent = 0;
    std::string scratch;
    const std::string_view message = FrameData(*text, form, scratch);
    std::string reply = Exchange("DATA", "");
    // A success before the message was sent must never pass for the answer to it: the mail would be lost.
    if (IsAcceptance(reply))
        return "554 " + Keep({FailureKind::Protocol, "DATA was answered: " + Printable(reply)}).reason;
    if (!reply.starts_with("354")) return reply;
    switch (connection_->SendMessage({message, ".\r\n"}, TimeOut())) {
        case Connection::SendResult::Sent:
            message_sent = 1;
            return ReadReply(Deadline(end_of_data_s_ > 0 ? std::chrono::seconds(end_of_data_s_) : TimeOut()));
        case Connection::SendResult::ServerSpoke:
            return ReadEarlyReply();
        case Connection::SendResult::Failed:
            break;
    }
    return WhyNot();
}

// What a server says before it has the whole message can only be a refusal: anything else must never pass for the
// answer to the message. Either way the rest of the message can no longer be sent.
std::string CSmtpSocket::ReadEarlyReply() {
    std::string reply = ReadReply(Deadline(TimeOut()));
    if (connection_->Why()) return reply;
    if (IsRefusal(reply)) {
        connection_->Fail({FailureKind::Lost, "the server refused a message before its end"});
        return reply;
    }
    connection_->Fail({FailureKind::Protocol, "a reply before the end of the message: " + Printable(reply)});
    return WhyNot();
}

std::string CSmtpSocket::Exchange(std::string_view verb, std::string_view argument) {
    if (!connection_->IsUsable()) return WhyNot();
    if (!IsSafeArgument(verb) || !IsSafeArgument(argument)) return "501 " + Keep(UnsafeArgument()).reason;
    Keep({});
    std::string command(verb);
    command += argument;
    command += "\r\n";
    const Deadline deadline(TimeOut());
    if (!connection_->SendCommand(command, deadline)) return WhyNot();
    return ReadReply(deadline);
}

// A single-line reply has until the deadline; each further line has the full time again.
std::string CSmtpSocket::ReadReply(Deadline deadline) {
    std::string reply;
    std::size_t bytes = 0;
    for (std::string_view line; connection_->ReadLine(line, deadline); deadline = Deadline(TimeOut())) {
        bytes += line.size() + 2;
        if (bytes > kMaxSmtpReplyBytes) {
            connection_->Fail({FailureKind::Protocol,
                               "a reply is over the limit of " + std::to_string(kMaxSmtpReplyBytes) + " bytes"});
            break;
        }
        if (!reply.empty()) reply += "\r\n";
        reply += line;
        if (IsLastLine(line)) return reply;
    }
    return WhyNot();
}

std::string CSmtpSocket::WhyNot() { return "421 " + Keep(connection_->Why()).reason; }

}  // namespace tarvex
