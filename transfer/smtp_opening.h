#pragma once

// Opening an SMTP connection, for a run and for a probe: connect, greet with EHLO or HELO, authenticate. Every command
// and every reply goes into the log.

#include <memory>
#include <string_view>
#include <utility>

#include "platform/net/sockets.h"
#include "tarvex/log.h"
#include "tarvex/smtp_account.h"

namespace tarvex {

enum class AuthMethod { None, CramMd5, Login, Plain };

class SmtpOpening {
public:
    // The log must outlive the opening. `timeout_s`: see CPopProfileSetting.
    SmtpOpening(CSmtpAccount account, int timeout_s, CProfileLog& log)
        : account_(std::move(account)), timeout_s_(timeout_s), log_(log) {}

    // Connects and reads the greeting. When that fails the connection is closed.
    bool Connect();

    // EHLO; HELO when the server does not know EHLO or the setting asks for it.
    bool Greet();

    // True also when there is nothing to do: the account has no login, the greeting was HELO, or no method fits.
    bool Authenticate();

    // After a failed greeting or authentication.
    void CloseAfterGreeting();

    CSmtpSocket& Socket() { return *socket_; }
    std::unique_ptr<CSmtpSocket> TakeSocket() { return std::move(socket_); }

    // The answer that the last of the above was decided by.
    const CString& LastReply() const { return last_reply_; }

    // What Authenticate does; None before Greet.
    AuthMethod Method() const { return method_; }

private:
    void Log(CString line) { log_.AddLine(std::move(line)); }
    void LogReply(const CString& reply);
    bool Reset();
    bool AuthenticateCramMd5();
    bool AuthenticateLogin();
    bool AuthenticatePlain();

    const CSmtpAccount account_;
    const int timeout_s_;
    CProfileLog& log_;
    std::unique_ptr<CSmtpSocket> socket_ = std::make_unique<CSmtpSocket>();
    CString last_reply_;
    AuthMethod method_ = AuthMethod::None;
};

}  // namespace tarvex
