// What a person can do about a server that cannot be used.

#include "host/advice/advice.h"

#include <algorithm>
#include <array>

#include "host/advice/reply_codes.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr int kDefaultTimeOut_s = 30;

// The pieces of the sentences.
struct Words {
    bool pop;
    std::string server;  // "pop.example.org"
    std::string port;    // "port 110"
    std::string server_key;
    std::string port_key;
    std::string seconds;
    int ssl;
    bool by_token;
};

Words WordsFor(Protocol protocol, const CPopProfileSetting& setting, const HostRules& rules) {
    Words words;
    words.pop = protocol == Protocol::Pop;
    words.server = ShowText(ServerOf(setting, protocol));
    words.port = "port " + std::to_string(words.pop ? setting.popport : setting.smtpport);
    words.server_key = words.pop || setting.smtpserver.empty() ? "popserver" : "smtpserver";
    words.port_key = words.pop ? "popport" : "smtpport";
    words.seconds = ShowCount(setting.timeout > 0 ? setting.timeout : kDefaultTimeOut_s, "second");
    words.ssl = words.pop ? rules.pop_tls : setting.sslsmtp;
    words.by_token = (words.pop ? rules.pop_login : rules.smtp_login) != 0;
    return words;
}

std::string UsualPorts(const Words& words) {
    return words.pop ? "POP3 is usually at 110, with TLS from the first byte at 995"
                     : "SMTP is usually at 587 or 25, with TLS from the first byte at 465";
}

std::string OnName(const Words& words) {
    if (words.server.empty()) return "No server is set: set " + words.server_key + ".";
    return "There is no server of this name: check " + words.server_key +
           " for a typing error. If it is right, the name service (DNS) of this machine does not answer.";
}

std::string OnConnection(const Words& words, CProbeReason reason) {
    if (reason == CProbeReason::NotListening) {
        return "Nothing listens there: " + words.port_key + " may be wrong (" + UsualPorts(words) +
               "), or the server is down.";
    }
    if (reason == CProbeReason::NoRoute) {
        return "The server cannot be reached: this machine may be off the network, or " + words.server_key +
               " may be wrong.";
    }
    return "Look at " + words.server_key + " and " + words.port_key + " (" + UsualPorts(words) + ").";
}

std::string OnSilence(const Words& words, int kind) {
    if (kind == PROBE_FIND_SERVER) return "The name service (DNS) of this machine does not answer.";
    if (kind == PROBE_CONNECT) {
        return "The server did not answer within " + words.seconds + ": a firewall may be in between, or " +
               words.server_key + " or " + words.port_key + " may be wrong (" + UsualPorts(words) + ").";
    }
    if (kind == PROBE_GREETING && words.pop && words.ssl == 0) {
        return "The server accepts the connection and says nothing. If " + words.port +
               " expects TLS from the first byte, as 995 does, set it: `tarvex rules set PROFILE --pop_tls tls`.";
    }
    if (kind == PROBE_GREETING && words.ssl != 1) {
        return "The server accepts the connection and says nothing. If " + words.port +
               " expects TLS from the first byte, as 465 does, set --sslsmtp tls.";
    }
    return "The server did not answer within " + words.seconds + ": raise timeout if it is merely slow.";
}

std::string OnForeigner(const Words& words) {
    return "The server at " + words.port + " does not speak " + (words.pop ? "POP3" : "SMTP") + ": set " +
           words.port_key + " (" + UsualPorts(words) + ").";
}

std::string OnTls(const Words& words, CProbeReason reason) {
    if (reason == CProbeReason::TlsRefused) {
        return "The server speaks TLS, but refused this connection: it may want a version or a method of encryption "
               "that tarvex does not use (TLS 1.2 or newer), or another name of the server. Look at " +
               words.server_key + ", or ask its operator.";
    }
    if (words.pop && words.ssl == 2) {
        return "The server does not upgrade to TLS at " + words.port +
               ": 110 often does; for 995 use `tarvex rules set PROFILE --pop_tls tls`.";
    }
    if (words.pop) {
        return "The server does not speak TLS from the first byte at " + words.port +
               ": 995 usually does; for 110 use `tarvex rules set PROFILE --pop_tls starttls`.";
    }
    if (words.ssl == 2) {
        return "The server does not upgrade to TLS at " + words.port + ": 587 usually does; for 465 set --sslsmtp tls.";
    }
    return "The server does not speak TLS from the first byte at " + words.port +
           ": 465 usually does; for 587 and 25 set --sslsmtp starttls.";
}

std::string OnCertificate(const Words& words, CProbeReason reason) {
    if (reason == CProbeReason::OtherName) {
        return "The certificate is for another name: " + words.server_key +
               " must be a name that is in the certificate.";
    }
    if (reason == CProbeReason::OutOfDate) {
        return "The certificate is out of date: look at the clock of this machine; if it is right, tell the operator "
               "of the server.";
    }
    if (reason == CProbeReason::NotTrusted) {
        return "This machine does not trust the authority that signed the certificate. Install the package "
               "ca-certificates if it is missing; for an authority of your own, put its certificate into the trust "
               "store of this machine" +
               std::string(words.pop || words.by_token
                               ? ", or name its file: `tarvex rules set PROFILE --tls_authority FILE`."
                               : ".");
    }
    return "The server's certificate is not accepted, for the reason above.";
}

// RFC 2449 and 3206; what is no such code has no advice here.
std::string OnPopCode(const std::string& code) {
    if (code == "IN-USE")
        return "Another program has the mailbox open, or the last connection has not ended yet: try later.";
    if (code == "LOGIN-DELAY") return "The server wants longer pauses between two logins: set a larger --timer.";
    if (code == "SYS/TEMP")
        return "The server has a fault of its own for now; your settings are not to blame: try later.";
    if (code == "SYS/PERM") {
        return "The server has a fault of its own that does not pass by itself; your settings are not to blame: tell "
               "its "
               "operator.";
    }
    return {};
}

bool Mentions(const CString& reply, std::string_view word) { return Lower(reply).find(word) != std::string::npos; }

// About a login that is missing, or that the server wants otherwise; empty when the answer is not about that.
std::string OnWantedLogin(const CProbeStep& step, const CPopProfileSetting& setting) {
    const std::string_view code = EnhancedCode(step.text);
    if (Mentions(step.text, "starttls") || step.text.starts_with("538") || code == "5.7.11") {
        return "The server wants an encrypted connection first: set --sslsmtp starttls (usually port 587).";
    }
    const bool wanted = step.text.starts_with("530") || Mentions(step.text, "authentication required") ||
                        Mentions(step.text, "not logged in");
    const bool relay = step.kind == PROBE_RCPT_TO && (Mentions(step.text, "relay") || code == "5.7.1");
    if (setting.smtpauth == 0 && wanted) return "The server wants a login: set --smtpauth on.";
    if (setting.smtpauth == 0 && relay) {
        return "The server does not send mail there for somebody who is not logged in: set --smtpauth on.";
    }
    if (relay) return "The server does not let this account send mail there; its answer says why.";
    return {};
}

std::string OnSender(const CProbeStep& step, const CPopProfileSetting& setting) {
    if (const std::string login = OnWantedLogin(step, setting); !login.empty()) return login;
    return "The server does not accept \"" + ShowText(setting.address) +
           "\" as a sender: set --address to one that this account may send from.";
}

std::string OnRecipient(const CProbeStep& step, const CPopProfileSetting& setting) {
    if (const std::string login = OnWantedLogin(step, setting); !login.empty()) return login;
    const std::string_view code = EnhancedCode(step.text);
    if (code.starts_with("5.1.")) return "There is no such mailbox: correct the address (`tarvex forward set`).";
    if (code == "5.2.1") return "The mailbox is switched off: ask its owner.";
    if (code == "5.2.2") return "The mailbox is full: ask its owner.";
    return "The server takes no mail for this address; its answer says why.";
}

std::string OnLogIn(const Words& words, const CProbeStep& step, const CPopProfileSetting& setting) {
    if (const std::string told = words.pop ? OnPopCode(PopResponseCode(step.text)) : OnWantedLogin(step, setting);
        !told.empty()) {
        return told;
    }
    if (words.by_token) {
        return "The server refused the token. It must be for the user name " +
               std::string(words.pop || setting.smtpuser.empty() ? "in popuser" : "in smtpuser") +
               ", with the permission (scope) for " + (words.pop ? "POP3" : "SMTP") +
               ", which many providers must switch on for the mailbox, too. If it is, set " +
               (words.pop ? "--pop_login" : "--smtp_login") + " to the other form (`tarvex rules set`).";
    }
    if (EnhancedCode(step.text) == "5.7.9") {
        return "The server wants another kind of login: an app password instead of your own, or another "
               "--smtpauth_mode.";
    }
    if (words.pop) {
        const std::string apop = setting.apop != 0 ? " If they are right, set --apop off." : "";
        return "The server refused the login: set --popuser and --password (`tarvex profile set`). Some providers "
               "require an app password instead of your own." +
               apop;
    }
    const std::string user = setting.smtpuser.empty() ? "--smtpuser (empty: popuser)" : "--smtpuser";
    const std::string password =
        setting.smtppassword.empty() ? "--smtp-password (empty: the POP3 password)" : "--smtp-password";
    return "The server refused the login: set " + user + " and " + password +
           ". If they are right, try another --smtpauth_mode.";
}

std::string OnRefusal(const Words& words, const CProbeStep& step, const CPopProfileSetting& setting) {
    if (words.pop) {
        if (const std::string told = OnPopCode(PopResponseCode(step.text)); !told.empty()) return told;
    }
    if (step.reason == CProbeReason::ForNow) {
        return step.kind == PROBE_RCPT_TO ? "The server refuses for now, as servers do with senders that they do not "
                                            "know yet: try again in some "
                                            "minutes."
                                          : "The server refuses for now: try later.";
    }
    switch (step.kind) {
        case PROBE_LOGIN:
            return OnLogIn(words, step, setting);
        case PROBE_MAIL_FROM:
            return OnSender(step, setting);
        case PROBE_RCPT_TO:
            return OnRecipient(step, setting);
        case PROBE_GREETING:
            return "The server rejected the connection. It may be blocking this machine or be temporarily unavailable: "
                   "ask its operator, or try again later.";
        case PROBE_HELLO:
            return "The server refused the greeting: try --esmtp " + std::string(setting.esmtp ? "off" : "on") + ".";
        case PROBE_LIST:
            return "The server does not list the mailbox: another program may be using it; try later.";
        default:
            return "The server refused; its answer says why.";
    }
}

// About what the host says in the place of a server (host/ways/server_way.h); empty when that is not it.
std::string OnMissingToken(std::string_view reply) {
    const auto begins = [reply](const char* begin) { return reply.starts_with(begin); };
    if (begins("-ERR [SYS/TEMP] token: ") || begins("454 4.7.0 token: "))
        return "There is no token for now, for the reason above, so nothing was sent to the server. The next run asks "
               "again.";
    if (begins("-ERR [AUTH] token: ") || begins("535 5.7.8 token: "))
        return "There is no token to log in with, so nothing was sent to the server; docs/tokens.md tells how to get "
               "one.";
    return {};
}

}  // namespace

const CString& ServerOf(const CPopProfileSetting& setting, Protocol protocol) {
    return protocol == Protocol::Pop || setting.smtpserver.empty() ? setting.popserver : setting.smtpserver;
}

std::string AdviceOnMissingLogin(const CString& hello_reply, const CPopProfileSetting& setting) {
    const std::string start = "smtpauth is on, but mail goes out without a login: ";
    if (setting.esmtp == 0) return start + "the server is greeted with HELO. Set --esmtp on.";
    const std::string offered = OfferedMethods(hello_reply);
    if (offered.empty()) {
        return start + "the server offers none" +
               (setting.sslsmtp == 0 ? ". Many offer it on an encrypted connection alone: set --sslsmtp starttls."
                                     : ".");
    }
    const std::string methods = "the server offers " + ShowText(offered);
    constexpr std::array kKnown = {"CRAM-MD5", "LOGIN", "PLAIN"};
    const auto is_offered = [&](std::string_view method) { return offered.find(method) != std::string::npos; };
    if (std::ranges::none_of(kKnown, is_offered)) return start + methods + ", and tarvex knows none of these.";
    // By the value of smtpauth_mode.
    constexpr std::array kByMode = {"", "PLAIN", "LOGIN", "CRAM-MD5"};
    const int mode = setting.smtpauth_mode;
    const bool fits =
        mode == 0 || (mode > 0 && mode < int{kByMode.size()} && is_offered(kByMode[static_cast<std::size_t>(mode)]));
    if (!fits) return start + methods + ", which does not fit smtpauth_mode. Set --smtpauth_mode best.";
    return start + methods +
           ", but on the first or last line of its answer, where a run does not look for it. Ask its "
           "operator, or send through another server.";
}

std::string Advice(const CProbeStep& step, Protocol protocol, const CPopProfileSetting& setting,
                   const HostRules& rules) {
    const Words words = WordsFor(protocol, setting, rules);
    switch (step.failure) {
        case PROBE_NO_SUCH_SERVER:
            return OnName(words);
        case PROBE_NO_CONNECTION:
            return OnConnection(words, step.reason);
        case PROBE_TIMED_OUT:
            return OnSilence(words, step.kind);
        case PROBE_WRONG_PROTOCOL:
            return OnForeigner(words);
        case PROBE_NO_TLS:
            return OnTls(words, step.reason);
        case PROBE_BAD_CERTIFICATE:
            return OnCertificate(words, step.reason);
        case PROBE_REFUSED:
            if (const std::string told = OnMissingToken(step.text); !told.empty()) return told;
            return OnRefusal(words, step, setting);
        case PROBE_LOCAL:
            return "The fault is on this machine, for the reason above.";
        default:
            return "The server ended the connection: try again, and look at " + words.port_key + " (" +
                   UsualPorts(words) + ").";
    }
}

}  // namespace tarvex::host
