// What a person can do about a server that cannot be used.

#include "host/tree/advice.h"

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
};

Words WordsFor(Protocol protocol, const CPopProfileSetting& setting) {
    Words words;
    words.pop = protocol == Protocol::Pop;
    words.server = ShowText(ServerOf(setting, protocol));
    words.port = "port " + std::to_string(words.pop ? setting.popport : setting.smtpport);
    words.server_key = words.pop || setting.smtpserver.empty() ? "popserver" : "smtpserver";
    words.port_key = words.pop ? "popport" : "smtpport";
    words.seconds = ShowCount(setting.timeout > 0 ? setting.timeout : kDefaultTimeOut_s, "second");
    words.ssl = words.pop ? 0 : setting.sslsmtp;
    return words;
}

std::string UsualPorts(const Words& words) {
    return words.pop ? "POP3 is usually at 110" : "SMTP is usually at 587 or 25, with TLS from the first byte at 465";
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
    if (kind == PROBE_GREETING && words.pop) {
        return "The server accepts the connection and says nothing. If " + words.port +
               " expects TLS from the first byte, as 995 does: tarvex speaks POP3 in clear, so use 110, or a tunnel.";
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

std::string OnTls(const Words& words) {
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
               "store of this machine.";
    }
    return "The server's certificate is not accepted, for the reason above.";
}

std::string OnLogIn(const Words& words, const CPopProfileSetting& setting) {
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
    if (step.reason == CProbeReason::ForNow) return "The server refuses for now: try later.";
    switch (step.kind) {
        case PROBE_LOGIN:
            return OnLogIn(words, setting);
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

}  // namespace

const CString& ServerOf(const CPopProfileSetting& setting, Protocol protocol) {
    return protocol == Protocol::Pop || setting.smtpserver.empty() ? setting.popserver : setting.smtpserver;
}

std::string Advice(const CProbeStep& step, Protocol protocol, const CPopProfileSetting& setting) {
    const Words words = WordsFor(protocol, setting);
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
            return OnTls(words);
        case PROBE_BAD_CERTIFICATE:
            return OnCertificate(words, step.reason);
        case PROBE_REFUSED:
            return OnRefusal(words, step, setting);
        case PROBE_LOCAL:
            return "The fault is on this machine, for the reason above.";
        default:
            return "The server ended the connection: try again, and look at " + words.port_key + " (" +
                   UsualPorts(words) + ").";
    }
}

}  // namespace tarvex::host
