// Opens the SMTP connection of one run: connect, greet with EHLO or HELO, authenticate.

#include <cstddef>
#include <memory>
#include <string_view>

#include "platform/codec/base64.h"
#include "platform/net/sockets.h"
#include "platform/os/shield.h"
#include "platform/os/system.h"
#include "tarvex/tree.h"
#include "transfer/ehlo_reply.h"
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

enum class AuthMethod { None, CramMd5, Login, Plain };

// Mode 0 takes the best method that is offered; 1, 2 and 3 force PLAIN, LOGIN and CRAM-MD5. Nothing fits: no
// authentication.
AuthMethod ChooseMethod(std::string_view offered, int mode) {
    const auto offers = [offered](std::string_view name) { return offered.find(name) != std::string_view::npos; };
    if (offers("CRAM-MD5") && (mode == 0 || mode == 3)) return AuthMethod::CramMd5;
    if (offers("LOGIN") && (mode == 0 || mode == 2)) return AuthMethod::Login;
    if (offers("PLAIN") && (mode == 0 || mode == 1)) return AuthMethod::Plain;
    return AuthMethod::None;
}

class SmtpOpening {
public:
    SmtpOpening(const CPopProfileSetting& setting, CProfileLog& log) : setting_(setting), log_(log) {}

    std::unique_ptr<CSmtpSocket> Run() {
        if (!Connect()) return nullptr;
        if (!Greet()) {
            CloseAfterGreeting();
            return nullptr;
        }
        return std::move(socket_);
    }

private:
    void Log(CString line) { log_.AddLine(std::move(line)); }

    bool Connect() {
        socket_->SetTimeOut(setting_.timeout);
        socket_->ssl = setting_.sslsmtp;
        if (!socket_->Create(0, 1, nullptr)) {
            Log("Fail to create smtp socket");
            return false;
        }
        Log("Success to create smtp socket");

        const CString& server = setting_.smtpserver.empty() ? setting_.popserver : setting_.smtpserver;
        const CString reply = socket_->SmtpConnect(server, setting_.smtpport);
        Log("connecting.. " + server);
        Log(reply);
        if (IsCode(reply, "220")) return true;

        // No QUIT here, and a tab and "!!" before the text: kept on purpose.
        socket_->Close();
        Log(socket_->timed_out == 1 ? "\t!!TimeoutError..Closing Socket" : "\t!!Connect error");
        return false;
    }

    // True when the connection is ready for mail.
    bool Greet() {
        CString host = HostName();
        if (setting_.esmtp != 0) {
            const CString reply = socket_->SendEHello(&host);
            Log("EHLO " + host);
            Log(reply);
            if (IsCode(reply, "250")) return setting_.smtpauth == 0 || Authenticate(AuthList(reply));
            // Only a server that does not know the command is asked again with HELO: kept on purpose.
            if (!IsCode(reply, "500") || !Reset()) return false;
        }
        const CString reply = socket_->SendHello(&host);
        Log("HELO");
        Log(reply);
        return IsCode(reply, "250");
    }

    bool Reset() {
        const CString reply = socket_->SendReset();
        Log("RSET");
        Log(reply);
        return IsCode(reply, "250");
    }

    // A method that fails is not followed by another.
    bool Authenticate(std::string_view offered) {
        const CString& user = setting_.smtpuser.empty() ? setting_.popuser : setting_.smtpuser;
        const CString& password = setting_.smtppassword.empty() ? setting_.poppassword : setting_.smtppassword;
        switch (ChooseMethod(offered, setting_.smtpauth_mode)) {
            case AuthMethod::CramMd5:
                return AuthenticateCramMd5(user, password);
            case AuthMethod::Login:
                return AuthenticateLogin(user, password);
            case AuthMethod::Plain:
                return AuthenticatePlain(user, password);
            case AuthMethod::None:
                break;
        }
        return true;
    }

    bool AuthenticateCramMd5(const CString& user, const CString& password) {
        CString reply = socket_->SendAuth("CRAM-MD5");
        Log("CRAM-MD5");
        Log(reply);
        if (!IsCode(reply, "334")) return false;
        reply = socket_->SendMD5Auth(user, password, Challenge(reply));
        Log(reply);
        return IsCode(reply, "235");
    }

    bool AuthenticateLogin(const CString& user, const CString& password) {
        const CString encoded_user = Encoded(user);
        const CString encoded_password = Encoded(password);
        CString reply = socket_->SendAuth("LOGIN");
        Log("LOGIN");
        Log(reply);
        if (!IsCode(reply, "334")) return false;
        reply = socket_->SendUser(encoded_user);
        Log(encoded_user);
        Log(reply);
        if (!IsCode(reply, "334")) return false;
        reply = socket_->SendPassWord(encoded_password);
        Log("PASS " + CString(encoded_password.size(), '*'));
        Log(reply);
        return IsCode(reply, "235");
    }

    // The method's name is not logged, and the response stands in the log unmasked: kept on purpose.
    bool AuthenticatePlain(const CString& user, const CString& password) {
        CString reply = socket_->SendAuth("PLAIN");
        Log(reply);
        if (!IsCode(reply, "334")) return false;
        CString response = user;
        response.append(1, '\0').append(user).append(1, '\0').append(password);
        const CString encoded = Encoded(response);
        reply = socket_->SendCommand(encoded + "\r\n");
        Log(encoded);
        Log(reply);
        return IsCode(reply, "235");
    }

    // The answer to QUIT is neither logged nor looked at, and the time-out's text is logged also without a time-out:
    // kept on purpose.
    void CloseAfterGreeting() {
        if (socket_->timed_out != 1) {
            Log("QUIT");
            socket_->SendQuit();
        }
        socket_->Close();
        Log(kSmtpTimeOutText);
    }

    const CPopProfileSetting& setting_;
    CProfileLog& log_;
    std::unique_ptr<CSmtpSocket> socket_ = std::make_unique<CSmtpSocket>();
};

}  // namespace
}  // namespace tarvex

tarvex::CSmtpSocket* CPopProfile::CreateSmtpConnection() {
    return tarvex::Shielded<tarvex::CSmtpSocket*>(
        nullptr, [&] { return tarvex::SmtpOpening(setting, log).Run().release(); },
        [&](const char* reason) { log.AddLine(CString("* SMTP exception : ") + reason); });
}
