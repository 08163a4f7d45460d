// Opens an SMTP connection: connect, greet, choose an authentication method (ChooseMethod), authenticate.

#include "transfer/smtp_opening.h"

#include <cstddef>
#include <string_view>

#include "platform/codec/base64.h"
#include "platform/os/shield.h"
#include "platform/os/system.h"
#include "tarvex/tree.h"
#include "transfer/ehlo_reply.h"
#include "transfer/guarded_connecting.h"
#include "transfer/run_failure.h"
#include "transfer/smtp_replies.h"

namespace tarvex {
namespace {

CString Encoded(const CString& plain) {
    CString encoded;
    Base64Encode(&plain, &encoded);
    return encoded;
}

// The challenge of a 334 reply: its text behind the first blank, decoded.
CString Challenge(CString reply) {
    std::erase_if(reply, [](char c) { return c == '\r' || c == '\n'; });
    const std::size_t blank = reply.find(' ');
    if (blank != CString::npos) reply.erase(0, blank + 1);
    CString challenge;
    Base64Decode(&reply, &challenge);
    return challenge;
}

// The order of the authentication methods. Mode 0 takes the first one that the server offers; 1, 2 and 3 force PLAIN,
// LOGIN and CRAM-MD5. When none fits, there is no authentication (B58).
AuthMethod ChooseMethod(std::string_view offered, int mode) {
    const auto offers = [offered](std::string_view name) { return offered.find(name) != std::string_view::npos; };
    if (offers("CRAM-MD5") && (mode == 0 || mode == 3)) return AuthMethod::CramMd5;
    if (offers("LOGIN") && (mode == 0 || mode == 2)) return AuthMethod::Login;
    if (offers("PLAIN") && (mode == 0 || mode == 1)) return AuthMethod::Plain;
    return AuthMethod::None;
}

// Opens the connection as a run does, and tells why where that fails.
bool OpenAndTell(SmtpOpening& opening, CRunFailure& told) {
    const auto refused_at = [&](CRunStage stage) {
        const Refusal refusal{opening.Socket().LastFailure(), opening.LastReply()};
        Fill(told, stage, SmtpClass(refusal), refusal);
        return false;
    };
    ConnectStep step = ConnectStep::FindServer;
    opening.Socket().AnnounceSteps([&step](ConnectStep begun) { step = begun; });
    const bool connected = opening.Connect();
    opening.Socket().AnnounceSteps({});
    if (!connected) return refused_at(StageOf(step));

    if (!opening.Greet()) {
        refused_at(CRunStage::Greeting);
    } else if (!opening.Authenticate()) {
        refused_at(CRunStage::Login);
    } else {
        return true;
    }
    opening.CloseAfterGreeting();
    return false;
}

}  // namespace

bool SmtpOpening::Connect() {
    socket_->SetTimeOut(timeout_s_);
    socket_->ssl = account_.tls;
    if (!socket_->Create(0, 1, nullptr)) {
        Log("Fail to create smtp socket");
        return false;
    }
    Log("Success to create smtp socket");

    const CString reply = socket_->SmtpConnect(account_.server, account_.port);
    Log("connecting.. " + account_.server);
    LogReply(reply);
    if (IsCode(reply, "220")) return true;

    // No QUIT here, and a tab and "!!" before the text (B59).
    socket_->Close();
    Log(socket_->timed_out == 1 ? "\t!!TimeoutError..Closing Socket" : "\t!!Connect error");
    return false;
}

bool SmtpOpening::Greet() {
    CString host = HostName();
    if (account_.esmtp) {
        const CString reply = socket_->SendEHello(&host);
        Log("EHLO " + host);
        LogReply(reply);
        if (IsCode(reply, "250")) {
            if (account_.logs_in) method_ = ChooseMethod(AuthList(reply), account_.method);
            return true;
        }
        // Only a server that does not know the command is greeted again with HELO (B56).
        if (!IsCode(reply, "500") || !Reset()) return false;
    }
    const CString reply = socket_->SendHello(&host);
    Log("HELO");
    LogReply(reply);
    return IsCode(reply, "250");
}

bool SmtpOpening::Reset() {
    const CString reply = socket_->SendReset();
    Log("RSET");
    LogReply(reply);
    return IsCode(reply, "250");
}

// A method that fails is not followed by another (B58).
bool SmtpOpening::Authenticate() {
    switch (method_) {
        case AuthMethod::CramMd5:
            return AuthenticateCramMd5();
        case AuthMethod::Login:
            return AuthenticateLogin();
        case AuthMethod::Plain:
            return AuthenticatePlain();
        case AuthMethod::None:
            break;
    }
    return true;
}

bool SmtpOpening::AuthenticateCramMd5() {
    CString reply = socket_->SendAuth("CRAM-MD5");
    Log("CRAM-MD5");
    LogReply(reply);
    if (!IsCode(reply, "334")) return false;
    reply = socket_->SendMD5Auth(account_.user, account_.password, Challenge(reply));
    LogReply(reply);
    return IsCode(reply, "235");
}

bool SmtpOpening::AuthenticateLogin() {
    const CString encoded_user = Encoded(account_.user);
    const CString encoded_password = Encoded(account_.password);
    CString reply = socket_->SendAuth("LOGIN");
    Log("LOGIN");
    LogReply(reply);
    if (!IsCode(reply, "334")) return false;
    reply = socket_->SendUser(encoded_user);
    Log(encoded_user);
    LogReply(reply);
    if (!IsCode(reply, "334")) return false;
    reply = socket_->SendPassWord(encoded_password);
    Log("PASS " + CString(encoded_password.size(), '*'));
    LogReply(reply);
    return IsCode(reply, "235");
}

// The method's name is not logged, and the response stands in the log unmasked (B61).
bool SmtpOpening::AuthenticatePlain() {
    CString reply = socket_->SendAuth("PLAIN");
    LogReply(reply);
    if (!IsCode(reply, "334")) return false;
    CString response = account_.user;
    response.append(1, '\0').append(account_.user).append(1, '\0').append(account_.password);
    const CString encoded = Encoded(response);
    reply = socket_->SendCommand(encoded + "\r\n");
    Log(encoded);
    LogReply(reply);
    return IsCode(reply, "235");
}

// The answer to QUIT is neither logged nor looked at; the text of a time-out is logged in any case (B60).
void SmtpOpening::CloseAfterGreeting() {
    if (socket_->timed_out != 1) {
        Log("QUIT");
        socket_->SendQuit();
    }
    socket_->Close();
    Log(kSmtpTimeOutText);
}

void SmtpOpening::LogReply(const CString& reply) {
    last_reply_ = reply;
    Log(reply);
}

}  // namespace tarvex

CSmtpAccount CSmtpAccount::Of(const CPopProfileSetting& setting) {
    return {.server = setting.smtpserver.empty() ? setting.popserver : setting.smtpserver,
            .port = setting.smtpport,
            .tls = setting.sslsmtp,
            .esmtp = setting.esmtp != 0,
            .logs_in = setting.smtpauth != 0,
            .method = setting.smtpauth_mode,
            .user = setting.smtpuser.empty() ? setting.popuser : setting.smtpuser,
            .password = setting.smtppassword.empty() ? setting.poppassword : setting.smtppassword};
}

tarvex::CSmtpSocket* CPopProfile::CreateSmtpConnection() {
    return tarvex::Shielded<tarvex::CSmtpSocket*>(
        nullptr,
        [&]() -> tarvex::CSmtpSocket* {
            CRunGuard& asked = CRunGuard::OrDefaults(guard);
            tarvex::SmtpOpening opening(asked.SendsThrough(*this), setting.timeout, log);
            tarvex::LetGuardConnect(opening.Socket(), asked, *this, CProtocol::Smtp);
            if (!tarvex::OpenAndTell(opening, result.delivery)) return nullptr;
            opening.Socket().AskForSockets({});
            return opening.TakeSocket().release();
        },
        [&](const char* reason) {
            tarvex::FillException(result.delivery, reason);
            log.AddLine(CString("* SMTP exception : ") + reason);
        });
}

void CloseSmtpConnection(tarvex::CSmtpSocket* connection) { delete connection; }

void QuitSmtpConnection(tarvex::CSmtpSocket* connection) {
    if (connection) tarvex::Shielded([&] { connection->SendQuit(); });
    CloseSmtpConnection(connection);
}
