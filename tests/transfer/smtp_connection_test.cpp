// Opening the SMTP connection: greeting, EHLO or HELO, authentication; what is said and what is logged.

#include <gtest/gtest.h>

#include <map>
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
    std::string log = {};  // where it is not what the script implies
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

const std::string kQuitLog = "QUIT\nTimeoutError..Closing Socket\n";

// How a line of the client is logged that answers the method's challenge for the n-th time.
std::string ResponseLog(const std::string& method, int n, const std::string& response) {
    if (method == "CRAM-MD5") return "";
    if (method == "LOGIN" && n == 2) return "PASS " + std::string(response.size(), '*') + "\n";
    return response + "\n";
}

// The log of what the script says: each command and its answer, if that is complete, but of QUIT always the same. The
// caller's NOOP is in none.
std::string ImpliedLog(const std::string& script) {
    std::string log = "Success to create smtp socket\nconnecting.. 127.0.0.1\n";
    std::string method;
    int responses = 0;
    for (const auto& [command, reply] : Exchanges(script)) {
        if (command == "NOOP") break;
        if (command == "QUIT") return log + kQuitLog;
        if (command.starts_with("AUTH ")) {
            method = command.substr(5);
            if (method != "PLAIN") log += method + "\n";
        } else if (!method.empty()) {
            log += ResponseLog(method, ++responses, command);
        } else if (!command.empty()) {
            log += (command.starts_with("HELO") ? "HELO" : command) + "\n";
        }
        const std::size_t line_end = reply.rfind("\\r\\n");
        const std::string last_line = line_end == std::string::npos ? reply : reply.substr(line_end + 4);
        if (!last_line.empty() && last_line.substr(3, 1) != "-") log += reply + "\n";
    }
    return log;
}

void CheckAll(const std::vector<ConnectionCase>& cases) {
    RunAll(cases, Open, [](const ConnectionCase& one, const ConnectionOutcome& outcome) {
        SCOPED_TRACE(one.name);
        EXPECT_EQ(outcome.transcript, Conversation::Expected(one.script));
        EXPECT_EQ(outcome.log, SmtpLog(one.log.empty() ? ImpliedLog(one.script) : one.log));
        EXPECT_EQ(outcome.ready, one.outcome == Outcome::Ready);
    });
}

// The user of the examples, who wants to be authenticated.
std::vector<ConnectionCase> AsTim(std::vector<ConnectionCase> cases) {
    for (ConnectionCase& one : cases) {
        one.smtpauth = -5;  // any setting but 0
        one.smtpuser = "tim";
        one.smtppassword = "tanstaaftanstaaf";
    }
    return cases;
}

// How most conversations begin and end.
const std::string kGreeted = "S: 220 ready\n";
const std::string kAccepted = R"(S: 220 ready
C: EHLO {host}
S: 250-mx
S: 250-AUTH CRAM-MD5 LOGIN PLAIN
S: 250 HELP
)";
const std::string kReady = "C: NOOP\nS: 250 alive\nC: (closed)\n";
const std::string kQuit = "C: QUIT\nS: 221 bye\nC: (closed)\n";

TEST(SmtpConnection, GreetsWithEhloAndIsReadyOnceThatIsAccepted) {
    CheckAll({
        {.name = "one line",
         .script = kGreeted + R"(C: EHLO {host}
S: 250 mx
)" + kReady,
         .outcome = Outcome::Ready},

        {.name = "several lines, without authentication since none is asked for",
         .script = kAccepted + kReady,
         .outcome = Outcome::Ready},

        {.name = "any setting but 0 means EHLO", .script = kAccepted + kReady, .outcome = Outcome::Ready, .esmtp = -1},

        {.name = "a greeting of several lines",
         .script = R"(S: 220-mx
S: 220 ready
C: EHLO {host}
S: 250 mx
)" + kReady,
         .outcome = Outcome::Ready},
    });
}

TEST(SmtpConnection, JudgesRepliesByTheirFirstThreeCharacters) {
    const std::string script = "S: 220\tmx\n" + std::string(R"(C: EHLO {host}
S: 250-mx
S: 250-AUTH PLAIN
S: 5501 odd
C: AUTH PLAIN
S: 334ABC
C: YWxpY2UAYWxpY2UAc2VjcmV0
S: 2359-5 yes
)") + kReady;
    CheckAll({
        {.name = "whatever follows them",
         .script = script,
         .log = Replaced(ImpliedLog(script), "\t", "\\t"),
         .outcome = Outcome::Ready,
         .smtpauth = 1},

        {.name = "an empty greeting is none of the codes",
         .script = "S: \nC: (closed)\n",
         .log = "Success to create smtp socket\nconnecting.. 127.0.0.1\n\n" + Visible("\t!!Connect error") + "\n"},

        {.name = "a short answer is none of the codes",
         .script = kGreeted + "C: EHLO {host}\nS: 25\n" + kQuit,
         .log = ImpliedLog(kGreeted) + "EHLO {host}\n25\n" + kQuitLog},
    });
}

TEST(SmtpConnection, GreetsWithHeloWithoutAuthenticationWhereTheProfileSaysSo) {
    const ConnectionCase plain = {.name = "",
                                  .script = kGreeted + R"(C: HELO {host}
S: 250 mx
)" + kReady,
                                  .outcome = Outcome::Ready,
                                  .esmtp = 0};
    ConnectionCase authentication = plain;
    authentication.smtpauth = 1;
    ConnectionCase many_lines = plain;
    many_lines.script = kGreeted + R"(C: HELO {host}
S: 250-mx
S: 250 AUTH LOGIN
)" + kReady;
    CheckAll({plain, authentication, many_lines});
}

TEST(SmtpConnection, UsesThePopServerWhereNoSmtpServerIsSet) {
    const std::string script = kGreeted + R"(C: EHLO {host}
S: 250 mx
)" + kReady;
    CheckAll({
        {.name = "set",
         .script = script,
         .outcome = Outcome::Ready,
         .smtpserver = "127.0.0.1",
         .popserver = "256.0.0.1"},
        {.name = "not set", .script = script, .outcome = Outcome::Ready, .smtpserver = "", .popserver = "127.0.0.1"},
    });
}

TEST(SmtpConnection, ClosesWithoutQuitAfterARefusedGreeting) {
    std::vector<ConnectionCase> cases;
    const auto add = [&cases](const std::string& script, const std::string& more) -> ConnectionCase& {
        return cases.emplace_back(ConnectionCase{.name = script, .script = script, .log = ImpliedLog(script) + more});
    };
    // Another success is a refusal.
    for (const char* const reply : {"S: 554 not you\n", "S: 250 ready\n", "S: 421-too busy\nS: 421 220 ready\n"}) {
        add(std::string(reply) + "C: (closed)\n", "\\t!!Connect error\n");
    }
    for (const char* const half : {"", "S- 220-mx\n"}) {
        add(std::string(half) + "S: (closed)\nC: (closed)\n", "{closed}\n\\t!!Connect error\n");
    }
    for (const char* const half : {"", "S- 220 rea\n"}) {
        add(std::string(half) + "C: (closed)\n", "{timeout}\n\\t!!TimeoutError..Closing Socket\n").timeout =
            kStallTimeOut_s;
    }
    ConnectionCase& dripping =
        add("S~ 220 this greeting is so slow that it would be complete only after several seconds, too "
            "late\nC: (closed)\n",
            "");
    dripping.log = ImpliedLog("") + "{timeout}\n\\t!!TimeoutError..Closing Socket\n";
    dripping.timeout = kStallTimeOut_s;
    CheckAll(cases);
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
    CheckAll({
        {.name = "RSET and HELO accepted, no authentication though it is asked for",
         .script = unknown + R"(S: 250 flushed
C: HELO {host}
S: 250 mx
)" + kReady,
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
         .outcome = Outcome::Ready},

        {.name = "RSET refused", .script = unknown + R"(S: 500 what?
)" + kQuit},

        {.name = "HELO refused", .script = unknown + R"(S: 250 flushed
C: HELO {host}
S: 500 what?
)" + kQuit},

        {.name = "502", .script = kGreeted + R"(C: EHLO {host}
S: 502 not implemented
)" + kQuit},

        {.name = "500 behind another code", .script = kGreeted + R"(C: EHLO {host}
S: 550 500 commands a day
)" + kQuit},

        {.name = "501", .script = kGreeted + R"(C: EHLO {host}
S: 501 bad name
)" + kQuit},

        {.name = "another success", .script = kGreeted + R"(C: EHLO {host}
S: 220 mx
)" + kQuit},
    });
}

TEST(SmtpConnection, LogsTheSameLineWhateverBecomesOfTheQuit) {
    const auto quit_answered = [](const std::string& name, const std::string& answer) {
        return ConnectionCase{.name = name,
                              .script = kGreeted + "C: HELO {host}\nS: 550 no\nC: QUIT\n" + answer,
                              .log = ImpliedLog(kGreeted) + "HELO\n550 no\nQUIT\nTimeoutError..Closing Socket\n",
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
    int esmtp = 1;
    int mode = 0;
};

std::vector<Step> Steps() {
    return {
        {.name = "EHLO", .script = kGreeted + "C: EHLO {host}\n"},
        {.name = "half an answer to EHLO", .script = kGreeted + "C: EHLO {host}\nS: 250-mx\nS: 250-AUTH LOGIN\n"},
        {.name = "RSET", .script = kGreeted + "C: EHLO {host}\nS: 500 what?\nC: RSET\n"},
        {.name = "HELO", .script = kGreeted + "C: HELO {host}\n", .esmtp = 0},
        {.name = "AUTH CRAM-MD5", .script = kAccepted + "C: AUTH CRAM-MD5\n"},
        {.name = "the response of CRAM-MD5", .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw
)"},
        {.name = "AUTH LOGIN", .script = kAccepted + "C: AUTH LOGIN\n", .mode = 2},
        {.name = "the user name of LOGIN", .script = kAccepted + "C: AUTH LOGIN\nS: 334 x\nC: dGlt\n", .mode = 2},
        {.name = "the password of LOGIN",
         .script = kAccepted + "C: AUTH LOGIN\nS: 334 x\nC: dGlt\nS: 334 y\nC: dGFuc3RhYWZ0YW5zdGFhZg==\n",
         .mode = 2},
        {.name = "AUTH PLAIN", .script = kAccepted + "C: AUTH PLAIN\n", .mode = 1},
        {.name = "the response of PLAIN",
         .script = kAccepted + "C: AUTH PLAIN\nS: 334 go\nC: dGltAHRpbQB0YW5zdGFhZnRhbnN0YWFm\n",
         .mode = 1},
    };
}

std::vector<ConnectionCase> EndingWith(const std::string& what, const std::string& script, const std::string& log) {
    std::vector<ConnectionCase> cases;
    for (const Step& step : Steps()) {
        cases.push_back({.name = step.name + ", " + what,
                         .script = step.script + script,
                         .log = ImpliedLog(step.script) + log,
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

// The reply takes twice the time-out, each of its lines a fifth.
TEST(SmtpConnection, WaitsForASlowAnswerToEhloAsLongAsItProgresses) {
    CheckAll({{.name = "",
               .script = kGreeted + R"(C: EHLO {host}
S~ 250-mx
S~ 250-DSN
S~ 250-ETRN
S~ 250-EXPN
S~ 250-SAML
S~ 250-SEND
S~ 250-SOML
S~ 250-TURN
S~ 250-VRFY
S~ 250 HELP
)" + kReady,
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
         .outcome = Outcome::Ready},

        {.name = "an empty challenge",
         .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334 
C: dGltIGJhMDAxNjU5MWQ2MTI2NjIzNDhiMjBiY2Q3ZjQ0Mzlh
S: 235 ok
)" + kReady,
         .outcome = Outcome::Ready},

        {.name = "a challenge of two lines is one text up to whose first blank everything goes",
         .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334-PDE4OTYuNjk3MTcwOTUy
S: 334 QHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
C: dGltIDVlNjQ2NmE3MmI0YWU0ZGQ1ZjI4YjA1NzlmYzU5MTZj
S: 235 ok
)" + kReady,
         .outcome = Outcome::Ready},

        {.name = "two lines with a blank in the first: the line end between them is no part of the challenge",
         .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334-x PDE4OTYuNjk3MTcwOTUy
S: 334 QHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
C: dGltIGFiYzcwYmQzZGVkN2ZiZmU2MzZkZWQzZjI0YmJhOTYx
S: 235 ok
)" + kReady,
         .outcome = Outcome::Ready},

        {.name = "only the first blank separates, a later one is skipped in decoding",
         .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+ extra
C: dGltIGZiZGExMzdiMTA3NzlhNmJmZDE1MjllNzliZDk2N2U1
S: 235 ok
)" + kReady,
         .outcome = Outcome::Ready},

        {.name = "without a blank the code is part of the challenge",
         .script = kAccepted + R"(C: AUTH CRAM-MD5
S: 334
C: dGltIDBiZTk1N2ZlZDM0ZmRiOTY2MjY1NjA5MmUxNGJlMDM3
S: 235 ok
)" + kReady,
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
                              .log = ImpliedLog(kAccepted) + "LOGIN\n334 VXNlcm5hbWU6\n" + encoded_user +
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
    const std::map<std::string, std::string> exchanges = {
        {"CRAM-MD5", "C: AUTH CRAM-MD5\nS: 334 \nC: dGltIGJhMDAxNjU5MWQ2MTI2NjIzNDhiMjBiY2Q3ZjQ0Mzlh\nS: 235 ok\n"},
        {"LOGIN", "C: AUTH LOGIN\nS: 334 x\nC: dGlt\nS: 334 y\nC: dGFuc3RhYWZ0YW5zdGFhZg==\nS: 235 ok\n"},
        {"PLAIN", "C: AUTH PLAIN\nS: 334 \nC: dGltAHRpbQB0YW5zdGFhZnRhbnN0YWFm\nS: 235 ok\n"},
        {"", ""},
    };
    std::vector<ConnectionCase> cases;
    cases.reserve(offers.size());
    for (const Offer& offer : offers) {
        std::string reply;
        for (const std::string& line : offer.ehlo) reply += "S: " + line + "\n";
        cases.push_back({.name = reply + " mode " + std::to_string(offer.mode),
                         .script = kGreeted + "C: EHLO {host}\n" + reply + exchanges.at(offer.method) + kReady,
                         .outcome = Outcome::Ready,
                         .smtpauth_mode = offer.mode});
    }
    CheckAll(AsTim(cases));
}

TEST(SmtpConnection, QuitsAfterARefusedAuthenticationWithoutTryingAnotherMethod) {
    const std::string cram = kAccepted + "C: AUTH CRAM-MD5\n";
    const std::string cram_response = cram + "S: 334 \nC: dGltIGJhMDAxNjU5MWQ2MTI2NjIzNDhiMjBiY2Q3ZjQ0Mzlh\n";
    const std::string login = kAccepted + "C: AUTH LOGIN\n";
    const std::string login_user = login + "S: 334 x\nC: dGlt\n";
    const std::string login_password = login_user + "S: 334 y\nC: dGFuc3RhYWZ0YW5zdGFhZg==\n";
    const std::string plain = kAccepted + "C: AUTH PLAIN\n";
    const std::string plain_response = plain + "S: 334 \nC: dGltAHRpbQB0YW5zdGFhZnRhbnN0YWFm\n";

    struct Refusal {
        int mode;
        std::string script;
        std::string reply;
    };
    const std::vector<Refusal> refusals = {
        {0, cram, "504 not that one"},   {0, cram, "235 no need"},         {0, cram, "421 closing"},
        {0, cram_response, "535 wrong"}, {0, cram_response, "250 ok"},     {0, cram_response, "334 more"},
        {2, login, "504 not that one"},  {2, login, "235 no need"},        {2, login_user, "535 who?"},
        {2, login_user, "235 no need"},  {2, login_password, "535 wrong"}, {2, login_password, "334 more"},
        {1, plain, "504 not that one"},  {1, plain, "235 no need"},        {1, plain_response, "535 wrong"},
        {1, plain_response, "250 ok"},
    };
    std::vector<ConnectionCase> cases;
    cases.reserve(refusals.size());
    for (const Refusal& refusal : refusals) {
        cases.push_back({.name = refusal.script + refusal.reply,
                         .script = refusal.script + "S: " + refusal.reply + "\n" + kQuit,
                         .smtpauth_mode = refusal.mode});
    }
    CheckAll(AsTim(cases));
}

}  // namespace
}  // namespace tarvex::testing
