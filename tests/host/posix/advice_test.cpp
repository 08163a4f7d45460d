// For every way in which a server can fail, a sentence that says what to do.

#include "host/advice/advice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/conversation.h"
#include "tests/support/net_tools.h"

namespace tarvex::host {
namespace {

using namespace tarvex::testing;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

CPopProfileSetting Setting(int port) {
    CPopProfileSetting setting;
    setting.popserver = setting.smtpserver = "127.0.0.1";
    setting.popport = setting.smtpport = port;
    setting.popuser = "alice";
    setting.poppassword = "secret";
    setting.smtpauth = 1;
    setting.timeout = kAmpleTimeOut_s;
    return setting;
}

// What is advised about the step at which the conversation ends.
std::string AdviceFor(Protocol protocol, const CPopProfileSetting& setting) {
    CMailboxListing listing;
    CSmtpTrial trial;
    const bool good = protocol == Protocol::Pop ? ListMailbox(setting, &listing) != 0 : TrySmtp(setting, &trial) != 0;
    EXPECT_FALSE(good);
    const CArray<CProbeStep>& steps = protocol == Protocol::Pop ? listing.steps : trial.steps;
    return steps.empty() ? "" : Advice(steps.back(), protocol, setting);
}

struct Case {
    std::string script;
    std::string advice;
    int timeout = kAmpleTimeOut_s;
    std::function<void(CPopProfileSetting&)> adapt = {};
};

void CheckAll(Protocol protocol, const std::vector<Case>& cases) {
    const auto ask = [protocol](const Case& one) {
        Conversation server(one.script);
        CPopProfileSetting setting = Setting(server.Port());
        setting.timeout = one.timeout;
        if (one.adapt) one.adapt(setting);
        return AdviceFor(protocol, setting);
    };
    RunAll(cases, ask, [](const Case& one, const std::string& advice) {
        SCOPED_TRACE(one.script);
        EXPECT_THAT(advice, HasSubstr(one.advice));
    });
}

std::function<void(CPopProfileSetting&)> Tls(int sslsmtp) {
    return [sslsmtp](CPopProfileSetting& setting) { setting.sslsmtp = sslsmtp; };
}

TEST(Advice, OfEveryFailureOfPop3) {
    const std::string user = "S: +OK <1@me> ready\nC: USER alice\n";
    const std::string logged_in = user + "S: +OK\nC: PASS secret\nS: +OK\n";
    CheckAll(Protocol::Pop,
             {{"S: 220 ready\nC: USER alice\nS: (closed)\n",
               "does not speak POP3: set popport (POP3 is usually at 110, with TLS from the first byte at 995)"},
              {"S: -ERR go away\nC: (closed)\n", "The server rejected the connection."},
              {"C: (closed)\n", "as 995 does, set it: `tarvex rules set PROFILE --pop_tls tls`", kStallTimeOut_s},
              {"S: (closed)\n", "The server ended the connection: try again, and look at popport"},
              {user + "S: -ERR no\nC: (closed)\n", "set --popuser and --password"},
              {user + "C: (closed)\n", "did not answer within 1 second: raise timeout", kStallTimeOut_s},
              {user + "S: -ERR [in-use] locked\nC: (closed)\n", "Another program has the mailbox open"},
              {user + "S: -ERR [LOGIN-DELAY] 60\nC: (closed)\n", "set a larger --timer"},
              {user + "S: -ERR [SYS/TEMP] x\nC: (closed)\n", "your settings are not to blame: try later"},
              {user + "S: -ERR [SYS/PERM] x\nC: (closed)\n", "tell its operator"},
              {user + "S: -ERR [AUTH] no\nC: (closed)\n", "set --popuser and --password"},
              {logged_in + "C: UIDL\nS: -ERR no\nC: LIST\nS: -ERR locked\nC: (closed)\n",
               "another program may be using it"}});
    ScriptedServer apop([](Peer& peer) {
        peer.Send("+OK <1@me>\r\n");
        peer.ReadLine();
        peer.Send("-ERR no\r\n");
    });
    CPopProfileSetting setting = Setting(apop.Port());
    setting.apop = 1;
    EXPECT_THAT(AdviceFor(Protocol::Pop, setting), HasSubstr("If they are right, set --apop off."));
}

TEST(Advice, OfEveryFailureOfSmtp) {
    const std::string ehlo = "S: 220 ready\nC: EHLO {host}\n";
    const std::string quit = "C: QUIT\nS: 221 bye\nC: (closed)\n";
    CheckAll(Protocol::Smtp,
             {{"S: +OK ready\nC: (closed)\n", "does not speak SMTP: set smtpport"},
              {"S: 554 no\nC: (closed)\n", "The server rejected the connection."},
              {"S: 450 busy\nC: (closed)\n", "The server refuses for now: try later."},
              {"C: (closed)\n", "as 465 does, set --sslsmtp tls", kStallTimeOut_s},
              {"C: (closed)\n", "as 465 does, set --sslsmtp tls", kStallTimeOut_s, Tls(2)},
              {ehlo + "S: 502 no\n" + quit, "try --esmtp off"},
              {ehlo + "S: (closed)\n", "ended the connection"},
              {ehlo + "S: 250-me\nS: 250-AUTH LOGIN\nS: 250 OK\nC: AUTH LOGIN\nS: 535 no\n" + quit,
               "set --smtpuser (empty: popuser) and --smtp-password (empty: the POP3 password)"},
              {ehlo + "S: 250-me\nS: 250-AUTH LOGIN\nS: 250 OK\nC: AUTH LOGIN\nS: 534 5.7.9 app\n" + quit,
               "an app password instead of your own"},
              {ehlo + "S: 250-me\nS: 250-AUTH LOGIN\nS: 250 OK\nC: AUTH LOGIN\nS: 538 5.7.11 no\n" + quit,
               "set --sslsmtp starttls"},
              {"S: 220 ready\nC: (closed)\n", "465 usually does; for 587 and 25 set --sslsmtp starttls",
               kAmpleTimeOut_s, Tls(1)},
              {ehlo + "S: 250 me\nC: (closed)\n", "for 465 set --sslsmtp tls", kAmpleTimeOut_s, Tls(2)}});
}

// What is advised about an answer to MAIL FROM or RCPT TO.
TEST(Advice, OfARefusedEnvelope) {
    struct Refused {
        CProbeStepKind kind;
        std::string reply;
        bool logs_in;
        std::string advice;
    };
    for (const Refused& one : std::vector<Refused>{
             {PROBE_MAIL_FROM, "530 5.7.0 Authentication required", false, "set --smtpauth on"},
             {PROBE_MAIL_FROM, "530 5.7.0 Must issue a STARTTLS command first", false, "set --sslsmtp starttls"},
             {PROBE_MAIL_FROM, "553 5.7.1 not owned by user", true, "does not accept \"me@example.org\" as a sender"},
             {PROBE_RCPT_TO, "554 5.7.1 Relay access denied", false, "not logged in: set --smtpauth on"},
             {PROBE_RCPT_TO, "554 5.7.1 Relay access denied", true, "does not let this account send"},
             {PROBE_RCPT_TO, "550 5.1.1 who", false, "There is no such mailbox"},
             {PROBE_RCPT_TO, "552 5.2.2 quota", false, "The mailbox is full"},
             {PROBE_GREETING, "535 5.7.8 token: why", true, "There is no token to log in with"},
             {PROBE_RCPT_TO, "550 go away", false, "its answer says why"}}) {
        CPopProfileSetting setting = Setting(25);
        setting.address = "me@example.org";
        setting.smtpauth = one.logs_in ? 1 : 0;
        CProbeStep step;
        step.kind = one.kind;
        step.failure = PROBE_REFUSED;
        step.text = one.reply;
        EXPECT_THAT(Advice(step, Protocol::Smtp, setting), HasSubstr(one.advice)) << one.reply;
    }
    CProbeStep grey;
    grey.kind = PROBE_RCPT_TO;
    grey.failure = PROBE_REFUSED;
    grey.reason = CProbeReason::ForNow;
    EXPECT_THAT(Advice(grey, Protocol::Smtp, Setting(25)), HasSubstr("try again in some minutes"));
    CProbeStep alert;
    alert.kind = PROBE_TLS;
    alert.failure = PROBE_NO_TLS;
    alert.reason = CProbeReason::TlsRefused;
    EXPECT_THAT(Advice(alert, Protocol::Smtp, Setting(25)), HasSubstr("The server speaks TLS, but refused"));
}

TEST(Advice, OfALoginByTokenIsNotAboutPasswords) {
    CProbeStep refused;
    refused.kind = PROBE_LOGIN;
    refused.failure = PROBE_REFUSED;
    refused.text = "-ERR [AUTH] no";
    HostRules rules;
    rules.pop_login = 1;
    EXPECT_THAT(Advice(refused, Protocol::Pop, Setting(995), rules),
                AllOf(HasSubstr("refused the token. It must be for the user name in popuser"), HasSubstr("POP3")));
    refused.text = "535 5.7.8 no";
    EXPECT_THAT(Advice(refused, Protocol::Smtp, Setting(465), rules), HasSubstr("set --smtpuser"));
    rules.smtp_login = 2;
    EXPECT_THAT(Advice(refused, Protocol::Smtp, Setting(465), rules),
                AllOf(HasSubstr("refused the token"), HasSubstr("SMTP"), Not(HasSubstr("password"))));
    for (const auto& [reply, advice] : {std::pair{"-ERR [AUTH] token: why", "docs/tokens.md"},
                                        std::pair{"-ERR [SYS/TEMP] token: why", "The next run asks again"},
                                        std::pair{"535 5.7.8 token: why", "docs/tokens.md"},
                                        std::pair{"454 4.7.0 token: why", "The next run asks again"}}) {
        refused.text = reply;
        EXPECT_THAT(Advice(refused, Protocol::Smtp, Setting(465), rules), HasSubstr(advice)) << reply;
    }
    CProbeStep untrusted;
    untrusted.kind = PROBE_TLS;
    untrusted.failure = PROBE_BAD_CERTIFICATE;
    untrusted.reason = CProbeReason::NotTrusted;
    EXPECT_THAT(Advice(untrusted, Protocol::Smtp, Setting(465), rules), HasSubstr("--tls_authority"));
    EXPECT_THAT(Advice(untrusted, Protocol::Smtp, Setting(465)), Not(HasSubstr("--tls_authority")));
}

// Whoever reads it in the browser may have no shell.
TEST(Advice, ForTheConsoleNamesNoCommandAndNoOption) {
    const std::vector<std::string> replies = {"",
                                              "-ERR no",
                                              "-ERR [LOGIN-DELAY] 60",
                                              "530 5.7.0 Authentication required",
                                              "538 5.7.11 no",
                                              "534 5.7.9 app",
                                              "554 5.7.1 Relay access denied",
                                              "550 5.1.1 who"};
    CPopProfileSetting setting = Setting(110);
    HostRules rules;
    for (int i = 0; i < 1 << 6; ++i) {
        setting.apop = setting.esmtp = setting.smtpauth = i & 1;
        setting.smtpuser = i & 2 ? "" : "bob";
        setting.smtppassword = i & 2 ? "" : "x";
        rules.pop_login = rules.smtp_login = i >> 2 & 1;
        rules.pop_tls = setting.sslsmtp = (i >> 3 & 3) % 3;
        const Protocol protocol = i & 32 ? Protocol::Pop : Protocol::Smtp;
        for (int kind = PROBE_FIND_SERVER; kind <= PROBE_RESET; ++kind) {
            for (int failure = PROBE_NO_SUCH_SERVER; failure <= PROBE_LOCAL; ++failure) {
                for (const std::string& reply : replies) {
                    const CProbeStep step{kind, failure, CProbeReason::NotTrusted, 0, reply, {}};
                    const std::string advice = Advice(step, protocol, setting, rules, Reader::Console);
                    EXPECT_THAT(advice, AllOf(Not(HasSubstr("`")), Not(HasSubstr("--")))) << reply;
                }
            }
        }
        const std::string advice = AdviceOnMissingLogin("250-me\r\n250 SIZE", setting, Reader::Console);
        EXPECT_THAT(advice, Not(HasSubstr("--")));
    }
    const CProbeStep refused{PROBE_MAIL_FROM, PROBE_REFUSED, CProbeReason::None, 0, "530 5.7.0 login", {}};
    setting.smtpauth = 0;
    EXPECT_THAT(Advice(refused, Protocol::Smtp, setting, {}, Reader::Console),
                AllOf(HasSubstr("set \"Log in to the SMTP server\" = \"on\"."), HasSubstr("on the page \"Settings\"")));
}

TEST(Advice, OfALoginThatIsMissing) {
    const auto told = [](const std::string& hello, int mode = 0, int esmtp = 1) {
        CPopProfileSetting setting = Setting(25);
        setting.smtpauth_mode = mode;
        setting.esmtp = esmtp;
        return AdviceOnMissingLogin(hello, setting);
    };
    EXPECT_THAT(told("250 me", 0, 0), HasSubstr("Set --esmtp on"));
    EXPECT_THAT(told("250-me\r\n250 SIZE"), HasSubstr("set --sslsmtp starttls"));
    EXPECT_THAT(told("250-me\r\n250-AUTH LOGIN\r\n250 SIZE", 3), HasSubstr("offers LOGIN, which does not fit"));
    EXPECT_THAT(told("250-me\r\n250-AUTH XOAUTH2\r\n250 SIZE"), HasSubstr("offers XOAUTH2, and tarvex knows none"));
    // Where a run does not look for the offer.
    for (const char* const hello : {"250-me\r\n250 AUTH PLAIN", "250-me\r\n250 auth=plain"}) {
        EXPECT_THAT(told(hello), HasSubstr("first or last line of its answer")) << hello;
    }
}

// What is advised about a server with such a certificate, whose authority is trusted.
std::string AdviceForCertificate(const TlsOptions& options, const std::string& smtpserver) {
    const TlsIdentity identity = MakeTlsIdentity(options);
    const TrustedAuthority authority(identity);
    ScriptedServer server([&](Peer& peer) { peer.StartTls(identity, "220 ready\r\n"); });
    CPopProfileSetting setting = Setting(server.Port());
    setting.sslsmtp = 1;
    setting.smtpserver = smtpserver;
    return AdviceFor(Protocol::Smtp, setting);
}

TEST(Advice, OfACertificate) {
    const TlsOptions other = {.names = {"mail.example.org"}, .addresses = {"127.0.0.9"}};
    EXPECT_THAT(AdviceForCertificate(other, "127.0.0.1"), HasSubstr("smtpserver must be a name"));
    EXPECT_THAT(AdviceForCertificate(other, "localhost"), HasSubstr("smtpserver must be a name"));
    EXPECT_THAT(AdviceForCertificate(other, ""), HasSubstr("popserver must be a name"));
    EXPECT_THAT(AdviceForCertificate({.expired = true}, "127.0.0.1"), HasSubstr("look at the clock"));
}

TEST(Advice, OfACertificateFromAnUnknownAuthority) {
    const TrustedAuthority another(MakeTlsIdentity());
    const TlsIdentity stranger = MakeTlsIdentity();
    ScriptedServer server([&](Peer& peer) { peer.StartTls(stranger, "220 ready\r\n"); });
    CPopProfileSetting setting = Setting(server.Port());
    setting.sslsmtp = 1;
    EXPECT_THAT(AdviceFor(Protocol::Smtp, setting), HasSubstr("does not trust the authority"));
}

TEST(Advice, OfAServerThatCannotBeReached) {
    CPopProfileSetting setting = Setting(UnusedPort());
    EXPECT_THAT(AdviceFor(Protocol::Pop, setting), HasSubstr("Nothing listens there: popport may be wrong"));
    EXPECT_THAT(AdviceFor(Protocol::Smtp, setting), HasSubstr("Nothing listens there: smtpport may be wrong"));
    setting.popport = 70000;
    EXPECT_THAT(AdviceFor(Protocol::Pop, setting), HasSubstr("Look at popserver and popport"));

    const BlackHole hole;
    setting.popport = hole.Port();
    setting.timeout = kStallTimeOut_s;
    EXPECT_THAT(AdviceFor(Protocol::Pop, setting), HasSubstr("a firewall may be in between"));

    CProbeStep no_route;
    no_route.kind = PROBE_CONNECT;
    no_route.failure = PROBE_NO_CONNECTION;
    no_route.reason = CProbeReason::NoRoute;
    EXPECT_THAT(Advice(no_route, Protocol::Pop, setting), HasSubstr("The server cannot be reached"));
    CProbeStep slow_name;
    slow_name.kind = PROBE_FIND_SERVER;
    slow_name.failure = PROBE_TIMED_OUT;
    EXPECT_THAT(Advice(slow_name, Protocol::Pop, setting), HasSubstr("The name service (DNS) of this machine"));
}

TEST(Advice, OfANameThatIsNone) {
    const ResolverStandIn resolver([](const std::string&) {
        NameAnswer answer;
        answer.error = "no such name";
        return answer;
    });
    CPopProfileSetting setting = Setting(110);
    setting.popserver = "pop.example.org";
    EXPECT_THAT(AdviceFor(Protocol::Pop, setting), HasSubstr("check popserver for a typing error"));
    setting.popserver.clear();
    EXPECT_EQ(AdviceFor(Protocol::Pop, setting), "No server is set: set popserver.");
}

}  // namespace
}  // namespace tarvex::host
