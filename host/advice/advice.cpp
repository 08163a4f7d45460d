// What a person can do about a server that cannot be used.

#include "host/advice/advice.h"

#include <algorithm>
#include <array>

#include "host/advice/reply_codes.h"
#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr int kDefaultTimeOut_s = 30;

// The pieces of the sentences.
struct Words : FieldNames {
    using FieldNames::FieldNames;

    bool pop = false;
    std::string server;  // "pop.example.org"
    int port = 0;
    std::string server_key;
    std::string port_key;
    int seconds = 0;
    int ssl = 0;
    bool by_token = false;
};

Words WordsFor(Protocol protocol, const CPopProfileSetting& setting, const HostRules& rules, Reader reader) {
    Words words(reader);
    words.pop = protocol == Protocol::Pop;
    words.server = ShowText(ServerOf(setting, protocol));
    words.port = words.pop ? setting.popport : setting.smtpport;
    words.server_key = words.pop || setting.smtpserver.empty() ? "popserver" : "smtpserver";
    words.port_key = words.pop ? "popport" : "smtpport";
    words.seconds = setting.timeout > 0 ? setting.timeout : kDefaultTimeOut_s;
    words.ssl = words.pop ? rules.pop_tls : setting.sslsmtp;
    words.by_token = (words.pop ? rules.pop_login : rules.smtp_login) != 0;
    return words;
}

std::string UsualPorts(const Words& words) {
    return words.pop ? Tr("POP3 is usually at 110, with TLS from the first byte at 995")
                     : Tr("SMTP is usually at 587 or 25, with TLS from the first byte at 465");
}

std::string OnName(const Words& words) {
    if (words.server.empty()) return Tr("No server is set: set {0}.", words.Key(words.server_key));
    return Tr(
        "There is no server of this name: check {0} for a typing error. If it is right, the name service (DNS) of this "
        "machine does not answer.",
        words.Key(words.server_key));
}

std::string OnConnection(const Words& words, CProbeReason reason) {
    if (reason == CProbeReason::NotListening) {
        return Tr("Nothing listens there: {0} may be wrong ({1}), or the server is down.", words.Key(words.port_key),
                  UsualPorts(words));
    }
    if (reason == CProbeReason::NoRoute) {
        return Tr("The server cannot be reached: this machine may be off the network, or {0} may be wrong.",
                  words.Key(words.server_key));
    }
    return Tr("Look at {0} and {1} ({2}).", words.Key(words.server_key), words.Key(words.port_key), UsualPorts(words));
}

std::string OnSilence(const Words& words, int kind) {
    if (kind == PROBE_FIND_SERVER) return Tr("The name service (DNS) of this machine does not answer.");
    if (kind == PROBE_CONNECT) {
        return TrN(
            "The server did not answer within {0} second: a firewall may be in between, or {1} or {2} may be wrong "
            "({3}).",
            "The server did not answer within {0} seconds: a firewall may be in between, or {1} or {2} may be wrong "
            "({3}).",
            words.seconds, words.Key(words.server_key), words.Key(words.port_key), UsualPorts(words));
    }
    if (kind == PROBE_GREETING && words.pop && words.ssl == 0) {
        return Tr(
            "The server accepts the connection and says nothing. If port {0} expects TLS from the first byte, as 995 "
            "does, set it: {1}.",
            words.port, words.Rule("pop_tls", "tls"));
    }
    if (kind == PROBE_GREETING && words.ssl != 1) {
        return Tr(
            "The server accepts the connection and says nothing. If port {0} expects TLS from the first byte, as 465 "
            "does, set {1}.",
            words.port, words.Option("sslsmtp", "tls"));
    }
    return TrN("The server did not answer within {0} second: raise {1} if it is merely slow.",
               "The server did not answer within {0} seconds: raise {1} if it is merely slow.", words.seconds,
               words.Key("timeout"));
}

std::string OnForeigner(const Words& words) {
    return Tr("The server at port {0} does not speak {1}: set {2} ({3}).", words.port, words.pop ? "POP3" : "SMTP",
              words.Key(words.port_key), UsualPorts(words));
}

std::string OnTls(const Words& words, CProbeReason reason) {
    if (reason == CProbeReason::TlsRefused) {
        return Tr(
            "The server speaks TLS, but refused this connection: it may want a version or a method of encryption that "
            "tarvex does not use (TLS 1.2 or newer), or another name of the server. Look at {0}, or ask its operator.",
            words.Key(words.server_key));
    }
    if (words.pop && words.ssl == 2) {
        return Tr("The server does not upgrade to TLS at port {0}: 110 often does; for 995 use {1}.", words.port,
                  words.Rule("pop_tls", "tls"));
    }
    if (words.pop) {
        return Tr("The server does not speak TLS from the first byte at port {0}: 995 usually does; for 110 use {1}.",
                  words.port, words.Rule("pop_tls", "starttls"));
    }
    if (words.ssl == 2) {
        return Tr("The server does not upgrade to TLS at port {0}: 587 usually does; for 465 set {1}.", words.port,
                  words.Option("sslsmtp", "tls"));
    }
    return Tr(
        "The server does not speak TLS from the first byte at port {0}: 465 usually does; for 587 and 25 set {1}.",
        words.port, words.Option("sslsmtp", "starttls"));
}

std::string OnCertificate(const Words& words, CProbeReason reason) {
    if (reason == CProbeReason::OtherName) {
        return Tr("The certificate is for another name: {0} must be a name that is in the certificate.",
                  words.Key(words.server_key));
    }
    if (reason == CProbeReason::OutOfDate) {
        return Tr(
            "The certificate is out of date: look at the clock of this machine; if it is right, tell the operator of "
            "the server.");
    }
    if (reason == CProbeReason::NotTrusted) {
        return words.pop || words.by_token
                   ? Tr("This machine does not trust the authority that signed the certificate. Install the package "
                        "ca-certificates if it is missing; for an authority of your own, put its certificate into the "
                        "trust store of this machine, or name its file: {0}.",
                        words.Rule("tls_authority", "FILE"))
                   : Tr("This machine does not trust the authority that signed the certificate. Install the package "
                        "ca-certificates if it is missing; for an authority of your own, put its certificate into the "
                        "trust store of this machine.");
    }
    return Tr("The server's certificate is not accepted, for the reason above.");
}

// RFC 2449 and 3206; what is no such code has no advice here.
std::string OnPopCode(const FieldNames& words, const std::string& code) {
    if (code == "IN-USE")
        return Tr("Another program has the mailbox open, or the last connection has not ended yet: try later.");
    if (code == "LOGIN-DELAY")
        return Tr("The server wants longer pauses between two logins: set a larger {0}.", words.Option("timer"));
    if (code == "SYS/TEMP")
        return Tr("The server has a fault of its own for now; your settings are not to blame: try later.");
    if (code == "SYS/PERM") {
        return Tr(
            "The server has a fault of its own that does not pass by itself; your settings are not to blame: tell its "
            "operator.");
    }
    return {};
}

bool Mentions(const CString& reply, std::string_view word) { return Lower(reply).find(word) != std::string::npos; }

// About a login that is missing, or that the server wants otherwise; empty when the answer is not about that.
std::string OnWantedLogin(const FieldNames& words, const CProbeStep& step, const CPopProfileSetting& setting) {
    const std::string_view code = EnhancedCode(step.text);
    if (Mentions(step.text, "starttls") || step.text.starts_with("538") || code == "5.7.11") {
        return Tr("The server wants an encrypted connection first: set {0} (usually port 587).",
                  words.Option("sslsmtp", "starttls"));
    }
    const bool wanted = step.text.starts_with("530") || Mentions(step.text, "authentication required") ||
                        Mentions(step.text, "not logged in");
    const bool relay = step.kind == PROBE_RCPT_TO && (Mentions(step.text, "relay") || code == "5.7.1");
    if (setting.smtpauth == 0 && wanted)
        return Tr("The server wants a login: set {0}.", words.Option("smtpauth", "on"));
    if (setting.smtpauth == 0 && relay) {
        return Tr("The server does not send mail there for somebody who is not logged in: set {0}.",
                  words.Option("smtpauth", "on"));
    }
    if (relay) return Tr("The server does not let this account send mail there; its answer says why.");
    return {};
}

std::string OnSender(const FieldNames& words, const CProbeStep& step, const CPopProfileSetting& setting) {
    if (std::string login = OnWantedLogin(words, step, setting); !login.empty()) return login;
    return Tr("The server does not accept \"{0}\" as a sender: set {1} to one that this account may send from.",
              ShowText(setting.address), words.Option("address"));
}

std::string OnRecipient(const FieldNames& words, const CProbeStep& step, const CPopProfileSetting& setting) {
    if (std::string login = OnWantedLogin(words, step, setting); !login.empty()) return login;
    const std::string_view code = EnhancedCode(step.text);
    if (code.starts_with("5.1."))
        return Tr("There is no such mailbox: correct the address ({0}).",
                  words.Place("`tarvex forward set`", Marked("the page of the forwarding address")));
    if (code == "5.2.1") return Tr("The mailbox is switched off: ask its owner.");
    if (code == "5.2.2") return Tr("The mailbox is full: ask its owner.");
    return Tr("The server takes no mail for this address; its answer says why.");
}

std::string OnLogIn(const Words& words, const CProbeStep& step, const CPopProfileSetting& setting) {
    if (std::string told =
            words.pop ? OnPopCode(words, PopResponseCode(step.text)) : OnWantedLogin(words, step, setting);
        !told.empty()) {
        return told;
    }
    if (words.by_token) {
        return Tr(
            "The server refused the token. It must be for the user name in {0}, with the permission (scope) for {1}, "
            "which many providers must switch on for the mailbox, too. If it is, set {2} to the other form ({3}).",
            words.Key(words.pop || setting.smtpuser.empty() ? "popuser" : "smtpuser"), words.pop ? "POP3" : "SMTP",
            words.RuleName(words.pop ? "pop_login" : "smtp_login"),
            words.Place("`tarvex rules set`", Marked("the page \"Rules\" of the mailbox, which administrators have")));
    }
    if (EnhancedCode(step.text) == "5.7.9") {
        return Tr("The server wants another kind of login: an app password instead of your own, or another {0}.",
                  words.Option("smtpauth_mode"));
    }
    if (words.pop) {
        const std::string apop =
            setting.apop != 0 ? Tr(" If they are right, set {0}.", words.Option("apop", "off")) : "";
        return Tr("The server refused the login: set {0} and {1} ({2}). Some providers require an app password instead "
                  "of your own.",
                  words.Option("popuser"), words.Option("password"),
                  words.Place("`tarvex profile set`", Marked("the page \"Settings\" of the mailbox"))) +
               apop;
    }
    const std::string user = setting.smtpuser.empty()
                                 ? Tr("{0} (empty: {1})", words.Option("smtpuser"), words.Key("popuser"))
                                 : words.Option("smtpuser");
    const std::string password = setting.smtppassword.empty()
                                     ? Tr("{0} (empty: the POP3 password)", words.Option("smtp-password"))
                                     : words.Option("smtp-password");
    return Tr("The server refused the login: set {0} and {1}. If they are right, try another {2}.", user, password,
              words.Option("smtpauth_mode"));
}

std::string OnRefusal(const Words& words, const CProbeStep& step, const CPopProfileSetting& setting) {
    if (words.pop) {
        if (std::string told = OnPopCode(words, PopResponseCode(step.text)); !told.empty()) return told;
    }
    if (step.reason == CProbeReason::ForNow) {
        return step.kind == PROBE_RCPT_TO ? Tr("The server refuses for now, as servers do with senders that they do "
                                               "not know yet: try again in some minutes.")
                                          : Tr("The server refuses for now: try later.");
    }
    switch (step.kind) {
        case PROBE_LOGIN:
            return OnLogIn(words, step, setting);
        case PROBE_MAIL_FROM:
            return OnSender(words, step, setting);
        case PROBE_RCPT_TO:
            return OnRecipient(words, step, setting);
        case PROBE_GREETING:
            return Tr(
                "The server rejected the connection. It may be blocking this machine or be temporarily unavailable: "
                "ask its operator, or try again later.");
        case PROBE_HELLO:
            return Tr("The server refused the greeting: try {0}.", words.Option("esmtp", setting.esmtp ? "off" : "on"));
        case PROBE_LIST:
            return Tr("The server does not list the mailbox: another program may be using it; try later.");
        default:
            return Tr("The server refused; its answer says why.");
    }
}

// About what the host says in the place of a server (host/ways/server_way.h); empty when that is not it.
std::string OnMissingToken(std::string_view reply) {
    const auto begins = [reply](const char* begin) { return reply.starts_with(begin); };
    if (begins("-ERR [SYS/TEMP] token: ") || begins("454 4.7.0 token: "))
        return Tr(
            "There is no token for now, for the reason above, so nothing was sent to the server. The next run asks "
            "again.");
    if (begins("-ERR [AUTH] token: ") || begins("535 5.7.8 token: "))
        return Tr(
            "There is no token to log in with, so nothing was sent to the server; docs/tokens.md tells how to get "
            "one.");
    return {};
}

std::string OnMissingLogin(const FieldNames& words, const CString& hello_reply, const CPopProfileSetting& setting) {
    if (setting.esmtp == 0)
        return Tr("smtpauth is on, but mail goes out without a login: the server is greeted with HELO. Set {0}.",
                  words.Option("esmtp", "on"));
    const std::string offered = OfferedMethods(hello_reply);
    if (offered.empty()) {
        return setting.sslsmtp == 0 ? Tr("smtpauth is on, but mail goes out without a login: the server offers none. "
                                         "Many offer it on an encrypted connection alone: set {0}.",
                                         words.Option("sslsmtp", "starttls"))
                                    : Tr("smtpauth is on, but mail goes out without a login: the server offers none.");
    }
    const std::string methods = ShowText(offered);
    constexpr std::array kKnown = {"CRAM-MD5", "LOGIN", "PLAIN"};
    const auto is_offered = [&](std::string_view method) { return offered.find(method) != std::string::npos; };
    if (std::ranges::none_of(kKnown, is_offered))
        return Tr(
            "smtpauth is on, but mail goes out without a login: the server offers {0}, and tarvex knows none of these.",
            methods);
    // By the value of smtpauth_mode.
    constexpr std::array kByMode = {"", "PLAIN", "LOGIN", "CRAM-MD5"};
    const int mode = setting.smtpauth_mode;
    const bool fits =
        mode == 0 || (mode > 0 && mode < int{kByMode.size()} && is_offered(kByMode[static_cast<std::size_t>(mode)]));
    if (!fits)
        return Tr(
            "smtpauth is on, but mail goes out without a login: the server offers {0}, which does not fit "
            "smtpauth_mode. Set {1}.",
            methods, words.Option("smtpauth_mode", "best"));
    return Tr(
        "smtpauth is on, but mail goes out without a login: the server offers {0}, but on the first or last line of "
        "its answer, where a run does not look for it. Ask its operator, or send through another server.",
        methods);
}

std::string OnFailure(const Words& words, const CProbeStep& step, const CPopProfileSetting& setting) {
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
            if (std::string told = OnMissingToken(step.text); !told.empty()) return told;
            return OnRefusal(words, step, setting);
        case PROBE_LOCAL:
            return Tr("The fault is on this machine, for the reason above.");
        default:
            return Tr("The server ended the connection: try again, and look at {0} ({1}).", words.Key(words.port_key),
                      UsualPorts(words));
    }
}

}  // namespace

const CString& ServerOf(const CPopProfileSetting& setting, Protocol protocol) {
    return protocol == Protocol::Pop || setting.smtpserver.empty() ? setting.popserver : setting.smtpserver;
}

std::string ShowStep(int kind) {
    // As ProbeStepName has them.
    static constexpr std::array kNames = {
        Marked("find the server"), Marked("connect"),   Marked("TLS"),  Marked("greeting"),
        Marked("hello"),           Marked("log in"),    Marked("list"), Marked("quit"),
        Marked("sender"),          Marked("recipient"), Marked("reset")};
    const auto index = static_cast<std::size_t>(kind);
    return index < kNames.size() ? Tr(kNames[index]) : "";
}

std::string AdviceOnMissingLogin(const CString& hello_reply, const CPopProfileSetting& setting, Reader reader) {
    const FieldNames words(reader);
    const std::string advice = OnMissingLogin(words, hello_reply, setting);
    return advice + words.WhereFieldsAre();
}

std::string Advice(const CProbeStep& step, Protocol protocol, const CPopProfileSetting& setting, const HostRules& rules,
                   Reader reader) {
    const Words words = WordsFor(protocol, setting, rules, reader);
    const std::string advice = OnFailure(words, step, setting);
    return advice + words.WhereFieldsAre();
}

}  // namespace tarvex::host
