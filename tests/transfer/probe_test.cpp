// Trying servers without a run: which steps there are, what each says, and why one fails.

#include "tarvex/probe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "loopback/mail_servers.h"
#include "tarvex/mail_headers.h"
#include "tarvex/probe_steps.h"
#include "tests/support/conversation.h"
#include "tests/support/net_tools.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using loopback::MailboxServer;
using loopback::SinkServer;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

CPopProfileSetting Setting(int pop_port, int smtp_port, int timeout = kAmpleTimeOut_s) {
    CPopProfileSetting setting;
    setting.popserver = "127.0.0.1";
    setting.smtpserver = "127.0.0.1";
    setting.popport = pop_port;
    setting.smtpport = smtp_port;
    setting.popuser = "alice";
    setting.poppassword = "secret";
    setting.timeout = timeout;
    return setting;
}

// "log in: +OK welcome", and for a failed step "log in failed (7): -ERR no".
std::vector<std::string> Shown(const CArray<CProbeStep>& steps) {
    std::vector<std::string> shown;
    for (const CProbeStep& step : steps) {
        EXPECT_GE(step.microseconds, 0);
        std::string line = ProbeStepName(step.kind);
        if (step.failure != PROBE_SUCCESS) line += " failed (" + std::to_string(step.failure) + ")";
        shown.push_back(line + ": " + step.text);
    }
    return shown;
}

std::vector<std::string> Shown(const CArray<CListedMail>& mails) {
    std::vector<std::string> shown;
    for (const CListedMail& mail : mails) {
        shown.push_back(mail.number + " " + mail.uidl + " " + std::to_string(mail.size_bytes));
    }
    return shown;
}

std::string Failed(CProbeStepKind kind, CProbeFailure failure, const std::string& text) {
    return std::string(ProbeStepName(kind)) + " failed (" + std::to_string(failure) + "): " + text;
}

// ---- POP3

TEST(Probe, ListsAMailboxAndChangesNothing) {
    Conversation server(R"(S: +OK ready
C: USER alice
S: +OK name
C: PASS secret
S: +OK welcome
C: UIDL
S: +OK two
S: 1 a
S: 2 b c
S: .
C: LIST
S: +OK
S: 1 120
S: 2 many
S: .
C: QUIT
S: +OK bye
C: (closed)
)");
    CMailboxListing listing;
    EXPECT_EQ(ListMailbox(Setting(server.Port(), 1), &listing), 1);
    EXPECT_THAT(Shown(listing.steps), ElementsAre("find the server: ", "connect: ", "greeting: +OK ready",
                                                  "log in: +OK welcome", "list: +OK two", "quit: +OK bye"));
    EXPECT_THAT(Shown(listing.mails), ElementsAre("1 a 120", "2 b c -1"));
    EXPECT_EQ(listing.has_uidls, 1);
}

// The headers that come of all that is listed.
CListedHeaders HeadersFrom(int port, std::chrono::milliseconds at_most = 20s) {
    CPopProfile profile;
    profile.setting = Setting(port, 1);
    CRunGuard guard;
    CHeadersToList wanted;
    wanted.most_bytes = 1000;
    wanted.at_most = at_most;
    wanted.choose = [](const CArray<CListedMail>& mails) {
        CArray<std::size_t> places(mails.size());
        std::iota(places.begin(), places.end(), 0);
        return places;
    };
    CMailboxListing listing;
    CListedHeaders headers;
    EXPECT_EQ(ListMailbox(profile, guard, wanted, &listing, &headers), 1);
    return headers;
}

TEST(Probe, FetchesHeadersWhereTheyAreAskedFor) {
    MailboxServer mailbox("alice", "secret");
    mailbox.Add({"a", "Subject: one\r\n\r\ntext\r\n"});
    mailbox.Add({"b", "Subject: two\r\n\r\ntext\r\n"});
    mailbox.Add({"c", "Subject: " + std::string(5000, 'x') + "\r\n\r\n"});
    mailbox.Add({"d", "\r\n\r\ntext\r\n"});
    mailbox.SetFault([](const std::string& command) { return command == "TOP 2 0" ? "-ERR gone" : ""; });
    const CListedHeaders headers = HeadersFrom(mailbox.Port());
    EXPECT_THAT(headers.of_mails,
                ElementsAre("Subject: one\r\n\r\n", std::nullopt, "Subject: " + std::string(991, 'x'), "\r\n\r\n"));
    EXPECT_FALSE(headers.has_no_top);
    EXPECT_EQ(mailbox.Received("RETR"), 0);
    EXPECT_EQ(mailbox.Received("QUIT"), 1);
}

TEST(Probe, AServerWithoutTopIsAskedOnce) {
    MailboxServer mailbox("alice", "secret");
    mailbox.Add({"a", "text\r\n"});
    mailbox.Add({"b", "text\r\n"});
    mailbox.SetFault([](const std::string& command) { return command.starts_with("TOP") ? "-ERR what?" : ""; });
    const CListedHeaders headers = HeadersFrom(mailbox.Port());
    EXPECT_THAT(headers.of_mails, ElementsAre(std::nullopt, std::nullopt));
    EXPECT_TRUE(headers.has_no_top);
    EXPECT_EQ(mailbox.Received("TOP"), 1);
    EXPECT_EQ(mailbox.Received("QUIT"), 1);
}

TEST(Probe, AHeaderWithoutEndAndAServerThatFallsSilentEndWithTheTime) {
    for (const bool is_endless : {true, false}) {
        ScriptedServer server([is_endless](Peer& peer) {
            peer.Send("+OK\r\n");
            for (const char* answer : {"+OK\r\n", "+OK\r\n", "+OK\r\n1 a\r\n.\r\n", "+OK\r\n1 9\r\n.\r\n"}) {
                peer.ReadLine();
                peer.Send(answer);
            }
            EXPECT_EQ(peer.ReadLine(), "TOP 1 0");
            peer.Send("+OK\r\n");
            while (is_endless) peer.SendUnrecorded("X-More: and more\r\n");
            peer.WaitForClose();
        });
        const auto start = std::chrono::steady_clock::now();
        const CListedHeaders headers = HeadersFrom(server.Port(), 200ms);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(kAmpleTimeOut_s / 3));
        EXPECT_THAT(headers.of_mails, ElementsAre(std::nullopt));
        EXPECT_FALSE(headers.has_no_top);
    }
}

TEST(Probe, AServerWithoutUidlListsSizesAlone) {
    MailboxServer mailbox("alice", "secret");
    mailbox.OfferUidl(false);
    mailbox.Add({"a", "text\r\n"});
    CMailboxListing listing;
    EXPECT_EQ(ListMailbox(Setting(mailbox.Port(), 1), &listing), 1);
    EXPECT_THAT(Shown(listing.mails), ElementsAre("1  6"));
    EXPECT_EQ(listing.has_uidls, 0);
}

TEST(Probe, AListingWithoutSizesIsAListing) {
    MailboxServer mailbox("alice", "secret");
    mailbox.Add({"a", "text\r\n"});
    mailbox.SetFault([](const std::string& command) { return command == "LIST" ? "-ERR no" : ""; });
    CMailboxListing listing;
    EXPECT_EQ(ListMailbox(Setting(mailbox.Port(), 1), &listing), 1);
    EXPECT_THAT(Shown(listing.mails), ElementsAre("1 a -1"));
    EXPECT_THAT(Shown(listing.steps).back(), StartsWith("quit: +OK"));
}

TEST(Probe, LogsInByApopWhereTheRunDoes) {
    MailboxServer mailbox("alice", "secret");
    CPopProfileSetting setting = Setting(mailbox.Port(), 1);
    setting.apop = 1;
    CMailboxListing listing;
    EXPECT_EQ(ListMailbox(setting, &listing), 1);
    EXPECT_EQ(mailbox.Received("APOP"), 1);
    EXPECT_EQ(mailbox.Received("PASS"), 0);
}

TEST(Probe, ALookDownloadsAndDeletesNothing) {
    MailboxServer mailbox("alice", "secret");
    mailbox.Add({"a", "text\r\n"});
    CPopProfileSetting setting = Setting(mailbox.Port(), 1);
    setting.deletemail = 1;
    CMailboxListing listing;
    EXPECT_EQ(ListMailbox(setting, &listing), 1);
    EXPECT_EQ(mailbox.Received("RETR") + mailbox.Received("DELE"), 0);
    EXPECT_EQ(mailbox.Mails().size(), 1u);
}

TEST(Probe, AListingIsEmptiedFirst) {
    MailboxServer mailbox("alice", "secret");
    mailbox.Add({"a", "text\r\n"});
    CMailboxListing listing;
    EXPECT_EQ(ListMailbox(Setting(mailbox.Port(), 1), &listing), 1);
    EXPECT_EQ(ListMailbox(Setting(UnusedPort(), 1), &listing), 0);
    EXPECT_THAT(listing.mails, IsEmpty());
    EXPECT_EQ(listing.steps.size(), 2u);
    EXPECT_EQ(listing.has_uidls, 0);
}

TEST(Probe, TheLastStepSaysWhyAMailboxCannotBeListed) {
    struct Case {
        std::string name;
        std::string script;
        std::string last_step;
        int timeout = kAmpleTimeOut_s;
    };
    const std::string greeted = "S: +OK ready\n";
    const std::string named = greeted + "C: USER alice\nS: +OK\n";
    const std::string logged_in = named + "C: PASS secret\nS: +OK\n";
    const std::vector<Case> cases = {
        {"a server of another protocol", "S: 220 mail.example.org ESMTP\nC: USER alice\nS: (closed)\n",
         Failed(PROBE_LOGIN, PROBE_WRONG_PROTOCOL, "the server closed the connection")},
        {"a server that speaks out of turn", "S: +OK\nS: +OK\nC: (closed)\n",
         Failed(PROBE_LOGIN, PROBE_WRONG_PROTOCOL, "unexpected data from the server: +OK??")},
        {"a server that refuses everybody", "S: -ERR go away\nC: (closed)\n",
         Failed(PROBE_GREETING, PROBE_REFUSED, "-ERR go away")},
        {"a server that says nothing", "C: (closed)\n", Failed(PROBE_GREETING, PROBE_TIMED_OUT, "no answer in time"),
         kStallTimeOut_s},
        {"a server that goes at once", "S: (closed)\n",
         Failed(PROBE_GREETING, PROBE_LOST, "the server closed the connection")},
        {"an unknown user", greeted + "C: USER alice\nS: -ERR who?\nC: (closed)\n",
         Failed(PROBE_LOGIN, PROBE_REFUSED, "-ERR who?")},
        {"a wrong password", named + "C: PASS secret\nS: -ERR wrong\nC: (closed)\n",
         Failed(PROBE_LOGIN, PROBE_REFUSED, "-ERR wrong")},
        {"a log-in that takes for ever", named + "C: PASS secret\nC: (closed)\n",
         Failed(PROBE_LOGIN, PROBE_TIMED_OUT, "no answer in time"), kStallTimeOut_s},
        {"a mailbox that cannot be listed", logged_in + "C: UIDL\nS: -ERR no\nC: LIST\nS: -ERR neither\nC: (closed)\n",
         Failed(PROBE_LIST, PROBE_REFUSED, "-ERR neither")},
        {"a connection that is lost", logged_in + "C: UIDL\nS: (closed)\n",
         Failed(PROBE_LIST, PROBE_LOST, "the server closed the connection")},
    };
    struct Outcome {
        int result = -1;
        std::string last_step;
        std::string transcript;
    };
    const auto list = [](const Case& one) {
        Conversation server(one.script);
        CMailboxListing listing;
        Outcome outcome;
        outcome.result = ListMailbox(Setting(server.Port(), 1, one.timeout), &listing);
        outcome.last_step = Shown(listing.steps).back();
        outcome.transcript = server.Transcript();
        return outcome;
    };
    RunAll(cases, list, [](const Case& one, const Outcome& outcome) {
        SCOPED_TRACE(one.name);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.last_step, one.last_step);
        EXPECT_EQ(outcome.transcript, Conversation::Expected(one.script));
    });
}

TEST(Probe, AServerThatCannotBeReachedSaysAtWhichStep) {
    const int closed = UnusedPort();
    CMailboxListing listing;
    EXPECT_EQ(ListMailbox(Setting(closed, 1), &listing), 0);
    EXPECT_THAT(Shown(listing.steps),
                ElementsAre("find the server: ", Failed(PROBE_CONNECT, PROBE_NO_CONNECTION,
                                                        "could not connect to 127.0.0.1 port " +
                                                            std::to_string(closed) + ": Connection refused")));

    EXPECT_EQ(ListMailbox(Setting(0, 1), &listing), 0);
    EXPECT_THAT(Shown(listing.steps),
                ElementsAre(Failed(PROBE_FIND_SERVER, PROBE_NO_CONNECTION, "there is no port 0")));

    const BlackHole hole;
    EXPECT_EQ(ListMailbox(Setting(hole.Port(), 1, kStallTimeOut_s), &listing), 0);
    EXPECT_THAT(Shown(listing.steps).back(), StartsWith(Failed(PROBE_CONNECT, PROBE_TIMED_OUT, "")));
    EXPECT_GE(listing.steps.back().microseconds, 900'000);

    const ResolverStandIn resolver([](const std::string&) {
        NameAnswer answer;
        answer.error = "no such name";
        return answer;
    });
    CPopProfileSetting setting = Setting(1, 1);
    setting.popserver = "pop.example.org";
    EXPECT_EQ(ListMailbox(setting, &listing), 0);
    EXPECT_THAT(Shown(listing.steps), ElementsAre(AllOf(StartsWith(Failed(PROBE_FIND_SERVER, PROBE_NO_SUCH_SERVER, "")),
                                                        HasSubstr("no such name"))));
}

// ---- SMTP

TEST(Probe, TellsOfEachStepAsItBegins) {
    MailboxServer mailbox("alice", "secret");
    SinkServer sink;
    CPopProfile profile;
    profile.setting = Setting(mailbox.Port(), sink.Port());
    CRunGuard guard;
    std::vector<std::string> begun;
    CArray<CProbeStep> ended;
    const CProbeWatch watch = [&](std::span<const CProbeStep> steps) {
        begun.push_back(ProbeStepName(steps.back().kind));
        ended.assign(steps.begin(), steps.end() - 1);
    };
    CMailboxListing listing;
    EXPECT_EQ(ListMailbox(profile, guard, watch, &listing), 1);
    EXPECT_THAT(begun, ElementsAre("find the server", "connect", "greeting", "log in", "list", "quit"));
    listing.steps.pop_back();
    EXPECT_EQ(Shown(ended), Shown(listing.steps));

    begun.clear();
    const std::vector<CString> recipients = {"a@example.net"};
    CSmtpTrial trial;
    EXPECT_EQ(TrySmtp(profile, guard, recipients, watch, &trial), 1);
    EXPECT_THAT(begun,
                ElementsAre("find the server", "connect", "greeting", "hello", "sender", "recipient", "reset", "quit"));
    EXPECT_EQ(ended.at(5).recipient, recipients[0]);
}

TEST(Probe, TriesSmtpAndSendsNoMail) {
    SinkServer sink("alice", "secret");
    CPopProfileSetting setting = Setting(1, sink.Port());
    CSmtpTrial trial;
    EXPECT_EQ(TrySmtp(setting, &trial), 1);
    EXPECT_EQ(trial.method, "");
    EXPECT_EQ(trial.steps.size(), 5u);

    setting.smtpauth = 1;
    for (const auto& [mode, method] : {std::pair(0, "CRAM-MD5"), std::pair(1, "PLAIN"), std::pair(2, "LOGIN")}) {
        setting.smtpauth_mode = mode;
        EXPECT_EQ(TrySmtp(setting, &trial), 1);
        EXPECT_EQ(trial.method, method);
        EXPECT_THAT(Shown(trial.steps), ElementsAre("find the server: ", "connect: ", StartsWith("greeting: 220"),
                                                    StartsWith("hello: 250-localhost\r\n"), "log in: 235 2.7.0 welcome",
                                                    StartsWith("quit: 221")));
    }
    EXPECT_EQ(sink.Received("QUIT"), 4);
    EXPECT_EQ(sink.Received("MAIL"), 0);
}

TEST(Probe, NamesTheSenderAndEachRecipientAndTakesThemBack) {
    const std::string script = R"(S: 220 ready
C: EHLO {host}
S: 250 me
C: MAIL FROM:<me@example.org>
S: 250 ok
C: RCPT TO:<a@example.org>
S: 550 5.1.1 no such user
C: RCPT TO:<b@example.org>
S: 250 ok
C: RSET
S: 250 ok
C: QUIT
S: 221 bye
C: (closed)
)";
    Conversation server(script);
    CPopProfileSetting setting = Setting(1, server.Port());
    setting.address = "me@example.org";
    CSmtpTrial trial;
    EXPECT_EQ(TrySmtp(setting, std::vector<CString>{"a@example.org", "b@example.org"}, &trial), 0);
    EXPECT_EQ(server.Transcript(), Conversation::Expected(script));
    EXPECT_THAT(Shown(trial.steps),
                ElementsAre("find the server: ", "connect: ", "greeting: 220 ready", "hello: 250 me", "sender: 250 ok",
                            Failed(PROBE_RCPT_TO, PROBE_REFUSED, "550 5.1.1 no such user"), "recipient: 250 ok",
                            "reset: 250 ok", "quit: 221 bye"));
    EXPECT_EQ(trial.steps[5].recipient, "a@example.org");

    SinkServer sink;
    setting.smtpport = sink.Port();
    EXPECT_EQ(TrySmtp(setting, std::vector<CString>{"a@example.org"}, &trial), 1);
    EXPECT_TRUE(sink.Delivered().empty());
    sink.SetFault([](const std::string& command) { return command.starts_with("MAIL") ? "550 no" : ""; });
    EXPECT_EQ(TrySmtp(setting, std::vector<CString>{"a@example.org"}, &trial), 0);
    EXPECT_EQ(sink.Received("RCPT"), 1);
    sink.SetFault([](const std::string& command) { return command.starts_with("RCPT") ? "close" : ""; });
    EXPECT_EQ(TrySmtp(setting, std::vector<CString>{"a@example.org", "b@example.org"}, &trial), 0);
    EXPECT_EQ(trial.steps.back().failure, PROBE_LOST);
    EXPECT_EQ(trial.steps.back().recipient, "a@example.org");
}

// It speaks TLS, though not with us.
TEST(Probe, ATlsAlertIsNoLackOfTls) {
    ScriptedServer server([](Peer& peer) {
        peer.Send(std::string("\x15\x03\x03\x00\x02\x02\x28", 7));
        peer.WaitForClose();
    });
    CPopProfileSetting setting = Setting(1, server.Port());
    setting.sslsmtp = 1;
    CSmtpTrial trial;
    EXPECT_EQ(TrySmtp(setting, &trial), 0);
    EXPECT_EQ(trial.steps.back().failure, PROBE_NO_TLS);
    EXPECT_EQ(trial.steps.back().reason, CProbeReason::TlsRefused);
}

TEST(Probe, TheLastStepSaysWhySmtpIsNotReady) {
    struct Case {
        std::string name;
        std::string script;
        std::string last_step;
        int sslsmtp = 0;
        int timeout = kAmpleTimeOut_s;
    };
    const std::string ehlo = "S: 220 ready\nC: EHLO {host}\n";
    const std::vector<Case> cases = {
        {"a server of another protocol", "S: +OK ready\nC: (closed)\n",
         Failed(PROBE_GREETING, PROBE_WRONG_PROTOCOL, "+OK ready")},
        {"a server that refuses everybody", "S: 554 no\nC: (closed)\n",
         Failed(PROBE_GREETING, PROBE_REFUSED, "554 no")},
        {"a server that is too busy", "S: 421 later\nC: (closed)\n",
         Failed(PROBE_GREETING, PROBE_REFUSED, "421 later")},
        {"a hello that is refused", ehlo + "S: 502 no\nC: QUIT\nS: 221 bye\nC: (closed)\n",
         Failed(PROBE_HELLO, PROBE_REFUSED, "502 no")},
        {"a hello that is not answered", ehlo + "C: (closed)\n",
         Failed(PROBE_HELLO, PROBE_TIMED_OUT, "no answer in time"), 0, kStallTimeOut_s},
        {"a log-in that is refused",
         ehlo + "S: 250-me\nS: 250-AUTH LOGIN\nS: 250 SIZE\nC: AUTH LOGIN\nS: 535 no\nC: QUIT\nS: (closed)\n",
         Failed(PROBE_LOGIN, PROBE_REFUSED, "535 no")},
        {"a server in clear where TLS is expected", "S: 220 ready\nC: (closed)\n", "", 1},
        {"no STARTTLS", ehlo + "S: 250 me\nC: (closed)\n",
         Failed(PROBE_TLS, PROBE_NO_TLS, "the server does not offer STARTTLS"), 2},
    };
    struct Outcome {
        int result = -1;
        std::string last_step;
    };
    const auto open = [](const Case& one) {
        Conversation server(one.script);
        CPopProfileSetting setting = Setting(1, server.Port(), one.timeout);
        setting.sslsmtp = one.sslsmtp;
        setting.smtpauth = 1;
        CSmtpTrial trial;
        Outcome outcome;
        outcome.result = TrySmtp(setting, &trial);
        outcome.last_step = Shown(trial.steps).back();
        return outcome;
    };
    RunAll(cases, open, [](const Case& one, const Outcome& outcome) {
        SCOPED_TRACE(one.name);
        EXPECT_EQ(outcome.result, 0);
        if (one.last_step.empty()) {
            EXPECT_THAT(outcome.last_step, StartsWith(Failed(PROBE_TLS, PROBE_NO_TLS, "TLS handshake: ")));
        } else {
            EXPECT_EQ(outcome.last_step, one.last_step);
        }
    });
}

TEST(Probe, ACertificateIsJudgedAsInARun) {
    const TlsIdentity good = MakeTlsIdentity();
    const TlsIdentity stranger = MakeTlsIdentity();
    const TrustedAuthority trusted(good);
    const auto serve = [](const TlsIdentity& identity) {
        return [&identity](Peer& peer) {
            if (!peer.StartTls(identity, "220 ready\r\n")) return;
            peer.ReadLine();
            peer.Send("250 me\r\n");
            peer.Expect("QUIT");
            peer.Send("221 bye\r\n");
        };
    };
    for (const bool is_good : {true, false}) {
        ScriptedServer server(serve(is_good ? good : stranger));
        CPopProfileSetting setting = Setting(1, server.Port());
        setting.sslsmtp = 1;
        CSmtpTrial trial;
        EXPECT_EQ(TrySmtp(setting, &trial), is_good ? 1 : 0);
        if (is_good) {
            EXPECT_THAT(Shown(trial.steps), ElementsAre("find the server: ", "connect: ", "TLS: ",
                                                        "greeting: 220 ready", "hello: 250 me", "quit: 221 bye"));
        } else {
            EXPECT_THAT(Shown(trial.steps).back(),
                        StartsWith(Failed(PROBE_TLS, PROBE_BAD_CERTIFICATE, "TLS handshake: certificate: ")));
        }
    }
}

TEST(Probe, ARefusalForNowIsTold) {
    const auto reason = [](const std::string& refusal) {
        Conversation server("S: " + refusal + "\nC: (closed)\n");
        CMailboxListing listing;
        CSmtpTrial trial;
        const bool pop = refusal.starts_with('-');
        if (pop) ListMailbox(Setting(server.Port(), 1), &listing);
        if (!pop) TrySmtp(Setting(1, server.Port()), &trial);
        return (pop ? listing.steps : trial.steps).back().reason;
    };
    for (const char* refusal : {"421 busy", "450", "-ERR [IN-USE] locked", "-ERR [SYS/TEMP]", "-ERR [LOGIN-DELAY] 5"}) {
        EXPECT_EQ(reason(refusal), CProbeReason::ForNow) << refusal;
    }
    for (const char* refusal : {"554 no", "-ERR 4 no", "-ERR [AUTH]"}) {
        EXPECT_EQ(reason(refusal), CProbeReason::None) << refusal;
    }
}

TEST(Probe, AStepThatIsNoneHasNoName) {
    EXPECT_STREQ(ProbeStepName(-1), "");
    EXPECT_STREQ(ProbeStepName(PROBE_RESET + 1), "");
}

}  // namespace
}  // namespace tarvex::testing
