// TLS under the SMTP socket: from the first byte and by STARTTLS, what is verified, and how it may end.

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "platform/net/sockets.h"
#include "platform/os/system.h"
#include "testing/scripted_server.h"
#include "tests/support/net_tools.h"
#include "tests/support/reset.h"

namespace tarvex {
namespace {

using namespace std::chrono_literals;
using testing::MakeTlsIdentity;
using testing::Peer;
using testing::ScriptedServer;
using testing::Stopwatch;
using testing::TlsIdentity;
using testing::TlsOptions;
using testing::TrustedAuthority;
using testing::WithResetAsSeen;

constexpr int kTls = 1;
constexpr int kStartTls = 2;
constexpr int kLong_s = 60;  // far longer than anything here takes

class TlsSocket : public CSmtpSocket {
public:
    explicit TlsSocket(int mode = kTls, int time_out_s = kLong_s) {
        SetTimeOut(time_out_s);
        ssl = mode;
        EXPECT_EQ(Create(0, 1, nullptr), 1);
    }
    std::string Connect(const ScriptedServer& server, const std::string& name = "localhost") {
        const testing::ResolverStandIn resolver({"127.0.0.1"});
        return SmtpConnect(name, server.Port());
    }
    std::string Ehlo() {
        std::string host = "client.example";
        return SendEHello(&host);
    }
    std::string Data(const std::string& text) { return SendData(&text); }
};

// A server with TLS from the first byte that greets and does this.
ScriptedServer::Session TlsServer(const TlsIdentity& identity, const std::function<void(Peer&)>& then) {
    return [identity, then](Peer& peer) {
        if (!peer.StartTls(identity)) return;
        peer.Send("220 ready\r\n");
        then(peer);
    };
}

void WaitForClose(Peer& peer) { peer.WaitForClose(); }

TEST(Tls, FromTheFirstByte) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority trusted(identity);
    for (const int mode : {1, 3, -1}) {
        ScriptedServer server(TlsServer(identity, [](Peer& peer) {
            peer.Expect("EHLO client.example");
            peer.Drip("250-server\r\n250 SIZE\r\n", 1ms, 3);
            peer.Expect("DATA");
            peer.Send("354 go\r\n");
            EXPECT_EQ(peer.ReadMessage(), "a\r\n..\r\n.\r\n");
            peer.Send("250 ok\r\n");
            peer.Expect("QUIT");
            peer.Send("221 bye\r\n");
            peer.WaitForClose();
        }));
        TlsSocket socket(mode);
        EXPECT_EQ(socket.Connect(server), "220 ready");
        EXPECT_EQ(socket.Ehlo(), "250-server\r\n250 SIZE");
        EXPECT_EQ(socket.Data("a\n.\n"), "250 ok");
        EXPECT_EQ(socket.SendQuit(), "221 bye");
        EXPECT_EQ(socket.timed_out, 0);
        EXPECT_EQ(server.Transcript(),
                  "-- TLS\nS: 220 ready\nC: EHLO client.example\nS: 250-server\nS: 250 SIZE\nC: DATA\nS: 354 go\n"
                  "C: (message of 10 bytes)\nS: 250 ok\nC: QUIT\nS: 221 bye\nC: (closed)\n");
    }
}

TEST(Tls, GreetingThatArrivesWithTheLastOfTheHandshakeIsNotWaitedFor) {
    TlsIdentity identity = MakeTlsIdentity();
    identity.only_version = TLS1_2_VERSION;  // in which the last word is the server's
    const TrustedAuthority trusted(identity);
    ScriptedServer server([&](Peer& peer) {
        peer.StartTls(identity, "220 ready\r\n");
        peer.WaitForClose();
    });
    TlsSocket socket(kTls, 5);
    EXPECT_EQ(socket.Connect(server), "220 ready");
}

TEST(Tls, LargeMessagesArriveWholeInEitherVersion) {
    std::string message;
    for (int i = 0; message.size() < 5'000'000; ++i) message += "line " + std::to_string(i) + "\r\n";
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        TlsIdentity identity = MakeTlsIdentity();
        identity.only_version = version;
        const TrustedAuthority trusted(identity);
        ScriptedServer server(TlsServer(identity, [&](Peer& peer) {
            peer.Expect("DATA");
            peer.Send("354 go\r\n");
            EXPECT_TRUE(peer.ReadMessage() == message + ".\r\n");
            peer.Send("250 ok\r\n");
            peer.WaitForClose();
        }));
        TlsSocket socket;
        EXPECT_EQ(socket.Connect(server), "220 ready");
        EXPECT_EQ(socket.Data(message), "250 ok");
    }
}

TEST(Tls, LongReplyArrivesWhole) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority trusted(identity);
    std::string reply;
    for (int i = 0; reply.size() < 60'000; ++i) reply += "250-line " + std::to_string(i) + "\r\n";
    reply += "250 end";
    ScriptedServer server(TlsServer(identity, [&](Peer& peer) {
        peer.ReadLine();
        peer.Send(reply + "\r\n");
        peer.WaitForClose();
    }));
    TlsSocket socket;
    EXPECT_EQ(socket.Connect(server), "220 ready");
    EXPECT_TRUE(socket.Ehlo() == reply);
}

// --- Verification

TEST(Tls, OldVersionsAreRefused) {
    TlsIdentity identity = MakeTlsIdentity();
    identity.only_version = TLS1_1_VERSION;
    const TrustedAuthority trusted(identity);
    ScriptedServer server(TlsServer(identity, WaitForClose));
    TlsSocket socket;
    const std::string greeting = socket.Connect(server);
    EXPECT_TRUE(greeting.starts_with("421 TLS handshake: ")) << greeting;
    EXPECT_EQ(server.Transcript(), "-- TLS failed\n");
}

struct Verification {
    TlsOptions certificate;
    std::string server;
    std::string greeting;
};

TEST(Tls, CertificateMustBeValidForTheNameOrAddressOfTheServer) {
    const std::string ready = "220 ready";
    const std::string wrong_name = "421 TLS handshake: certificate: hostname mismatch";
    const std::string wrong_address = "421 TLS handshake: certificate: IP address mismatch";
    const std::vector<Verification> cases = {
        {{{"localhost"}, {}, false}, "localhost", ready},
        {{{"localhost"}, {}, false}, "LOCALHOST", ready},
        {{{"smtp.example.com"}, {}, false}, "smtp.example.com.", ready},
        {{{"*.example.com"}, {}, false}, "smtp.example.com", ready},
        {{{"*.example.com"}, {}, false}, "a.smtp.example.com", wrong_name},
        {{{"s*.example.com"}, {}, false}, "smtp.example.com", wrong_name},
        {{{"other.example.com"}, {}, false}, "smtp.example.com", wrong_name},
        {{{"example.com"}, {}, false}, "smtp.example.com", wrong_name},
        {{{}, {"127.0.0.1"}, false}, "127.0.0.1", ready},
        {{{}, {"127.0.0.2"}, false}, "127.0.0.1", wrong_address},
        {{{"127.0.0.1"}, {}, false}, "127.0.0.1", wrong_address},
        {{{}, {"127.0.0.1"}, false}, "localhost", wrong_name},
        {{{"localhost"}, {}, true}, "localhost", "421 TLS handshake: certificate: certificate has expired"},
    };
    for (const Verification& c : cases) {
        const TlsIdentity identity = MakeTlsIdentity(c.certificate);
        const TrustedAuthority trusted(identity);
        ScriptedServer server(TlsServer(identity, [](Peer& peer) {
            peer.ReadLine();
            peer.Send("221 bye\r\n");
        }));
        TlsSocket socket;
        EXPECT_EQ(socket.Connect(server, c.server), c.greeting) << c.server;
        EXPECT_EQ(socket.timed_out, 0);
        EXPECT_EQ(socket.SendQuit(), c.greeting == ready ? "221 bye" : c.greeting) << c.server;
    }
}

TEST(Tls, AuthorityMustBeTrusted) {
    const TrustedAuthority trusted(MakeTlsIdentity());
    ScriptedServer server(TlsServer(MakeTlsIdentity(), WaitForClose));
    TlsSocket socket;
    EXPECT_TRUE(socket.Connect(server).starts_with("421 TLS handshake: certificate: "));
}

TEST(Tls, WithoutAnyTrustedAuthorityNobodyIsTrusted) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority nobody(TlsIdentity{});
    ScriptedServer server(TlsServer(identity, WaitForClose));
    TlsSocket socket;
    EXPECT_TRUE(socket.Connect(server).starts_with("421 TLS handshake: certificate: "));
}

TEST(Tls, NameIsIndicatedAndAddressIsNot) {
    for (const std::string name : {"localhost", "127.0.0.1"}) {
        ScriptedServer server(WaitForClose);
        TlsSocket socket(kTls, 1);
        EXPECT_EQ(socket.Connect(server, name), "421 TLS handshake: no answer in time");
        // The name goes out in clear.
        EXPECT_EQ(server.Transcript().find(name) != std::string::npos, name == "localhost");
    }
}

// --- The handshake fails

TEST(Tls, ServerThatSpeaksNoTlsFailsTheHandshake) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("220 ready\r\n");
        peer.WaitForClose();
    });
    TlsSocket socket;
    EXPECT_EQ(socket.Connect(server), "421 TLS handshake: TLS: wrong version number");
}

TEST(Tls, HandshakeMustEndWithinTheTimeOut) {
    struct Case {
        std::string name;
        ScriptedServer::Session session;
    };
    const std::vector<Case> cases = {
        {"says nothing", WaitForClose},
        // A record that is announced as long and comes byte by byte.
        {"drips",
         [](Peer& peer) {
             peer.Drip(std::string("\x16\x03\x03\x40\x00\x02\x00\x3f\xfc", 9) + std::string(80, '\0'), 100ms);
         }},
    };
    for (const Case& c : cases) {
        ScriptedServer server(c.session);
        TlsSocket socket(kTls, 1);
        const Stopwatch watch;
        EXPECT_EQ(socket.Connect(server), "421 TLS handshake: no answer in time") << c.name;
        EXPECT_EQ(socket.timed_out, 1) << c.name;
        EXPECT_GE(watch.Elapsed(), 1s) << c.name;
        EXPECT_LT(watch.Elapsed(), 5s) << c.name;
        EXPECT_EQ(socket.Ehlo(), "421 TLS handshake: no answer in time") << c.name;
    }
}

TEST(Tls, ConnectionLostWithinTheHandshake) {
    const auto up_to_the_handshake = [](const std::function<void(Peer&)>& then) {
        return [then](Peer& peer) {
            peer.Send("220 ready\r\n");
            peer.ReadLine();
            peer.Send("250-server\r\n250 STARTTLS\r\n");
            peer.ReadLine();
            peer.Send("220 go\r\n");
            then(peer);
        };
    };
    ScriptedServer server(std::vector<ScriptedServer::Session>{up_to_the_handshake([](Peer& peer) {
                                                                   peer.Close();
                                                                   peer.WaitForClose();
                                                               }),
                                                               up_to_the_handshake([](Peer& peer) { peer.Reset(); })});
    TlsSocket closed(kStartTls);
    EXPECT_EQ(closed.Connect(server), "421 TLS handshake: the server closed the connection");
    TlsSocket reset(kStartTls);
    EXPECT_EQ(WithResetAsSeen(reset.Connect(server)), WithResetAsSeen("421 TLS handshake: Connection reset by peer"));
    EXPECT_EQ(reset.timed_out, 0);
}

TEST(Tls, InterruptedWithinTheHandshake) {
    std::promise<void> stalls;
    ScriptedServer server([&](Peer& peer) {
        peer.Send("\x16");
        stalls.set_value();
        peer.WaitForClose();
    });
    std::string greeting;
    testing::InterruptedWorker worker([&] { greeting = TlsSocket().Connect(server); });
    std::future<void> is_stalled = stalls.get_future();
    EXPECT_TRUE(testing::Happens(is_stalled));
    EXPECT_LT(worker.Terminate(), 5s);
    EXPECT_TRUE(greeting.ends_with("interrupted")) << greeting;
}

// --- How it ends

TEST(Tls, EndWithoutCloseNotifyIsAnErrorBeforeQuit) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority trusted(identity);
    ScriptedServer server(std::vector<ScriptedServer::Session>{TlsServer(identity,
                                                                         [](Peer& peer) {
                                                                             peer.ReadLine();
                                                                             peer.Send("250-half\r\n");
                                                                             peer.CloseWithoutNotify();
                                                                         }),
                                                               TlsServer(identity, [](Peer& peer) {
                                                                   peer.ReadLine();
                                                                   peer.Send("250-half\r\n");
                                                                   peer.Close();
                                                               })});
    TlsSocket cut;
    EXPECT_EQ(cut.Connect(server), "220 ready");
    EXPECT_EQ(cut.Ehlo(), "421 connection lost: the connection was cut without a TLS close");
    TlsSocket closed;
    EXPECT_EQ(closed.Connect(server), "220 ready");
    EXPECT_EQ(closed.Ehlo(), "421 the server closed the connection");
}

TEST(Tls, EndWithoutCloseNotifyIsHarmlessAfterQuit) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority trusted(identity);
    ScriptedServer server(TlsServer(identity, [](Peer& peer) {
        peer.ReadLine();
        peer.Send("221 bye\r\n");
        peer.CloseWithoutNotify();
    }));
    TlsSocket socket;
    EXPECT_EQ(socket.Connect(server), "220 ready");
    EXPECT_EQ(socket.SendQuit(), "221 bye");
    EXPECT_EQ(socket.timed_out, 0);
}

TEST(Tls, DrippedReplyMustBeCompleteWithinTheTimeOut) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority trusted(identity);
    ScriptedServer server(TlsServer(identity, [](Peer& peer) {
        peer.ReadLine();
        peer.Drip("250 " + std::string(80, 'x'), 100ms);
    }));
    TlsSocket socket(kTls, 1);
    EXPECT_EQ(socket.Connect(server), "220 ready");
    const Stopwatch watch;
    EXPECT_EQ(socket.Ehlo(), "421 no answer in time");
    EXPECT_LT(watch.Elapsed(), 5s);
    EXPECT_EQ(socket.timed_out, 1);
}

// --- What comes out of turn, encrypted

TEST(Tls, BytesBehindAReplyEndTheConnection) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority trusted(identity);
    ScriptedServer server(TlsServer(identity, [](Peer& peer) {
        peer.ReadLine();
        peer.Send("250 ok\r\n250 in advance\r\n");
        peer.WaitForClose();
    }));
    TlsSocket socket;
    EXPECT_EQ(socket.Connect(server), "220 ready");
    EXPECT_EQ(socket.Ehlo(), "250 ok");
    EXPECT_EQ(socket.SendQuit(), "421 unexpected data from the server: 250 in advance??");
}

TEST(Tls, ServerThatSpeaksWhileTheMessageIsSent) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority trusted(identity);
    const std::string message = std::string(4'000'000, 'x') + "\r\n" + std::string(60'000'000, 'y');
    for (const std::string early : {"552 too big", "250 ok"}) {
        std::promise<void> done;
        std::future<void> is_done = done.get_future();
        ScriptedServer server(TlsServer(identity, [&](Peer& peer) {
            peer.ReadLine();
            peer.Send("354 go\r\n");
            peer.ReadLine();
            peer.Send(early + "\r\n");
            is_done.wait();
        }));
        TlsSocket socket;
        EXPECT_EQ(socket.Connect(server), "220 ready");
        EXPECT_EQ(socket.Data(message),
                  early == "250 ok" ? "421 a reply before the end of the message: 250 ok" : early);
        done.set_value();
    }
}

TEST(Tls, ServerThatStopsReadingTheMessageTimesOut) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority trusted(identity);
    std::promise<void> done;
    std::future<void> is_done = done.get_future();
    ScriptedServer server(TlsServer(identity, [&](Peer& peer) {
        peer.ReadLine();
        peer.Send("354 go\r\n");
        is_done.wait();
    }));
    TlsSocket socket(kTls, 1);
    EXPECT_EQ(socket.Connect(server), "220 ready");
    EXPECT_EQ(socket.Data(std::string(40'000'000, 'x')), "421 no answer in time");
    EXPECT_EQ(socket.timed_out, 1);
    done.set_value();
}

TEST(Tls, InterruptedWhileWaitingForAReply) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority trusted(identity);
    std::promise<void> stalls;
    ScriptedServer server(TlsServer(identity, [&](Peer& peer) {
        peer.ReadLine();
        stalls.set_value();
        peer.WaitForClose();
    }));
    std::string answer;
    testing::InterruptedWorker worker([&] {
        TlsSocket socket;
        EXPECT_EQ(socket.Connect(server), "220 ready");
        answer = socket.Ehlo();
    });
    std::future<void> is_stalled = stalls.get_future();
    EXPECT_TRUE(testing::Happens(is_stalled));
    EXPECT_LT(worker.Terminate(), 5s);
    EXPECT_EQ(answer, "421 interrupted");
}

// --- STARTTLS

std::string OwnEhlo() { return "EHLO " + HostName(); }

TEST(StartTls, GreetsForItselfUpgradesAndHandsTheGreetingOn) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority trusted(identity);
    for (const std::string offer : {"250-STARTTLS\r\n250 HELP\r\n", "250 STARTTLS\r\n", "250-starttls\r\n250 HELP\r\n",
                                    "250-STARTTLS now\r\n250 HELP\r\n"}) {
        ScriptedServer server([&](Peer& peer) {
            peer.Send("220-ready\r\n220 now\r\n");
            peer.Expect(OwnEhlo());
            peer.Send("250-server\r\n");
            peer.Send(offer);
            peer.Expect("STARTTLS");
            peer.Send("220 go\r\n");
            if (!peer.StartTls(identity)) return;
            peer.Expect("EHLO client.example");
            peer.Send("250 AUTH PLAIN\r\n");
            peer.Expect("QUIT");
            peer.Send("221 bye\r\n");
            peer.WaitForClose();
        });
        TlsSocket socket(kStartTls);
        EXPECT_EQ(socket.Connect(server), "220-ready\r\n220 now");
        EXPECT_EQ(socket.Ehlo(), "250 AUTH PLAIN");
        EXPECT_EQ(socket.SendQuit(), "221 bye");
        EXPECT_TRUE(
            server.Transcript().ends_with("C: STARTTLS\nS: 220 go\n-- TLS\nC: EHLO client.example\n"
                                          "S: 250 AUTH PLAIN\nC: QUIT\nS: 221 bye\nC: (closed)\n"));
    }
}

struct FailedUpgrade {
    std::string name;
    std::string greeting;
    std::string ehlo_reply;
    std::string starttls_reply;
    std::string result;
    std::string then;  // what every later exchange says
};

TEST(StartTls, FailsClosed) {
    const std::string ehlo = "250-server\r\n250 STARTTLS\r\n";
    const std::string not_offered = "421 the server does not offer STARTTLS";
    const std::vector<FailedUpgrade> cases = {
        {"no welcome", "554 go away\r\n", "", "", "554 go away", "421 there was no upgrade to TLS"},
        {"EHLO refused", "220 ready\r\n", "502 what\r\n", "", "421 EHLO before STARTTLS was refused: 502 what", ""},
        {"not offered", "220 ready\r\n", "250-server\r\n250 SIZE\r\n", "", not_offered, ""},
        {"a name that looks like it", "220 ready\r\n", "250-STARTTLS\r\n250 SIZE\r\n", "", not_offered, ""},
        {"longer words", "220 ready\r\n", "250-server\r\n250-XSTARTTLS\r\n250 STARTTLSX\r\n", "", not_offered, ""},
        {"another word first", "220 ready\r\n", "250-server\r\n250 X STARTTLS\r\n", "", not_offered, ""},
        {"refused", "220 ready\r\n", ehlo, "454 not now\r\n", "421 STARTTLS was refused: 454 not now", ""},
        {"positive but not 220", "220 ready\r\n", ehlo, "250 ok\r\n", "421 STARTTLS was refused: 250 ok", ""},
        {"injection behind the reply", "220 ready\r\n", ehlo, "220 go\r\n250 AUTH PLAIN\r\n",
         "421 unexpected data from the server: 250 AUTH PLAIN??", ""},
        {"injection behind the offer", "220 ready\r\n", ehlo + "220 go\r\n", "",
         "421 unexpected data from the server: 220 go??", ""},
        {"no TLS after all", "220 ready\r\n", ehlo, "220 go\r\n", "421 TLS handshake: TLS: wrong version number", ""},
    };
    for (const FailedUpgrade& c : cases) {
        ScriptedServer server([&](Peer& peer) {
            peer.Send(c.greeting);
            if (!c.ehlo_reply.empty()) {
                peer.Expect(OwnEhlo());
                peer.Send(c.ehlo_reply);
            }
            if (!c.starttls_reply.empty()) {
                peer.Expect("STARTTLS");
                peer.Send(c.starttls_reply);
            }
            if (c.name == "no TLS after all") {
                peer.ReadLine();  // somewhere in the client's hello
                peer.Send("250 what was that\r\n");
            }
            peer.WaitForClose();
        });
        TlsSocket socket(kStartTls);
        EXPECT_EQ(socket.Connect(server), c.result) << c.name;
        EXPECT_EQ(socket.timed_out, 0) << c.name;
        EXPECT_EQ(socket.Ehlo(), c.then.empty() ? c.result : c.then) << c.name;
        EXPECT_EQ(socket.SendQuit(), c.then.empty() ? c.result : c.then) << c.name;
        EXPECT_TRUE(server.Transcript().ends_with("C: (closed)\n")) << c.name;
    }
}

TEST(StartTls, CertificateIsVerified) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority trusted(identity);
    ScriptedServer server([&](Peer& peer) {
        peer.Send("220 ready\r\n");
        peer.ReadLine();
        peer.Send("250-server\r\n250 STARTTLS\r\n");
        peer.ReadLine();
        peer.Send("220 go\r\n");
        peer.StartTls(identity);
        peer.WaitForClose();
    });
    TlsSocket socket(kStartTls);
    EXPECT_EQ(socket.Connect(server, "smtp.example"), "421 TLS handshake: certificate: hostname mismatch");
    EXPECT_EQ(socket.Ehlo(), "421 TLS handshake: certificate: hostname mismatch");
}

TEST(StartTls, StallAtAnyStepTimesOut) {
    const std::vector<std::string> script = {"220 ready\r\n", "250-server\r\n250 STARTTLS\r\n", "220 go\r\n"};
    for (std::size_t steps = 0; steps <= script.size(); ++steps) {
        ScriptedServer server([&](Peer& peer) {
            for (std::size_t i = 0; i < steps; ++i) {
                if (i > 0) peer.ReadLine();
                peer.Send(script[i]);
            }
            peer.WaitForClose();
        });
        TlsSocket socket(kStartTls, 1);
        const std::string greeting = socket.Connect(server);
        EXPECT_TRUE(greeting.starts_with("421 ") && greeting.ends_with("no answer in time")) << greeting;
        EXPECT_EQ(socket.timed_out, 1) << steps;
    }
}

TEST(StartTls, IsNotAskedForByOtherModes) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("220 ready\r\n");
        peer.Expect("EHLO client.example");
        peer.Send("250-server\r\n250 STARTTLS\r\n");
        peer.WaitForClose();
    });
    TlsSocket socket(0);
    EXPECT_EQ(socket.Connect(server), "220 ready");
    EXPECT_EQ(socket.Ehlo(), "250-server\r\n250 STARTTLS");
}

}  // namespace
}  // namespace tarvex
