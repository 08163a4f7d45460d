// Opening the SMTP connection: greeting, EHLO or HELO, authentication; what is said and what is logged.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/net/sockets.h"
#include "tests/support/conversation.h"
#include "tests/support/shortage.h"

namespace tarvex::testing {
namespace {

enum class Outcome { Ready, Null };

struct ConnectionCase {
    std::string name = {};
    std::string script = {};
    std::string log = {};
    Outcome outcome = Outcome::Null;
    int esmtp = 1;
    int smtpauth = 0;
    int smtpauth_mode = 0;
    int timeout = kAmpleTimeOut_s;
    CString smtpserver = "127.0.0.1";
    CString popserver = "127.0.0.1";
    CString smtpuser = "alice";
    CString smtppassword = "secret";
    CString popuser = "popuser";
    CString poppassword = "poppassword";
};

struct ConnectionOutcome {
    bool ready = false;
    std::string transcript;
    std::string log;
};

std::string SmtpLog(const std::string& log) { return WithReasons(WithHost(log), "421 ", "421 "); }

void Prepare(CPopProfile& profile, const ConnectionCase& one) {
    profile.setting.smtpserver = one.smtpserver;
    profile.setting.popserver = one.popserver;
    profile.setting.smtpuser = one.smtpuser;
    profile.setting.smtppassword = one.smtppassword;
    profile.setting.popuser = one.popuser;
    profile.setting.poppassword = one.poppassword;
    profile.setting.esmtp = one.esmtp;
    profile.setting.smtpauth = one.smtpauth;
    profile.setting.smtpauth_mode = one.smtpauth_mode;
    profile.setting.timeout = one.timeout;
    profile.log.SetLogMode(1);
}

ConnectionOutcome Open(const ConnectionCase& one) {
    Conversation server(one.script);
    CPopProfile profile;
    Prepare(profile, one);
    profile.setting.smtpport = server.Port();

    std::unique_ptr<CSmtpSocket> socket(profile.CreateSmtpConnection());
    ConnectionOutcome outcome;
    outcome.ready = socket != nullptr;
    // The caller's first command shows that the connection is alive.
    if (socket) {
        EXPECT_EQ(socket->SendCommand("NOOP\r\n"), "250 alive") << one.name;
    }
    socket.reset();
    outcome.transcript = server.Transcript();
    outcome.log = LogText(profile.log);
    return outcome;
}

void CheckAll(const std::vector<ConnectionCase>& cases) {
    RunAll(cases, Open, [](const ConnectionCase& one, const ConnectionOutcome& outcome) {
        SCOPED_TRACE(one.name);
        EXPECT_EQ(outcome.transcript, Conversation::Expected(one.script));
        EXPECT_EQ(outcome.log, SmtpLog(one.log));
        EXPECT_EQ(outcome.ready, one.outcome == Outcome::Ready);
    });
}

// The user of the examples, who wants to be authenticated.
std::vector<ConnectionCase> AsTim(std::vector<ConnectionCase> cases) {
    for (ConnectionCase& one : cases) {
        one.smtpauth = 1;
        one.smtpuser = "tim";
        one.smtppassword = "tanstaaftanstaaf";
    }
    return cases;
}

// How most conversations begin and end.
const std::string kGreeted = R"(S: 220 ready
)";
const std::string kGreetedLog = R"(Success to create smtp socket
connecting.. 127.0.0.1
220 ready
)";
const std::string kAccepted = R"(S: 220 ready
C: EHLO {host}
S: 250-mx
S: 250-AUTH CRAM-MD5 LOGIN PLAIN
S: 250 HELP
)";
const std::string kAcceptedLog = R"(Success to create smtp socket
connecting.. 127.0.0.1
220 ready
EHLO {host}
250-mx\r\n250-AUTH CRAM-MD5 LOGIN PLAIN\r\n250 HELP
)";
const std::string kReady = R"(C: NOOP
S: 250 alive
C: (closed)
)";
const std::string kQuit = R"(C: QUIT
S: 221 bye
C: (closed)
)";
const std::string kQuitLog = R"(QUIT
TimeoutError..Closing Socket
)";

TEST(SmtpConnection, GreetsWithEhloAndIsReadyOnceThatIsAccepted) {
    CheckAll({
        {.name = "one line",
         .script = kGreeted + R"(C: EHLO {host}
S: 250 mx
)" + kReady,
         .log = kGreetedLog + R"(EHLO {host}
250 mx
)",
         .outcome = Outcome::Ready},

        {.name = "several lines, without authentication since none is asked for",
         .script = kAccepted + kReady,
         .log = kAcceptedLog,
         .outcome = Outcome::Ready},

        {.name = "any setting but 0 means EHLO",
         .script = kAccepted + kReady,
         .log = kAcceptedLog,
         .outcome = Outcome::Ready,
         .esmtp = -1},

        {.name = "a greeting of several lines",
         .script = R"(S: 220-mx
S: 220 ready
C: EHLO {host}
S: 250 mx
)" + kReady,
         .log = R"(Success to create smtp socket
connecting.. 127.0.0.1
220-mx\r\n220 ready
EHLO {host}
250 mx
)",
         .outcome = Outcome::Ready},
    });
}

TEST(SmtpConnection, GreetsWithHeloWithoutAuthenticationWhereTheProfileSaysSo) {
    const ConnectionCase plain = {.name = "",
                                  .script = kGreeted + R"(C: HELO {host}
S: 250 mx
)" + kReady,
                                  .log = kGreetedLog + R"(HELO
250 mx
)",
                                  .outcome = Outcome::Ready,
                                  .esmtp = 0};
    ConnectionCase authentication = plain;
    authentication.smtpauth = 1;
    ConnectionCase many_lines = plain;
    many_lines.script = kGreeted + R"(C: HELO {host}
S: 250-mx
S: 250 AUTH LOGIN
)" + kReady;
    many_lines.log = kGreetedLog + R"(HELO
250-mx\r\n250 AUTH LOGIN
)";
    CheckAll({plain, authentication, many_lines});
}

TEST(SmtpConnection, UsesThePopServerWhereNoSmtpServerIsSet) {
    const std::string script = kGreeted + R"(C: EHLO {host}
S: 250 mx
)" + kReady;
    const std::string log = R"(EHLO {host}
250 mx
)";
    CheckAll({
        {.name = "set",
         .script = script,
         .log = kGreetedLog + log,
         .outcome = Outcome::Ready,
         .smtpserver = "127.0.0.1",
         .popserver = "256.0.0.1"},
        {.name = "not set",
         .script = script,
         .log = kGreetedLog + log,
         .outcome = Outcome::Ready,
         .smtpserver = "",
         .popserver = "127.0.0.1"},
    });
}

TEST(SmtpConnection, ClosesWithoutQuitAfterARefusedGreeting) {
    CheckAll({
        {.name = "refused",
         .script = R"(S: 554 not you
C: (closed)
)",
         .log = R"(Success to create smtp socket
connecting.. 127.0.0.1
554 not you
\t!!Connect error
)"},
        {.name = "another success is a refusal",
         .script = R"(S: 250 ready
C: (closed)
)",
         .log = R"(Success to create smtp socket
connecting.. 127.0.0.1
250 ready
\t!!Connect error
)"},
        {.name = "refused in several lines",
         .script = R"(S: 421-too busy
S: 421 220 ready
C: (closed)
)",
         .log = R"(Success to create smtp socket
connecting.. 127.0.0.1
421-too busy\r\n421 220 ready
\t!!Connect error
)"},
        {.name = "closed",
         .script = R"(S: (closed)
C: (closed)
)",
         .log = R"(Success to create smtp socket
connecting.. 127.0.0.1
{closed}
\t!!Connect error
)"},
        {.name = "closed in the middle",
         .script = R"(S- 220-mx
S: (closed)
C: (closed)
)",
         .log = R"(Success to create smtp socket
connecting.. 127.0.0.1
{closed}
\t!!Connect error
)"},
        {.name = "stalled",
         .script = R"(C: (closed)
)",
         .log = R"(Success to create smtp socket
connecting.. 127.0.0.1
{timeout}
\t!!TimeoutError..Closing Socket
)",
         .timeout = kStallTimeOut_s},
        {.name = "stalled in the middle",
         .script = R"(S- 220 rea
C: (closed)
)",
         .log = R"(Success to create smtp socket
connecting.. 127.0.0.1
{timeout}
\t!!TimeoutError..Closing Socket
)",
         .timeout = kStallTimeOut_s},
        {.name = "dripping on for ever",
         .script = R"(S~ 220 this greeting is so slow that it would be complete only after several seconds, too late
C: (closed)
)",
         .log = R"(Success to create smtp socket
connecting.. 127.0.0.1
{timeout}
\t!!TimeoutError..Closing Socket
)",
         .timeout = kStallTimeOut_s},
    });
}

// Whether the reset comes before or after the end of connecting is chance, and so is the first half of the reason.
TEST(SmtpConnection, ClosesAfterAResetInPlaceOfAGreeting) {
    Conversation server("S: (reset)\n");
    CPopProfile profile;
    Prepare(profile, {});
    profile.setting.smtpport = server.Port();
    EXPECT_EQ(profile.CreateSmtpConnection(), nullptr);
    const std::string attempt = "could not connect to 127.0.0.1 port " + std::to_string(server.Port());
    EXPECT_EQ(Replaced(LogText(profile.log), attempt, "connection lost"), SmtpLog(R"(Success to create smtp socket
connecting.. 127.0.0.1
{reset}
\t!!Connect error
)"));
    EXPECT_EQ(server.Transcript(), "S: (reset)\n");
}

TEST(SmtpConnection, EndsWhereNobodyListens) {
    CPopProfile profile;
    Prepare(profile, {});
    profile.setting.smtpport = UnusedPort();
    EXPECT_EQ(profile.CreateSmtpConnection(), nullptr);
    EXPECT_EQ(LogText(profile.log), R"(Success to create smtp socket
connecting.. 127.0.0.1
421 could not connect to 127.0.0.1 port )" +
                                        std::to_string(profile.setting.smtpport) + R"(: Connection refused
\t!!Connect error
)");
}

TEST(SmtpConnection, LogsASocketThatCannotBeCreated) {
    CPopProfile profile;
    Prepare(profile, {});
    {
        const NoDescriptors none;
        EXPECT_EQ(profile.CreateSmtpConnection(), nullptr);
    }
    EXPECT_EQ(LogText(profile.log), "Fail to create smtp socket\n");
}

// With STARTTLS demanded the library greets for itself and gives up where the server does not offer it. That the
// profile's own greeting never happens shows that the switch reached the socket before it connected.
TEST(SmtpConnection, HandsTheSettingForASecureConnectionToTheSocket) {
    const std::string script = R"(S: 220 ready
C: EHLO {host}
S: 250 mx
)" + kQuit;
    Conversation server(script);
    CPopProfile profile;
    Prepare(profile, {});
    profile.setting.sslsmtp = 2;
    profile.setting.smtpport = server.Port();
    EXPECT_EQ(profile.CreateSmtpConnection(), nullptr);
    ASSERT_EQ(profile.log.entries.size(), 4u);
    EXPECT_TRUE(profile.log.entries[2].starts_with("421 ")) << profile.log.entries[2];
    EXPECT_EQ(profile.log.entries[3], "\t!!Connect error");
    EXPECT_TRUE(server.Transcript().starts_with("S: 220 ready\nC: EHLO "));
}

TEST(SmtpConnection, FallsBackToHeloOnlyAfter500) {
    const std::string unknown = kGreeted + R"(C: EHLO {host}
S: 500 what?
C: RSET
)";
    const std::string unknown_log = kGreetedLog + R"(EHLO {host}
500 what?
RSET
)";
    CheckAll({
        {.name = "RSET and HELO accepted, no authentication though it is asked for",
         .script = unknown + R"(S: 250 flushed
C: HELO {host}
S: 250 mx
)" + kReady,
         .log = unknown_log + R"(250 flushed
HELO
250 mx
)",
         .outcome = Outcome::Ready,
         .smtpauth = 1},

        {.name = "500 in several lines, RSET answered in several",
         .script = kGreeted + R"(C: EHLO {host}
S: 500-what
S: 500 is that?
C: RSET
S: 250-flushed
S: 250 indeed
C: HELO {host}
S: 250 mx
)" + kReady,
         .log = kGreetedLog + R"(EHLO {host}
500-what\r\n500 is that?
RSET
250-flushed\r\n250 indeed
HELO
250 mx
)",
         .outcome = Outcome::Ready},

        {.name = "RSET refused",
         .script = unknown + R"(S: 500 what?
)" + kQuit,
         .log = unknown_log + R"(500 what?
)" + kQuitLog},

        {.name = "HELO refused",
         .script = unknown + R"(S: 250 flushed
C: HELO {host}
S: 500 what?
)" + kQuit,
         .log = unknown_log + R"(250 flushed
HELO
500 what?
)" + kQuitLog},

        {.name = "502",
         .script = kGreeted + R"(C: EHLO {host}
S: 502 not implemented
)" + kQuit,
         .log = kGreetedLog + R"(EHLO {host}
502 not implemented
)" + kQuitLog},

        {.name = "501",
         .script = kGreeted + R"(C: EHLO {host}
S: 501 bad name
)" + kQuit,
         .log = kGreetedLog + R"(EHLO {host}
501 bad name
)" + kQuitLog},

        {.name = "another success",
         .script = kGreeted + R"(C: EHLO {host}
S: 220 mx
)" + kQuit,
         .log = kGreetedLog + R"(EHLO {host}
220 mx
)" + kQuitLog},
    });
}

TEST(SmtpConnection, LogsTheSameLineWhateverBecomesOfTheQuit) {
    const auto quit_answered = [](const std::string& name, const std::string& answer) {
        return ConnectionCase{.name = name,
                              .script = kGreeted + "C: HELO {host}\nS: 550 no\nC: QUIT\n" + answer,
                              .log = kGreetedLog + "HELO\n550 no\nQUIT\nTimeoutError..Closing Socket\n",
                              .esmtp = 0,
                              .timeout = kStallTimeOut_s};
    };
    CheckAll({
        quit_answered("accepted", "S: 221 bye\nC: (closed)\n"),
        quit_answered("refused", "S: 500 stay\nC: (closed)\n"),
        quit_answered("stalled", "C: (closed)\n"),
        quit_answered("closed", "S: (closed)\nC: (closed)\n"),
        quit_answered("reset", "S: (reset)\n"),
    });
}

// A conversation up to the point at which the server fails.
struct Step {
    std::string name = {};
    std::string script = {};
    std::string log = {};
    int esmtp = 1;
    int mode = 0;
};

std::vector<Step> Steps() {
    return {
        {.name = "EHLO", .script = kGreeted + "C: EHLO {host}\n", .log = kGreetedLog + "EHLO {host}\n"},
        {.name = "half an answer to EHLO",
         .script = kGreeted + "C: EHLO {host}\nS: 250-mx\nS: 250-AUTH LOGIN\n",
         .log = kGreetedLog + "EHLO {host}\n"},
        {.name = "RSET",
         .script = kGreeted + "C: EHLO {host}\nS: 500 what?\nC: RSET\n",
         .log = kGreetedLog + "EHLO {host}\n500 what?\nRSET\n"},
        {.name = "HELO", .script = kGreeted + "C: HELO {host}\n", .log = kGreetedLog + "HELO\n", .esmtp = 0},
        {.name = "AUTH CRAM-MD5", .script = kAccepted + "C: AUTH CRAM-MD5\n", .log = kAcceptedLog + "CRAM-MD5\n"},
        {.name = "the response of CRAM-MD5",
         .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw
)",
         .log = kAcceptedLog + R"(CRAM-MD5
334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
)"},
        {.name = "AUTH LOGIN", .script = kAccepted + "C: AUTH LOGIN\n", .log = kAcceptedLog + "LOGIN\n", .mode = 2},
        {.name = "the user name of LOGIN",
         .script = kAccepted + "C: AUTH LOGIN\nS: 334 x\nC: dGlt\n",
         .log = kAcceptedLog + "LOGIN\n334 x\ndGlt\n",
         .mode = 2},
        {.name = "the password of LOGIN",
         .script = kAccepted + "C: AUTH LOGIN\nS: 334 x\nC: dGlt\nS: 334 y\nC: dGFuc3RhYWZ0YW5zdGFhZg==\n",
         .log = kAcceptedLog + "LOGIN\n334 x\ndGlt\n334 y\nPASS ************************\n",
         .mode = 2},
        {.name = "AUTH PLAIN", .script = kAccepted + "C: AUTH PLAIN\n", .log = kAcceptedLog, .mode = 1},
        {.name = "the response of PLAIN",
         .script = kAccepted + "C: AUTH PLAIN\nS: 334 go\nC: dGltAHRpbQB0YW5zdGFhZnRhbnN0YWFm\n",
         .log = kAcceptedLog + "334 go\ndGltAHRpbQB0YW5zdGFhZnRhbnN0YWFm\n",
         .mode = 1},
    };
}

std::vector<ConnectionCase> EndingWith(const std::string& what, const std::string& script, const std::string& log) {
    std::vector<ConnectionCase> cases;
    for (const Step& step : Steps()) {
        cases.push_back({.name = step.name + ", " + what,
                         .script = step.script + script,
                         .log = step.log + log,
                         .esmtp = step.esmtp,
                         .smtpauth_mode = step.mode});
    }
    return AsTim(cases);
}

TEST(SmtpConnection, EndsWithoutQuitWhenTheServerStalls) {
    std::vector<ConnectionCase> cases =
        EndingWith("stalled", "C: (closed)\n", "{timeout}\nTimeoutError..Closing Socket\n");
    for (ConnectionCase& one : cases) one.timeout = kStallTimeOut_s;
    CheckAll(cases);
}

TEST(SmtpConnection, WaitsForASlowAnswerToEhloAsLongAsItProgresses) {
    CheckAll({{.name = "",
               .script = kGreeted + R"(C: EHLO {host}
S~ 250-mx
S~ 250-AUTH LOGIN
S~ 250-SIZE 123456789
S~ 250-8BITMIME
S~ 250-ENHANCEDSTATUSCODES
S~ 250 HELP
)" + kReady,
               .log = kGreetedLog + R"(EHLO {host}
250-mx\r\n250-AUTH LOGIN\r\n250-SIZE 123456789\r\n250-8BITMIME\r\n250-ENHANCEDSTATUSCODES\r\n250 HELP
)",
               .outcome = Outcome::Ready,
               .timeout = kStallTimeOut_s}});
}

// The socket answers for the server that has gone, QUIT included, so each of these logs a QUIT that is never sent.
TEST(SmtpConnection, EndsWhenTheServerGoes) {
    CheckAll(EndingWith("closed", "S: (closed)\nC: (closed)\n", "{closed}\n" + kQuitLog));
    CheckAll(EndingWith("reset", "S: (reset)\n", "{reset}\n" + kQuitLog));
}

TEST(SmtpConnection, AuthenticatesWithCramMd5) {
    CheckAll(AsTim({
        // RFC 2195 section 2.
        {.name = "the protocol's own example",
         .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw
S: 235 Authentication successful
)" + kReady,
         .log = kAcceptedLog + R"(CRAM-MD5
334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
235 Authentication successful
)",
         .outcome = Outcome::Ready},

        {.name = "an empty challenge",
         .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334 
C: dGltIGJhMDAxNjU5MWQ2MTI2NjIzNDhiMjBiY2Q3ZjQ0Mzlh
S: 235 ok
)" + kReady,
         .log = kAcceptedLog + R"(CRAM-MD5
334 
235 ok
)",
         .outcome = Outcome::Ready},

        {.name = "a challenge of two lines is one text up to whose first blank everything goes",
         .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334-PDE4OTYuNjk3MTcwOTUy
S: 334 QHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
C: dGltIDVlNjQ2NmE3MmI0YWU0ZGQ1ZjI4YjA1NzlmYzU5MTZj
S: 235 ok
)" + kReady,
         .log = kAcceptedLog + R"(CRAM-MD5
334-PDE4OTYuNjk3MTcwOTUy\r\n334 QHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
235 ok
)",
         .outcome = Outcome::Ready},

        {.name = "two lines with a blank in the first: the line end between them is no part of the challenge",
         .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334-x PDE4OTYuNjk3MTcwOTUy
S: 334 QHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
C: dGltIGFiYzcwYmQzZGVkN2ZiZmU2MzZkZWQzZjI0YmJhOTYx
S: 235 ok
)" + kReady,
         .log = kAcceptedLog + R"(CRAM-MD5
334-x PDE4OTYuNjk3MTcwOTUy\r\n334 QHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
235 ok
)",
         .outcome = Outcome::Ready},

        {.name = "only the first blank separates, a later one is skipped in decoding",
         .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+ extra
C: dGltIGZiZGExMzdiMTA3NzlhNmJmZDE1MjllNzliZDk2N2U1
S: 235 ok
)" + kReady,
         .log = kAcceptedLog + R"(CRAM-MD5
334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+ extra
235 ok
)",
         .outcome = Outcome::Ready},

        {.name = "without a blank the code is part of the challenge",
         .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334
C: dGltIDBiZTk1N2ZlZDM0ZmRiOTY2MjY1NjA5MmUxNGJlMDM3
S: 235 ok
)" + kReady,
         .log = kAcceptedLog + R"(CRAM-MD5
334
235 ok
)",
         .outcome = Outcome::Ready},
    }));
}

TEST(SmtpConnection, AuthenticatesWithLogin) {
    const auto login = [](const std::string& name, const CString& user, const std::string& encoded_user,
                          const CString& password, const std::string& encoded_password, const std::string& stars) {
        return ConnectionCase{.name = name,
                              .script = kAccepted + "C: AUTH LOGIN\nS: 334 VXNlcm5hbWU6\nC: " + encoded_user +
                                        "\nS: 334-more\nS: 334 UGFzc3dvcmQ6\nC: " + encoded_password + "\nS: 235 ok\n" +
                                        kReady,
                              .log = kAcceptedLog + "LOGIN\n334 VXNlcm5hbWU6\n" + encoded_user +
                                     "\n334-more\\r\\n334 UGFzc3dvcmQ6\nPASS " + stars + "\n235 ok\n",
                              .outcome = Outcome::Ready,
                              .smtpauth = 1,
                              .smtpauth_mode = 2,
                              .smtpuser = user,
                              .smtppassword = password,
                              .popuser = "",
                              .poppassword = ""};
    };
    CheckAll({
        login("8 bytes are 12 stars", "alice", "YWxpY2U=", "eightch8", "ZWlnaHRjaDg=", "************"),
        login("9 bytes are 12 stars", "bob", "Ym9i", "password1", "cGFzc3dvcmQx", "************"),
        login("16 bytes are 24 stars", "tim", "dGlt", "tanstaaftanstaaf",
              "dGFuc3RhYWZ0YW5zdGFhZg==", "************************"),
        login("nothing at all", "", "", "", "", ""),
    });
}

TEST(SmtpConnection, AuthenticatesWithPlainAndItsZeroBytes) {
    const auto plain = [](const std::string& name, const CString& user, const CString& password,
                          const std::string& response) {
        return ConnectionCase{.name = name,
                              .script = kAccepted + "C: AUTH PLAIN\nS: 334 \nC: " + response + "\nS: 235 ok\n" + kReady,
                              .log = kAcceptedLog + "334 \n" + response + "\n235 ok\n",
                              .outcome = Outcome::Ready,
                              .smtpauth = 1,
                              .smtpauth_mode = 1,
                              .smtpuser = user,
                              .smtppassword = password,
                              .popuser = "",
                              .poppassword = ""};
    };
    CheckAll({
        plain("tim", "tim", "tanstaaftanstaaf", "dGltAHRpbQB0YW5zdGFhZnRhbnN0YWFm"),
        plain("alice", "alice", "secret", "YWxpY2UAYWxpY2UAc2VjcmV0"),
        plain("nothing but the zero bytes", "", "", "AAA="),
    });
}

TEST(SmtpConnection, AuthenticatesAsThePopUserWhereNoSmtpUserIsSet) {
    const auto plain = [](const CString& smtpuser, const CString& smtppassword, const std::string& response) {
        return ConnectionCase{.name = smtpuser + "/" + smtppassword,
                              .script = kAccepted + "C: AUTH PLAIN\nS: 334 \nC: " + response + "\nS: 235 ok\n" + kReady,
                              .log = kAcceptedLog + "334 \n" + response + "\n235 ok\n",
                              .outcome = Outcome::Ready,
                              .smtpauth = 1,
                              .smtpauth_mode = 1,
                              .smtpuser = smtpuser,
                              .smtppassword = smtppassword,
                              .popuser = "bob",
                              .poppassword = "pass"};
    };
    CheckAll({
        plain("alice", "secret", "YWxpY2UAYWxpY2UAc2VjcmV0"),
        plain("", "secret", "Ym9iAGJvYgBzZWNyZXQ="),
        plain("alice", "", "YWxpY2UAYWxpY2UAcGFzcw=="),
        plain("", "", "Ym9iAGJvYgBwYXNz"),
    });
}

TEST(SmtpConnection, ChoosesTheMethodByTheOfferAndTheMode) {
    struct Offer {
        std::vector<std::string> ehlo;  // the lines of the answer to EHLO
        int mode;
        std::string method;  // empty: the connection is ready without authentication
    };
    const std::string all = "250-AUTH CRAM-MD5 LOGIN PLAIN";
    const std::vector<Offer> offers = {
        // The best that is offered, or the one that is forced; nothing where that is not offered or the mode unknown.
        {{"250-mx", all, "250 HELP"}, 0, "CRAM-MD5"},
        {{"250-mx", all, "250 HELP"}, 1, "PLAIN"},
        {{"250-mx", all, "250 HELP"}, 2, "LOGIN"},
        {{"250-mx", all, "250 HELP"}, 3, "CRAM-MD5"},
        {{"250-mx", all, "250 HELP"}, 4, ""},
        {{"250-mx", all, "250 HELP"}, -1, ""},
        {{"250-mx", "250-AUTH PLAIN LOGIN", "250 HELP"}, 0, "LOGIN"},
        {{"250-mx", "250-AUTH PLAIN LOGIN", "250 HELP"}, 3, ""},
        {{"250-mx", "250-AUTH PLAIN", "250 HELP"}, 0, "PLAIN"},
        {{"250-mx", "250-AUTH PLAIN", "250 HELP"}, 2, ""},
        {{"250-mx", "250-AUTH LOGIN", "250 HELP"}, 1, ""},
        {{"250-mx", "250-AUTH CRAM-MD5", "250 HELP"}, 3, "CRAM-MD5"},
        {{"250-mx", "250-AUTH CRAM-MD5", "250 HELP"}, 2, ""},
        {{"250-mx", "250-AUTH DIGEST-MD5 GSSAPI", "250 HELP"}, 0, ""},
        {{"250-mx", "250-AUTH XPLAINX", "250 HELP"}, 0, "PLAIN"},
        // Case matters, in the keyword and in the methods.
        {{"250-mail.example.org", "250-auth LOGIN", "250 HELP"}, 0, ""},
        {{"250-mx", "250-AUTH login Plain cram-md5", "250 HELP"}, 0, ""},
        // Blanks, and what stands in place of a blank.
        {{"250-mx", "250-AUTH    CRAM-MD5 LOGIN", "250 HELP"}, 0, "CRAM-MD5"},
        {{"250-mx", "250-AUTH    CRAM-MD5 LOGIN", "250 HELP"}, 2, "LOGIN"},
        {{"250-mx", "250-AUTH    CRAM-MD5 LOGIN", "250 HELP"}, 1, ""},
        {{"250-mx", "250-AUTH=LOGIN", "250 HELP"}, 0, "LOGIN"},
        {{"250-mx", "250-AUTH=LOGIN PLAIN", "250 HELP"}, 1, "PLAIN"},
        // The first of two lists counts.
        {{"250-mx", "250-AUTH LOGIN", "250-AUTH=PLAIN", "250 HELP"}, 0, "LOGIN"},
        {{"250-mx", "250-AUTH LOGIN", "250-AUTH=PLAIN", "250 HELP"}, 1, ""},
        // A keyword without methods runs on into the next line, but not beyond that one, and not into the last.
        {{"250-mx", "250-AUTH", "250-LOGIN", "250 HELP"}, 0, "LOGIN"},
        {{"250-mx", "250-AUTH", "250-SIZE", "250-LOGIN", "250 HELP"}, 0, ""},
        {{"250-mx", "250-AUTH", "250 LOGIN"}, 0, ""},
        {{"250-mx", "250-AUTH ", "250-LOGIN", "250 HELP"}, 0, ""},
        // On the last line it is not seen.
        {{"250-mx", "250 AUTH PLAIN"}, 0, ""},
        {{"250-mx", "250-SIZE", "250 AUTH CRAM-MD5 LOGIN PLAIN"}, 0, ""},
        // Nor on the first, but the text from offset 9 to the end of that line counts where no list is found.
        {{"250-AUTH LOGIN", "250 HELP"}, 0, "LOGIN"},
        {{"250-AUTH PLAIN", "250-SIZE", "250 HELP"}, 0, "PLAIN"},
        {{"250-host-LOGIN", "250 HELP"}, 0, "LOGIN"},
        {{"250-LOGIN-mx", "250 HELP"}, 0, ""},
        {{"250-mx", "250-LOGIN", "250-PLAIN", "250 HELP"}, 0, "LOGIN"},
        {{"250-mx", "250-LOGIN", "250-PLAIN", "250 HELP"}, 1, ""},
        {{"250-mx", "250-XAUTH LOGIN", "250 HELP"}, 2, "LOGIN"},
        {{"250 AUTH LOGIN"}, 0, ""},
        {{"250 mx"}, 0, ""},
        {{"250"}, 0, ""},
    };
    const auto exchange = [](const std::string& method) -> std::pair<std::string, std::string> {
        if (method == "CRAM-MD5") {
            return {"C: AUTH CRAM-MD5\nS: 334 \nC: dGltIGJhMDAxNjU5MWQ2MTI2NjIzNDhiMjBiY2Q3ZjQ0Mzlh\nS: 235 ok\n",
                    "CRAM-MD5\n334 \n235 ok\n"};
        }
        if (method == "LOGIN") {
            return {"C: AUTH LOGIN\nS: 334 x\nC: dGlt\nS: 334 y\nC: dGFuc3RhYWZ0YW5zdGFhZg==\nS: 235 ok\n",
                    "LOGIN\n334 x\ndGlt\n334 y\nPASS ************************\n235 ok\n"};
        }
        if (method == "PLAIN") {
            return {"C: AUTH PLAIN\nS: 334 \nC: dGltAHRpbQB0YW5zdGFhZnRhbnN0YWFm\nS: 235 ok\n",
                    "334 \ndGltAHRpbQB0YW5zdGFhZnRhbnN0YWFm\n235 ok\n"};
        }
        return {};
    };
    const auto conversation = [&exchange](const Offer& offer) {
        std::string reply_script;
        std::string reply_log;
        for (const std::string& line : offer.ehlo) {
            reply_script.append("S: ").append(line).append("\n");
            reply_log.append(reply_log.empty() ? "" : "\\r\\n").append(line);
        }
        const auto [script, log] = exchange(offer.method);
        return ConnectionCase{.name = reply_log + " mode " + std::to_string(offer.mode),
                              .script = kGreeted + "C: EHLO {host}\n" + reply_script + script + kReady,
                              .log = kGreetedLog + "EHLO {host}\n" + reply_log + "\n" + log,
                              .outcome = Outcome::Ready,
                              .smtpauth_mode = offer.mode};
    };
    std::vector<ConnectionCase> cases;
    cases.reserve(offers.size());
    for (const Offer& offer : offers) cases.push_back(conversation(offer));
    CheckAll(AsTim(cases));
}

TEST(SmtpConnection, QuitsAfterARefusedAuthenticationWithoutTryingAnotherMethod) {
    const std::string cram = kAccepted + "C: AUTH CRAM-MD5\n";
    const std::string cram_log = kAcceptedLog + "CRAM-MD5\n";
    const std::string cram_response = cram + "S: 334 \nC: dGltIGJhMDAxNjU5MWQ2MTI2NjIzNDhiMjBiY2Q3ZjQ0Mzlh\n";
    const std::string cram_response_log = cram_log + "334 \n";
    const std::string login = kAccepted + "C: AUTH LOGIN\n";
    const std::string login_log = kAcceptedLog + "LOGIN\n";
    const std::string login_user = login + "S: 334 x\nC: dGlt\n";
    const std::string login_user_log = login_log + "334 x\ndGlt\n";
    const std::string login_password = login_user + "S: 334 y\nC: dGFuc3RhYWZ0YW5zdGFhZg==\n";
    const std::string login_password_log = login_user_log + "334 y\nPASS ************************\n";
    const std::string plain = kAccepted + "C: AUTH PLAIN\n";
    const std::string plain_response = plain + "S: 334 \nC: dGltAHRpbQB0YW5zdGFhZnRhbnN0YWFm\n";
    const std::string plain_response_log = kAcceptedLog + "334 \ndGltAHRpbQB0YW5zdGFhZnRhbnN0YWFm\n";

    struct Refusal {
        int mode;
        std::string script;
        std::string log;
        std::string reply;
    };
    const std::vector<Refusal> refusals = {
        {0, cram, cram_log, "504 not that one"},
        {0, cram, cram_log, "235 no need"},
        {0, cram, cram_log, "421 closing"},
        {0, cram_response, cram_response_log, "535 wrong"},
        {0, cram_response, cram_response_log, "250 ok"},
        {0, cram_response, cram_response_log, "334 more"},
        {2, login, login_log, "504 not that one"},
        {2, login, login_log, "235 no need"},
        {2, login_user, login_user_log, "535 who?"},
        {2, login_user, login_user_log, "235 no need"},
        {2, login_password, login_password_log, "535 wrong"},
        {2, login_password, login_password_log, "334 more"},
        {1, plain, kAcceptedLog, "504 not that one"},
        {1, plain, kAcceptedLog, "235 no need"},
        {1, plain_response, plain_response_log, "535 wrong"},
        {1, plain_response, plain_response_log, "250 ok"},
    };
    std::vector<ConnectionCase> cases;
    cases.reserve(refusals.size());
    for (const Refusal& refusal : refusals) {
        cases.push_back({.name = refusal.script + refusal.reply,
                         .script = refusal.script + "S: " + refusal.reply + "\n" + kQuit,
                         .log = refusal.log + refusal.reply + "\n" + kQuitLog,
                         .smtpauth_mode = refusal.mode});
    }
    CheckAll(AsTim(cases));
}

}  // namespace
}  // namespace tarvex::testing
