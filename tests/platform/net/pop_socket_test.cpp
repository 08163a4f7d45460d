// The POP3 socket against scripted servers: every reply, every way to fail, every limit.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "platform/net/limits.h"
#include "platform/net/sockets.h"
#include "testing/scripted_server.h"
#include "tests/platform/net/socket_tools.h"
#include "tests/support/net_tools.h"
#include "tests/support/reset.h"
#include "tests/support/shortage.h"

namespace tarvex {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::kHost;
using testing::kLong_s;
using testing::Peer;
using testing::ScriptedServer;
using testing::Stopwatch;
using testing::WithResetAsSeen;

constexpr auto AfterCommand = testing::AfterCommandTo<CPopSocket>;
constexpr auto AnswersOnce = testing::AnswerOnceTo<CPopSocket>;

// The socket of a conversation whose greeting was taken.
class GreetedSocket : public testing::Greeted<CPopSocket> {
public:
    using Greeted::Greeted;
    std::string Uidl() {
        std::string reply = "left over";
        SendUidl(&reply);
        return reply;
    }
    std::string List() {
        std::string reply = "left over";
        SendList(&reply);
        return reply;
    }
    std::string Retr(const std::string& number = "1") {
        std::string text = "left over";
        SendRetr(number, &text);
        return text;
    }
};

// The bytes have surely reached the client once the session that sent them has ended.
void WaitForEndOfSession(ScriptedServer& server) {
    server.Transcript();
    server.Transcript();  // what the session asked for as its last has been done as well
}

TEST(PopSocket, WholeConversation) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.Expect("USER alice");
        peer.Send("+OK\r\n");
        peer.Expect("PASS s e c");
        peer.Send("+OK logged in\r\n");
        peer.Expect("UIDL");
        peer.Send("+OK 2\r\n1 aa\r\n2 bb\r\n.\r\n");
        peer.Expect("LIST");
        peer.Send("+OK\r\n1 120\r\n.\r\n");
        peer.Expect("RETR 2");
        peer.Send("+OK 9 octets\r\nSubject: x\r\n\r\n..dot\r\n.\r\n");
        peer.Expect("DELE 1");
        peer.Send("-ERR no such message\r\n");
        peer.Expect("QUIT");
        peer.Send("+OK bye\r\n");
        peer.WaitForClose();
    });
    GreetedSocket socket(server);
    EXPECT_EQ(socket.SendUser("alice"), "+OK");
    EXPECT_EQ(socket.SendPassWord("s e c"), "+OK logged in");
    EXPECT_EQ(socket.Uidl(), "+OK 2\r\n1 aa\r\n2 bb\r\n.\r\n");
    EXPECT_EQ(socket.List(), "+OK\r\n1 120\r\n.\r\n");
    EXPECT_EQ(socket.Retr("2"), "+OK 9 octets\r\nSubject: x\r\n\r\n..dot\r\n.\r\n");
    EXPECT_EQ(socket.SendDelete("1"), "-ERR no such message");
    EXPECT_EQ(socket.SendQuit(), "+OK bye");
    EXPECT_EQ(socket.timed_out, 0);
    EXPECT_EQ(server.Transcript(),
              "S: +OK ready\nC: USER alice\nS: +OK\nC: PASS s e c\nS: +OK logged in\n"
              "C: UIDL\nS: +OK 2\nS: 1 aa\nS: 2 bb\nS: .\nC: LIST\nS: +OK\nS: 1 120\nS: .\n"
              "C: RETR 2\nS: +OK 9 octets\nS: Subject: x\nS: \nS: ..dot\nS: .\n"
              "C: DELE 1\nS: -ERR no such message\nC: QUIT\nS: +OK bye\nC: (closed)\n");
}

TEST(PopSocket, ApopSendsTheDigestOfTimestampAndPassword) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.Expect("APOP mrose c4c9334bac560ecc979e58001b3e22fb");
        peer.Send("+OK maildrop has 1 message (369 octets)\r\n");
    });
    GreetedSocket socket(server);
    EXPECT_EQ(socket.SendAPOP("mrose", "tanstaaf", "<1896.697170952@dbc.mtview.ca.us>"),
              "+OK maildrop has 1 message (369 octets)");
}

TEST(PopSocket, MultiLineAnswersAreWholeHoweverTheyArrive) {
    // Not one of the lines within is the end: a bare LF or CR does not make a line, nor does one beside a NUL.
    const std::string text =
        "+OK\r\na\r\n..\r\n..b\r\n\n.\n\n.\r\n\r.\r\r\n.\n\r\n.\rx\r\n\r\n. \r\n.x\r\n\r.\r\n \r"s +
        "\0\n.\r\n.\0\r\n\0.\r\n\r\n.\r\n"s;
    for (const std::size_t piece_bytes : {1U, 2U, 3U, 7U, 4096U}) {
        ScriptedServer server([&](Peer& peer) {
            peer.Drip("+OK ready\r\n", 1ms, piece_bytes);
            peer.Expect("RETR 1");
            peer.Drip(text, 1ms, piece_bytes);
            peer.Expect("RETR 2");
            peer.Drip("+OK\r\n.\r\n", 1ms, piece_bytes);
            peer.Expect("RETR 3");
            peer.Drip("-ERR gone\r\n", 1ms, piece_bytes);
            peer.Expect("QUIT");
            peer.Drip("+OK bye\r\n", 1ms, piece_bytes);
        });
        GreetedSocket socket(server);
        EXPECT_EQ(socket.Retr("1"), text);
        EXPECT_EQ(socket.Retr("2"), "+OK\r\n.\r\n");
        EXPECT_EQ(socket.Retr("3"), "-ERR gone");
        EXPECT_EQ(socket.SendQuit(), "+OK bye");
    }
}

TEST(PopSocket, EndIsFoundWhereverItIsCut) {
    const std::string text = "+OK\r\nlast line\r\n.\r\n";
    for (std::size_t of_the_end = 1; of_the_end < 5; ++of_the_end) {
        ScriptedServer server(AfterCommand([&](Peer& peer) {
            peer.Drip(text, 50ms, text.size() - 5 + of_the_end);
            peer.WaitForClose();
        }));
        GreetedSocket socket(server, 5);
        EXPECT_EQ(socket.Retr(), text);
    }
}

TEST(PopSocket, LargeMessageArrivesWhole) {
    std::string message = "+OK\r\n";
    for (int i = 0; message.size() < 20'000'000; ++i) message += "line " + std::to_string(i) + "\r\n";
    message += ".\r\n";
    ScriptedServer server(AfterCommand([&](Peer& peer) {
        peer.SendUnrecorded(message);
        peer.WaitForClose();
    }));
    GreetedSocket socket(server);
    EXPECT_TRUE(socket.Retr() == message);
}

TEST(PopSocket, StatusLineMayEndWithBareLf) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("+OK ready\n");
        peer.ReadLine();
        peer.Send("-ERR no\n");
        peer.WaitForClose();
    });
    GreetedSocket socket(server);
    EXPECT_EQ(socket.SendUser("u"), "-ERR no");
}

TEST(PopSocket, AStatusLineBeforeLinesMayEndWithBareLf) {
    ScriptedServer server(AnswersOnce("+OK\n1 a\n.\n\r\n.\r\n"));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.Uidl(), "+OK\r\n1 a\n.\n\r\n.\r\n");
}

TEST(PopSocket, AReplyIsNegativeByItsFirstCharacterAlone) {
    const std::vector<std::string> positive = {
        "HTTP/1.1 400 Bad Request", "", " -ERR", "OK", "500 no", "\x01\xff", "\0-ERR"s, "+OK\0\r\0"s};
    const std::vector<std::string> negative = {"-", "-OK", "--"};
    ScriptedServer server([&](Peer& peer) {
        peer.Send("220 ready\r\n");
        for (const std::string& reply : positive) {
            peer.ReadLine();
            peer.Send(reply + "\r\n");
            peer.ReadLine();
            peer.Send(reply + "\r\n-ERR text\r\n.\r\n");
        }
        for (const std::string& reply : negative) {
            peer.ReadLine();
            peer.Send(reply + "\r\n");
        }
        peer.WaitForClose();
    });
    CPopSocket socket;
    EXPECT_EQ(socket.PopConnect(kHost, server.Port()), "220 ready");
    std::string text;
    for (const std::string& reply : positive) {
        EXPECT_EQ(socket.SendUser("u"), reply);
        socket.SendRetr("1", &text);
        EXPECT_EQ(text, reply + "\r\n-ERR text\r\n.\r\n");
    }
    for (const std::string& reply : negative) {
        socket.SendRetr("1", &text);
        EXPECT_EQ(text, reply);
    }
}

TEST(PopSocket, AReplyWithoutItsLineEndIsNone) {
    ScriptedServer server(AfterCommand([](Peer& peer) {
        peer.Send("+");
        peer.Close();
    }));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.SendUser("u"), "-ERR Disconnected: the server closed the connection");
}

// --- Connecting

TEST(PopSocket, CreateTakesAStreamSocketWithoutPortAndAddress) {
    CPopSocket socket;
    EXPECT_EQ(socket.Create(0, 1, nullptr), 1);
    EXPECT_EQ(socket.Create(0, 2, nullptr), 0);
    EXPECT_EQ(socket.Create(110, 1, nullptr), 0);
    EXPECT_EQ(socket.Create(0, 1, "127.0.0.1"), 0);
}

TEST(PopSocket, CreateFailsWhenThereIsNoDescriptor) {
    CPopSocket socket;
    int created = 1;
    {
        const testing::NoDescriptors none;
        created = socket.Create(0, 1, nullptr);
    }
    EXPECT_EQ(created, 0);
}

TEST(PopSocket, ConnectingUsesTheDescriptorThatCreateTook) {
    const int port = testing::UnusedPort();
    CPopSocket().PopConnect(kHost, port);  // a sanitizer's first look at the class needs descriptors of its own
    CPopSocket socket;
    ASSERT_EQ(socket.Create(0, 1, nullptr), 1);
    std::string greeting;
    {
        const testing::NoDescriptors none_more;
        greeting = socket.PopConnect(kHost, port);
    }
    EXPECT_TRUE(greeting.ends_with("Connection refused")) << greeting;
}

TEST(PopSocket, RefusedConnectionSaysSoAtOnce) {
    const int port = testing::UnusedPort();
    CPopSocket socket;
    ASSERT_EQ(socket.Create(0, 1, nullptr), 1);
    const std::string reason =
        "-ERR Disconnected: could not connect to 127.0.0.1 port " + std::to_string(port) + ": Connection refused";
    EXPECT_EQ(socket.PopConnect(kHost, port), reason);
    EXPECT_EQ(socket.SendUser("u"), reason);
    EXPECT_EQ(socket.timed_out, 0);
}

TEST(PopSocket, ImpossiblePortsAndNamesAreRefused) {
    CPopSocket socket;
    EXPECT_EQ(socket.PopConnect(kHost, 0), "-ERR Disconnected: there is no port 0");
    EXPECT_EQ(socket.PopConnect(kHost, 65536), "-ERR Disconnected: there is no port 65536");
    EXPECT_EQ(socket.PopConnect(kHost, -1), "-ERR Disconnected: there is no port -1");
    EXPECT_EQ(socket.PopConnect("", 110), "-ERR Disconnected: no server name");
    EXPECT_EQ(socket.PopConnect(std::string("a\0b", 3), 110), "-ERR Disconnected: the server name holds NUL");
}

TEST(PopSocket, UnresolvableNameSaysSoAtOnce) {
    const testing::ResolverStandIn resolver([](const std::string&) {
        return NameAnswer{{}, "Name or service not known"};
    });
    CPopSocket socket;
    EXPECT_EQ(socket.PopConnect("nowhere.example", 110),
              "-ERR Disconnected: could not look up nowhere.example: Name or service not known");
    EXPECT_EQ(socket.timed_out, 0);
}

TEST(PopSocket, LookUpThatThrowsIsAFailedLookUp) {
    const testing::ResolverStandIn resolver([](const std::string&) -> NameAnswer { throw std::bad_alloc(); });
    CPopSocket socket;
    EXPECT_EQ(socket.PopConnect("pop.example", 110),
              std::string("-ERR Disconnected: could not look up pop.example: ") + std::bad_alloc().what());
}

TEST(PopSocket, NumericAddressesAreNotLookedUp) {
    std::atomic<int> asked = 0;
    const testing::ResolverStandIn resolver([&](const std::string&) {
        ++asked;
        return NameAnswer{};
    });
    CPopSocket socket;
    for (const std::string address : {"127.0.0.1", "::1"}) socket.PopConnect(address, testing::UnusedPort());
    EXPECT_EQ(asked, 0);
    socket.PopConnect("pop.example", 110);
    EXPECT_EQ(asked, 1);
}

TEST(PopSocket, NamesAreLookedUpInTheSystem) {
    ScriptedServer server([](Peer& peer) { peer.Send("+OK ready\r\n"); });
    CPopSocket socket;
    EXPECT_EQ(socket.PopConnect("localhost", server.Port()), "+OK ready");
}

TEST(PopSocket, StalledLookUpEndsWithTheTimeOut) {
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    const testing::ResolverStandIn resolver([released](const std::string&) {
        released.wait();
        return NameAnswer{};
    });
    CPopSocket socket;
    socket.SetTimeOut(1);
    const Stopwatch watch;
    EXPECT_EQ(socket.PopConnect("pop.example", 110), "-ERR Timeout: looking up pop.example took too long");
    EXPECT_EQ(socket.timed_out, 1);
    EXPECT_GE(watch.Elapsed(), 1s);
    EXPECT_LT(watch.Elapsed(), 5s);
    release.set_value();
}

TEST(PopSocket, EveryAddressIsTriedInTurn) {
    const auto greet = [](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.WaitForClose();
    };
    struct Case {
        std::string listens_on;
        std::vector<std::string> addresses;
    };
    for (const Case& c : {Case{"127.0.0.1", {"::1", "127.0.0.3", "127.0.0.1"}},
                          Case{"::1", {"127.0.0.3", "127.0.0.4", "::1"}}, Case{"::1", {"::1"}}}) {
        ScriptedServer server(greet, c.listens_on);
        const testing::ResolverStandIn resolver(c.addresses);
        CPopSocket socket;
        ASSERT_EQ(socket.Create(0, 1, nullptr), 1);
        EXPECT_EQ(socket.PopConnect("pop.example", server.Port()), "+OK ready");
    }
}

TEST(PopSocket, AddressThatSwallowsEverythingLeavesTimeForTheOthers) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.WaitForClose();
    });
    const testing::BlackHole hole("127.0.0.2", server.Port());
    const testing::ResolverStandIn resolver({"127.0.0.2", "127.0.0.1"});
    CPopSocket socket;
    socket.SetTimeOut(4);
    const Stopwatch watch;
    EXPECT_EQ(socket.PopConnect("pop.example", server.Port()), "+OK ready");
    EXPECT_LT(watch.Elapsed(), 4s);
    EXPECT_EQ(socket.timed_out, 0);
}

TEST(PopSocket, ConnectingEndsWithTheTimeOutForAllAddressesTogether) {
    const testing::BlackHole hole;
    const testing::ResolverStandIn resolver(std::vector<std::string>(10, kHost));
    CPopSocket socket;
    socket.SetTimeOut(1);
    const Stopwatch watch;
    EXPECT_EQ(socket.PopConnect("pop.example", hole.Port()), "-ERR Timeout: could not connect to 127.0.0.1 port " +
                                                                 std::to_string(hole.Port()) + ": no answer in time");
    EXPECT_EQ(socket.timed_out, 1);
    EXPECT_GE(watch.Elapsed(), 1s);
    EXPECT_LT(watch.Elapsed(), 3s);
}

TEST(PopSocket, ConnectsAnewAfterAFailure) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.WaitForClose();
    });
    CPopSocket socket;
    ASSERT_EQ(socket.Create(0, 1, nullptr), 1);
    EXPECT_TRUE(socket.PopConnect(kHost, testing::UnusedPort()).starts_with("-ERR Disconnected"));
    EXPECT_EQ(socket.PopConnect(kHost, server.Port()), "+OK ready");
}

// --- Not connected

TEST(PopSocket, SocketThatWasNeverConnectedAnswersAtOnce) {
    CPopSocket socket;
    std::string reply;
    EXPECT_EQ(socket.SendUser("u"), "-ERR Disconnected: not connected");
    socket.SendUidl(&reply);
    EXPECT_EQ(reply, "-ERR Disconnected: not connected");
    ASSERT_EQ(socket.Create(0, 1, nullptr), 1);
    EXPECT_EQ(socket.SendQuit(), "-ERR Disconnected: not connected");
    EXPECT_EQ(socket.timed_out, 0);
}

TEST(PopSocket, ClosedSocketAnswersAtOnceAndTheServerSeesTheEnd) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.WaitForClose();
    });
    GreetedSocket socket(server);
    socket.Close();
    EXPECT_EQ(server.Transcript(), "S: +OK ready\nC: (closed)\n");
    EXPECT_EQ(socket.SendUser("u"), "-ERR Disconnected: the connection is closed");
    socket.Close();
}

TEST(PopSocket, NothingFollowsQuit) {
    ScriptedServer server(AnswersOnce("+OK bye\r\nand more\r\n"));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.SendQuit(), "+OK bye");
    EXPECT_EQ(socket.SendQuit(), "-ERR Disconnected: the connection is closed");
    EXPECT_EQ(server.Transcript(), "S: +OK ready\nC: QUIT\nS: +OK bye\nS: and more\nC: (closed)\n");
}

// --- Time

TEST(PopSocket, ZeroAndNegativeTimeOutsCountAs30Seconds) {
    struct Probe : CPopSocket {
        using CBaseSocket::TimeOut;
    };
    Probe socket;
    EXPECT_EQ(socket.TimeOut(), 30s);
    socket.SetTimeOut(7);
    EXPECT_EQ(socket.TimeOut(), 7s);
    socket.SetTimeOut(0);
    EXPECT_EQ(socket.TimeOut(), 30s);
    socket.SetTimeOut(7);
    socket.SetTimeOut(-7);
    EXPECT_EQ(socket.TimeOut(), 30s);
}

TEST(PopSocket, LongestTimeOutDoesNotOverflow) {
    ScriptedServer server(AfterCommand([](Peer& peer) { peer.Drip("+OK\r\n", 20ms); }));
    GreetedSocket socket(server, std::numeric_limits<int>::max());
    EXPECT_EQ(socket.SendUser("u"), "+OK");
}

TEST(PopSocket, SilentServerTimesOut) {
    ScriptedServer server([](Peer& peer) { peer.WaitForClose(); });
    CPopSocket socket;
    socket.SetTimeOut(1);
    const Stopwatch watch;
    EXPECT_EQ(socket.PopConnect(kHost, server.Port()), "-ERR Timeout: no answer in time");
    EXPECT_EQ(socket.timed_out, 1);
    EXPECT_GE(watch.Elapsed(), 1s);
    EXPECT_LT(watch.Elapsed(), 5s);
    EXPECT_EQ(server.Transcript(), "C: (closed)\n");
}

TEST(PopSocket, AfterATimeOutEverythingAnswersTheSameWithoutWaiting) {
    ScriptedServer server(AfterCommand([](Peer& peer) { peer.WaitForClose(); }));
    GreetedSocket socket(server, 1);
    EXPECT_EQ(socket.timed_out, 0);
    EXPECT_EQ(socket.SendUser("u"), "-ERR Timeout: no answer in time");
    EXPECT_EQ(socket.timed_out, 1);
    socket.SetTimeOut(60);
    const Stopwatch watch;
    EXPECT_EQ(socket.SendPassWord("p"), "-ERR Timeout: no answer in time");
    EXPECT_EQ(socket.Uidl(), "-ERR Timeout: no answer in time");
    EXPECT_EQ(socket.Retr(), "-ERR Timeout: no answer in time");
    EXPECT_EQ(socket.SendQuit(), "-ERR Timeout: no answer in time");
    socket.Close();
    EXPECT_EQ(socket.SendQuit(), "-ERR Timeout: no answer in time");
    EXPECT_EQ(socket.timed_out, 1);
    EXPECT_LT(watch.Elapsed(), 1s);
    EXPECT_EQ(server.Transcript(), "S: +OK ready\nC: USER u\nC: (closed)\n");
}

TEST(PopSocket, TimedOutIsZeroAgainOnANewConnection) {
    ScriptedServer server(std::vector<ScriptedServer::Session>{[](Peer& peer) { peer.WaitForClose(); },
                                                               [](Peer& peer) {
                                                                   peer.Send("+OK ready\r\n");
                                                                   peer.WaitForClose();
                                                               }});
    CPopSocket socket;
    socket.SetTimeOut(1);
    EXPECT_EQ(socket.PopConnect(kHost, server.Port()), "-ERR Timeout: no answer in time");
    EXPECT_EQ(socket.timed_out, 1);
    EXPECT_EQ(socket.PopConnect(kHost, server.Port()), "+OK ready");
    EXPECT_EQ(socket.timed_out, 0);
}

TEST(PopSocket, DrippedReplyMustBeCompleteWithinTheTimeOut) {
    struct Case {
        std::string name;
        std::function<std::string(GreetedSocket&)> exchange;
    };
    const std::vector<Case> cases = {
        {"USER", [](GreetedSocket& socket) { return socket.SendUser("u"); }},
        {"UIDL", [](GreetedSocket& socket) { return socket.Uidl(); }},
        {"RETR", [](GreetedSocket& socket) { return socket.Retr(); }},
    };
    for (const Case& c : cases) {
        ScriptedServer server(AfterCommand([](Peer& peer) { peer.Drip("+OK " + std::string(80, 'x'), 100ms); }));
        GreetedSocket socket(server, 1);
        const Stopwatch watch;
        EXPECT_EQ(c.exchange(socket), "-ERR Timeout: no answer in time") << c.name;
        EXPECT_EQ(socket.timed_out, 1) << c.name;
        EXPECT_GE(watch.Elapsed(), 1s) << c.name;
        EXPECT_LT(watch.Elapsed(), 5s) << c.name;
    }
}

TEST(PopSocket, DrippedGreetingMustBeCompleteWithinTheTimeOut) {
    ScriptedServer server([](Peer& peer) { peer.Drip("+OK " + std::string(80, 'x'), 100ms); });
    CPopSocket socket;
    socket.SetTimeOut(1);
    const Stopwatch watch;
    EXPECT_EQ(socket.PopConnect(kHost, server.Port()), "-ERR Timeout: no answer in time");
    EXPECT_LT(watch.Elapsed(), 5s);
}

TEST(PopSocket, MultiLineAnswerOnlyHasToGoOn) {
    const std::string text = "+OK\r\nslow but steady\r\n.\r\n";
    ScriptedServer server(AfterCommand([&](Peer& peer) {
        peer.Send(text.substr(0, 5));
        peer.Drip(text.substr(5), 100ms);
    }));
    GreetedSocket socket(server, 1);
    const Stopwatch watch;
    EXPECT_EQ(socket.Retr(), text);
    EXPECT_EQ(socket.timed_out, 0);
    EXPECT_GT(watch.Elapsed(), 1s);
}

TEST(PopSocket, MultiLineAnswerMustKeepToTheLeastRate) {
    const std::string text = "+OK\r\nslow but steady\r\n.\r\n";
    for (const int least_bytes : {1, 100}) {
        ScriptedServer server(AfterCommand([&](Peer& peer) {
            peer.Send(text.substr(0, 5));
            peer.Drip(text.substr(5), 50ms);
        }));
        GreetedSocket socket(server, 15);
        socket.SetLeastRate(least_bytes, 200ms);
        EXPECT_EQ(socket.Retr(), least_bytes == 1 ? text : "-ERR Timeout: the answer comes too slowly");
        EXPECT_EQ(socket.timed_out, least_bytes == 1 ? 0 : 1);
    }
}

TEST(PopSocket, MultiLineAnswerThatStopsTimesOut) {
    for (const std::string begun : {"+OK\r\n", "+OK\r\n1 a\r\n", "+OK\r\n1 a\r\n.\r", "+OK\r\n.\n"}) {
        ScriptedServer server(AnswersOnce(begun));
        GreetedSocket socket(server, 1);
        EXPECT_EQ(socket.Uidl(), "-ERR Timeout: no answer in time");
        EXPECT_EQ(socket.timed_out, 1);
    }
}

// --- Lost connections

TEST(PopSocket, ConnectionLostBeforeTheGreeting) {
    ScriptedServer server(std::vector<ScriptedServer::Session>{[](Peer& peer) { peer.Close(); },
                                                               [](Peer& peer) { peer.Reset(); },
                                                               [](Peer& peer) {
                                                                   peer.Send("+OK read");
                                                                   peer.Close();
                                                               }});
    for (int i = 0; i < 3; ++i) {
        CPopSocket socket;
        EXPECT_TRUE(socket.PopConnect(kHost, server.Port()).starts_with("-ERR Disconnected: "));
        EXPECT_EQ(socket.timed_out, 0);
    }
}

TEST(PopSocket, ConnectionLostWithinAnAnswer) {
    for (const std::string begun : {"", "+", "+OK", "+OK\r", "+OK\r\n", "+OK\r\n1 a\r\n", "+OK\r\n.\r"}) {
        ScriptedServer server(AfterCommand([&](Peer& peer) {
            if (!begun.empty()) peer.Send(begun);
            peer.Close();
            peer.WaitForClose();
        }));
        GreetedSocket socket(server);
        const std::string lost = "-ERR Disconnected: the server closed the connection";
        EXPECT_EQ(socket.Retr(), lost) << begun;
        EXPECT_EQ(socket.timed_out, 0);
        EXPECT_EQ(socket.SendQuit(), lost) << begun;
    }
}

TEST(PopSocket, ConnectionResetWithinAnAnswer) {
    ScriptedServer server(AfterCommand([](Peer& peer) { peer.Reset(); }));
    GreetedSocket socket(server);
    const std::string lost = WithResetAsSeen("-ERR Disconnected: connection lost: Connection reset by peer");
    EXPECT_EQ(WithResetAsSeen(socket.SendUser("u")), lost);
    EXPECT_EQ(WithResetAsSeen(socket.SendQuit()), lost);
}

TEST(PopSocket, ConnectionLostBetweenCommandsIsNoticedBeforeTheNext) {
    ScriptedServer server(AfterCommand([](Peer& peer) {
        peer.Send("+OK\r\n");
        peer.Close();
    }));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.SendUser("u"), "+OK");
    WaitForEndOfSession(server);
    EXPECT_EQ(socket.SendPassWord("p"), "-ERR Disconnected: the server closed the connection");
}

// --- What comes out of turn

TEST(PopSocket, BytesBehindAReplyEndTheConnectionBeforeTheNextCommand) {
    ScriptedServer server(AnswersOnce("+OK\r\n+OK in advance\r\n"));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.SendUser("u"), "+OK");
    EXPECT_EQ(socket.timed_out, 0);
    const std::string reason = "-ERR Disconnected: unexpected data from the server: +OK in advance??";
    EXPECT_EQ(socket.SendPassWord("p"), reason);
    EXPECT_EQ(socket.SendQuit(), reason);
    EXPECT_EQ(server.Transcript(), "S: +OK ready\nC: USER u\nS: +OK\nS: +OK in advance\nC: (closed)\n");
}

TEST(PopSocket, BytesBehindAMultiLineAnswerEndTheConnectionBeforeTheNextCommand) {
    ScriptedServer server(AnswersOnce("+OK\r\n1 a\r\n.\r\nX"));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.Uidl(), "+OK\r\n1 a\r\n.\r\n");
    EXPECT_EQ(socket.SendQuit(), "-ERR Disconnected: unexpected data from the server: X");
}

TEST(PopSocket, BytesBetweenTwoCommandsEndTheConnection) {
    ScriptedServer server(AfterCommand([](Peer& peer) {
        peer.Send("+OK\r\n");
        peer.Send("-ERR autologout\r\n");
        peer.Close();
    }));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.SendUser("u"), "+OK");
    WaitForEndOfSession(server);
    EXPECT_EQ(socket.SendPassWord("p"), "-ERR Disconnected: unexpected data from the server: -ERR autologout??");
}

TEST(PopSocket, LongUnexpectedDataIsShortenedInTheReason) {
    ScriptedServer server(AnswersOnce("+OK\r\n" + std::string(5000, '\x1b')));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.SendUser("u"), "+OK");
    EXPECT_EQ(socket.SendQuit(), "-ERR Disconnected: unexpected data from the server: " + std::string(80, '?') + "...");
}

// --- Limits

std::string LineOf(std::size_t bytes) {
    std::string line(bytes - 2, 'x');
    line.front() = '+';
    return line + "\r\n";
}

TEST(PopSocket, LongestReplyLineIsTaken) {
    const std::string line = LineOf(kMaxReplyLineBytes);
    ScriptedServer server(AnswersOnce(line));
    GreetedSocket socket(server);
    EXPECT_TRUE(socket.SendUser("u") + "\r\n" == line);
}

TEST(PopSocket, LongerReplyLineEndsTheConnection) {
    for (const std::string& line : {LineOf(kMaxReplyLineBytes + 1), "+" + std::string(kMaxReplyLineBytes, 'x')}) {
        ScriptedServer server(AfterCommand([&](Peer& peer) {
            peer.SendUnrecorded(line);
            peer.WaitForClose();
        }));
        GreetedSocket socket(server);
        const std::string reason = "-ERR Disconnected: a reply line is over the limit of 65536 bytes";
        EXPECT_EQ(socket.SendUser("u"), reason);
        EXPECT_EQ(socket.SendQuit(), reason);
    }
}

// Sends an answer with so many bytes between its status line and its "." line.
void SendAnswer(Peer& peer, std::size_t bytes) {
    std::string block(1'048'576, 'x');
    block.replace(block.size() - 2, 2, "\r\n");
    peer.SendUnrecorded("+OK\r\n");
    for (; bytes > 2 * block.size(); bytes -= block.size()) peer.SendUnrecorded(block);
    peer.SendUnrecorded(std::string(bytes - 2, 'y') + "\r\n");
    peer.SendUnrecorded(".\r\n");
}

TEST(PopSocket, LongestListingIsTaken) {
    ScriptedServer server(AfterCommand([](Peer& peer) {
        SendAnswer(peer, kMaxListingBytes);
        peer.WaitForClose();
    }));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.Uidl().size(), kMaxListingBytes + 8);
}

TEST(PopSocket, LongerListingEndsTheConnection) {
    for (const std::string command : {"UIDL", "LIST"}) {
        ScriptedServer server(AfterCommand([](Peer& peer) { SendAnswer(peer, kMaxListingBytes + 1); }));
        GreetedSocket socket(server);
        const std::string reason =
            "-ERR Disconnected: the answer to " + command + " is over the limit of 67108864 bytes";
        EXPECT_EQ(command == "UIDL" ? socket.Uidl() : socket.List(), reason);
        EXPECT_EQ(socket.List(), reason);
        EXPECT_EQ(socket.timed_out, 0);
    }
}

TEST(PopSocket, LongestMessageIsTakenAndALongerOneSkipped) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.Expect("RETR 1");
        SendAnswer(peer, kMaxMessageBytes);
        peer.Expect("RETR 2");
        SendAnswer(peer, kMaxMessageBytes + 1);
        peer.Expect("RETR 3");
        peer.Send("+OK\r\nsmall\r\n.\r\n");
        peer.WaitForClose();
    });
    GreetedSocket socket(server);
    std::string text;
    socket.SendRetr("1", &text);
    EXPECT_EQ(text.size(), kMaxMessageBytes + 8);
    socket.SendRetr("2", &text);
    EXPECT_EQ(text, "-ERR the message is over the limit of 268435456 bytes");
    EXPECT_LT(text.capacity(), 1024U);
    EXPECT_EQ(socket.Retr("3"), "+OK\r\nsmall\r\n.\r\n");
    socket.Close();
    EXPECT_EQ(server.Transcript(),
              "S: +OK ready\nC: RETR 1\nC: RETR 2\nC: RETR 3\nS: +OK\nS: small\nS: .\nC: (closed)\n");
}

// --- Arguments

TEST(PopSocket, ArgumentsWithLineEndsOrNulAreNeverSent) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.Expect("USER alice");
        peer.Send("+OK\r\n");
        peer.WaitForClose();
    });
    GreetedSocket socket(server);
    const std::string refused = "-ERR an argument with CR, LF or NUL was not sent";
    for (const std::string& bad : {std::string("a\r\nDELE 1"), std::string("a\n"), std::string("\ra"),
                                   std::string("a\0b", 3), std::string("\r\n")}) {
        EXPECT_EQ(socket.SendUser(bad), refused);
        EXPECT_EQ(socket.SendPassWord(bad), refused);
        EXPECT_EQ(socket.SendAPOP(bad, "p", "<t>"), refused);
        EXPECT_EQ(socket.SendDelete(bad), refused);
        EXPECT_EQ(socket.Retr(bad), refused);
    }
    EXPECT_EQ(socket.timed_out, 0);
    EXPECT_EQ(socket.SendUser("alice"), "+OK");
    socket.Close();
    EXPECT_EQ(server.Transcript(), "S: +OK ready\nC: USER alice\nS: +OK\nC: (closed)\n");
}

TEST(PopSocket, WhatIsOnlyDigestedMayHoldAnything) {
    ScriptedServer server(AnswersOnce("+OK\r\n"));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.SendAPOP("u", "pass\r\nword", "<t>"), "+OK");
}

// --- Interruption

// Runs this on a worker, terminates it when the server says so, and returns what the worker got.
std::string AnswerOfInterrupted(std::future<void> stalled, const std::function<std::string()>& work) {
    std::string answer;
    testing::InterruptedWorker worker([&] { answer = work(); });
    EXPECT_TRUE(testing::Happens(stalled));
    EXPECT_LT(worker.Terminate(), 5s);
    return answer;
}

TEST(PopSocket, InterruptedWhileWaitingForAReply) {
    std::promise<void> stalls;
    ScriptedServer server(AfterCommand([&](Peer& peer) {
        stalls.set_value();
        peer.WaitForClose();
    }));
    const std::string answer = AnswerOfInterrupted(stalls.get_future(), [&] {
        GreetedSocket socket(server);
        const std::string first = socket.SendUser("u");
        const std::string then = socket.SendPassWord("p");
        EXPECT_EQ(socket.timed_out, 0);
        EXPECT_EQ(socket.PopConnect(kHost, server.Port()), "-ERR Disconnected: interrupted");
        return first + "|" + then + "|" + socket.SendQuit();
    });
    EXPECT_EQ(answer, "-ERR Disconnected: interrupted|-ERR Disconnected: interrupted|-ERR Disconnected: interrupted");
    EXPECT_EQ(server.Transcript(), "S: +OK ready\nC: USER u\nC: (closed)\n");
}

TEST(PopSocket, InterruptedWithinAMessage) {
    std::promise<void> stalls;
    ScriptedServer server(AfterCommand([&](Peer& peer) {
        peer.Send("+OK\r\nhalf");
        stalls.set_value();
        peer.WaitForClose();
    }));
    EXPECT_EQ(AnswerOfInterrupted(stalls.get_future(), [&] { return GreetedSocket(server).Retr(); }),
              "-ERR Disconnected: interrupted");
}

TEST(PopSocket, InterruptedWhileTheServerNeverPauses) {
    std::promise<void> flows;
    ScriptedServer server(AfterCommand([&](Peer& peer) {
        peer.SendUnrecorded("+OK\r\n");
        const std::string block(1 << 20, 'x');
        for (int i = 0;; ++i) {
            if (i == 4) flows.set_value();
            peer.SendUnrecorded(block);
        }
    }));
    EXPECT_EQ(AnswerOfInterrupted(flows.get_future(), [&] { return GreetedSocket(server).Retr(); }),
              "-ERR Disconnected: interrupted");
}

TEST(PopSocket, InterruptedWhileConnecting) {
    const testing::BlackHole hole;
    std::string answer;
    testing::InterruptedWorker worker([&] {
        CPopSocket socket;
        socket.SetTimeOut(kLong_s);
        socket.Create(0, 1, nullptr);
        answer = socket.PopConnect(kHost, hole.Port());
    });
    hole.WaitUntilSomebodyConnects();
    EXPECT_LT(worker.Terminate(), 5s);
    EXPECT_EQ(answer, "-ERR Disconnected: interrupted");
}

TEST(PopSocket, InterruptedWhileLookingUp) {
    std::promise<void> asked;
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    const testing::ResolverStandIn resolver([&asked, released](const std::string&) {
        asked.set_value();
        released.wait();
        return NameAnswer{};
    });
    const std::string answer = AnswerOfInterrupted(asked.get_future(), [&] {
        CPopSocket socket;
        socket.SetTimeOut(kLong_s);
        return socket.PopConnect("pop.example", 110);
    });
    release.set_value();
    EXPECT_EQ(answer, "-ERR Disconnected: interrupted");
}

}  // namespace
}  // namespace tarvex
