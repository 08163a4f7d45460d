// The SMTP socket against scripted servers: replies, the message, and what comes at the wrong time.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "platform/net/limits.h"
#include "platform/net/sockets.h"
#include "testing/scripted_server.h"
#include "tests/platform/net/socket_tools.h"
#include "tests/support/net_tools.h"
#include "tests/support/reset.h"

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

constexpr auto AfterCommand = testing::AfterCommandTo<CSmtpSocket>;
constexpr auto AnswersOnce = testing::AnswerOnceTo<CSmtpSocket>;

// The socket of a conversation whose greeting was taken.
class GreetedSocket : public testing::Greeted<CSmtpSocket> {
public:
    using Greeted::Greeted;
    std::string Data(const std::string& text, DataForm form = DataForm::Fetched) { return SendData(&text, form); }
    std::string Ehlo() {
        std::string host = "client.example";
        return SendEHello(&host);
    }
    // EHLO, HELO and the envelope with this argument.
    std::vector<std::string> WithArgument(std::string argument) {
        return {SendEHello(&argument), SendHello(&argument), SendMailFrom(&argument), SendRcptTo(&argument)};
    }
};

// Far more than the system holds between two ends that do not read, in lines.
std::string LargeMessage() {
    std::string message;
    for (int i = 0; i < 16; ++i) message += std::string(4'000'000, static_cast<char>('a' + i)) + "\r\n";
    return message;
}

TEST(SmtpSocket, WholeConversation) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("220 ready\r\n");
        peer.Expect("EHLO client.example");
        peer.Send("250-server\r\n250-SIZE 1000\r\n250 HELP\r\n");
        peer.Expect("RSET");
        peer.Send("250\r\n");
        peer.Expect("HELO client.example");
        peer.Send("250 server\r\n");
        peer.Expect("AUTH LOGIN");
        peer.Send("334 VXNlcm5hbWU6\r\n");
        peer.Expect("dXNlcg==");
        peer.Send("334 UGFzc3dvcmQ6\r\n");
        peer.Expect("cGFzcw==");
        peer.Send("535 no\r\n");
        peer.Expect("AUTH PLAIN");
        peer.Send("334 \r\n");
        peer.Expect("AHVzZXIAcGFzcw==");
        peer.Send("235 yes\r\n");
        peer.Expect("MAIL FROM:<a@x>");
        peer.Send("250 2.1.0 ok\r\n");
        peer.Expect("RCPT TO:<b@y>");
        peer.Send("250-2.1.5\r\n250 ok\r\n");
        peer.Expect("DATA");
        peer.Send("354 go\r\n");
        EXPECT_EQ(peer.ReadMessage(), "Subject: x\r\n\r\n..dot\r\nend\r\n.\r\n");
        peer.Send("250 queued\r\n");
        peer.Expect("QUIT");
        peer.Send("221 bye\r\n");
        peer.WaitForClose();
    });
    GreetedSocket socket(server);
    std::string host = "client.example";
    std::string sender = "<a@x>";
    std::string recipient = "<b@y>";
    EXPECT_EQ(socket.SendEHello(&host), "250-server\r\n250-SIZE 1000\r\n250 HELP");
    EXPECT_EQ(socket.SendReset(), "250");
    EXPECT_EQ(socket.SendHello(&host), "250 server");
    EXPECT_EQ(socket.SendAuth("LOGIN"), "334 VXNlcm5hbWU6");
    EXPECT_EQ(socket.SendUser("dXNlcg=="), "334 UGFzc3dvcmQ6");
    EXPECT_EQ(socket.SendPassWord("cGFzcw=="), "535 no");
    EXPECT_EQ(socket.SendAuth("PLAIN"), "334 ");
    EXPECT_EQ(socket.SendCommand("AHVzZXIAcGFzcw==\r\n"), "235 yes");
    EXPECT_EQ(socket.SendMailFrom(&sender), "250 2.1.0 ok");
    EXPECT_EQ(socket.SendRcptTo(&recipient), "250-2.1.5\r\n250 ok");
    EXPECT_EQ(socket.Data("Subject: x\r\n\r\n..dot\r\nend\r\n.\r\n"), "250 queued");
    EXPECT_EQ(socket.SendQuit(), "221 bye");
    EXPECT_EQ(socket.timed_out, 0);
    EXPECT_EQ(socket.SendQuit(), "421 the connection is closed");
    EXPECT_EQ(server.Transcript(),
              "S: 220 ready\nC: EHLO client.example\nS: 250-server\nS: 250-SIZE 1000\nS: 250 HELP\n"
              "C: RSET\nS: 250\nC: HELO client.example\nS: 250 server\n"
              "C: AUTH LOGIN\nS: 334 VXNlcm5hbWU6\nC: dXNlcg==\nS: 334 UGFzc3dvcmQ6\nC: cGFzcw==\nS: 535 no\n"
              "C: AUTH PLAIN\nS: 334 \nC: AHVzZXIAcGFzcw==\nS: 235 yes\n"
              "C: MAIL FROM:<a@x>\nS: 250 2.1.0 ok\nC: RCPT TO:<b@y>\nS: 250-2.1.5\nS: 250 ok\n"
              "C: DATA\nS: 354 go\nC: (message of 29 bytes)\nS: 250 queued\nC: QUIT\nS: 221 bye\nC: (closed)\n");
}

TEST(SmtpSocket, CramMd5AnswersTheChallengeOfRfc2195) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("220 ready\r\n");
        peer.Expect("AUTH CRAM-MD5");
        peer.Send("334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+\r\n");
        peer.Expect("dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw");
        peer.Send("235 yes\r\n");
    });
    GreetedSocket socket(server);
    EXPECT_TRUE(socket.SendAuth("CRAM-MD5").starts_with("334"));
    EXPECT_EQ(socket.SendMD5Auth("tim", "tanstaaftanstaaf", "<1896.697170952@postoffice.reston.mci.net>"), "235 yes");
}

TEST(SmtpSocket, RepliesAreWholeHoweverTheyArrive) {
    for (const std::size_t piece_bytes : {1U, 2U, 3U, 7U, 4096U}) {
        ScriptedServer server([&](Peer& peer) {
            peer.Drip("220 ready\r\n", 1ms, piece_bytes);
            peer.ReadLine();
            peer.Drip("250-server\r\n250-AUTH PLAIN\r\n250\r\n", 1ms, piece_bytes);
            peer.ReadLine();
            peer.Drip("354-go\n354 on\n", 1ms, piece_bytes);
            peer.ReadMessage();
            peer.Drip("250-a\r\n250 b\r\n", 1ms, piece_bytes);
        });
        GreetedSocket socket(server);
        EXPECT_EQ(socket.Ehlo(), "250-server\r\n250-AUTH PLAIN\r\n250");
        EXPECT_EQ(socket.Data("a\r\n"), "250-a\r\n250 b");
    }
}

TEST(SmtpSocket, AReplyEndsWithTheLineWithoutAHyphenAsItsFourthCharacter) {
    const std::vector<std::string> replies = {
        "",
        "2",
        "25",
        "+OK",
        "250",
        "2500",
        "250x",
        "250\tok",
        "25x no",
        " 250 ok",
        "-250-ok",
        "250 -ok",
        "250-a\r\n550 b",
        "250-a\r\nb-c",
        "25x-a\r\n-",
        "250-a\r\n",
        "\0"s,
        "25\0 x"s,
        "250\0-x"s,
        "250-a\0b\r\n250 \r\0"s,
    };
    ScriptedServer server([&](Peer& peer) {
        peer.Send("220 ready\r\n");
        for (const std::string& reply : replies) {
            peer.ReadLine();
            peer.Send(reply + "\r\n");
        }
        peer.WaitForClose();
    });
    GreetedSocket socket(server);
    for (const std::string& reply : replies) EXPECT_EQ(socket.Ehlo(), reply);
}

TEST(SmtpSocket, BytesBehindAReplyEndTheConnectionBeforeTheNextCommand) {
    ScriptedServer server(AnswersOnce("250 ok\r\n250 in advance\r\n"));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.SendReset(), "250 ok");
    const std::string reason = "421 unexpected data from the server: 250 in advance??";
    EXPECT_EQ(socket.SendReset(), reason);
    EXPECT_EQ(socket.SendQuit(), reason);
    EXPECT_EQ(server.Transcript(), "S: 220 ready\nC: RSET\nS: 250 ok\nS: 250 in advance\nC: (closed)\n");
}

TEST(SmtpSocket, BytesBetweenTwoCommandsEndTheConnection) {
    ScriptedServer server(AfterCommand([](Peer& peer) {
        peer.Send("250 ok\r\n");
        peer.Send("421 idle too long\r\n");
        peer.Close();
    }));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.SendReset(), "250 ok");
    server.Transcript();
    EXPECT_EQ(socket.SendReset(), "421 unexpected data from the server: 421 idle too long??");
}

TEST(SmtpSocket, RefusedAndUnresolvableConnectionsSaySoAtOnce) {
    const int port = testing::UnusedPort();
    CSmtpSocket socket;
    ASSERT_EQ(socket.Create(0, 1, nullptr), 1);
    const std::string refused =
        "421 could not connect to 127.0.0.1 port " + std::to_string(port) + ": Connection refused";
    EXPECT_EQ(socket.SmtpConnect(kHost, port), refused);
    EXPECT_EQ(socket.SendQuit(), refused);
    const testing::ResolverStandIn resolver([](const std::string&) { return NameAnswer{{}, "no such name"}; });
    EXPECT_EQ(socket.SmtpConnect("smtp.example", 25), "421 could not look up smtp.example: no such name");
    EXPECT_EQ(socket.timed_out, 0);
}

TEST(SmtpSocket, SocketThatIsNotConnectedAnswersAtOnce) {
    CSmtpSocket socket;
    const std::string text = "a\r\n";
    EXPECT_EQ(socket.SendReset(), "421 not connected");
    EXPECT_EQ(socket.SendData(&text), "421 not connected");
    EXPECT_EQ(socket.timed_out, 0);
}

// --- Time

TEST(SmtpSocket, SilentAndDrippingServersTimeOut) {
    for (const std::string& drip : {std::string(), "250 " + std::string(80, 'x')}) {
        ScriptedServer server(AfterCommand([&](Peer& peer) {
            peer.Drip(drip, 100ms);
            peer.WaitForClose();
        }));
        GreetedSocket socket(server, 1);
        EXPECT_EQ(socket.timed_out, 0);
        const Stopwatch watch;
        EXPECT_EQ(socket.SendReset(), "421 no answer in time");
        EXPECT_EQ(socket.timed_out, 1);
        EXPECT_GE(watch.Elapsed(), 1s);
        EXPECT_LT(watch.Elapsed(), 5s);
        socket.SetTimeOut(60);
        const Stopwatch after;
        EXPECT_EQ(socket.Data("a\r\n"), "421 no answer in time");
        EXPECT_EQ(socket.SendQuit(), "421 no answer in time");
        EXPECT_EQ(socket.timed_out, 1);
        EXPECT_LT(after.Elapsed(), 1s);
    }
}

TEST(SmtpSocket, MultiLineReplyHasTheFullTimeForEachLine) {
    ScriptedServer server(AfterCommand([](Peer& peer) {
        peer.Drip("250-a\r\n250-b\r\n250 c\r\n", 80ms);  // half a second a line
        peer.WaitForClose();
    }));
    GreetedSocket socket(server, 1);
    const Stopwatch watch;
    EXPECT_EQ(socket.Ehlo(), "250-a\r\n250-b\r\n250 c");
    EXPECT_GT(watch.Elapsed(), 1s);
    EXPECT_EQ(socket.timed_out, 0);
}

TEST(SmtpSocket, LineOfAMultiLineReplyThatDripsTooSlowlyTimesOut) {
    ScriptedServer server(AfterCommand([](Peer& peer) { peer.Drip("250-a\r\n250 " + std::string(80, 'x'), 100ms); }));
    GreetedSocket socket(server, 1);
    EXPECT_EQ(socket.Ehlo(), "421 no answer in time");
    EXPECT_EQ(socket.timed_out, 1);
}

// --- Limits and arguments

TEST(SmtpSocket, LongestReplyIsTakenAndALongerOneEndsTheConnection) {
    for (const std::size_t excess_bytes : {0U, 1U}) {
        std::string reply;
        while (reply.size() < kMaxSmtpReplyBytes - 2048) reply += "250-" + std::string(1000, 'x') + "\r\n";
        const std::size_t rest_bytes = kMaxSmtpReplyBytes + excess_bytes - reply.size();
        reply += "250 " + std::string(rest_bytes - 6, 'y') + "\r\n";
        ScriptedServer server(AnswersOnce(reply));
        GreetedSocket socket(server);
        if (excess_bytes == 0) {
            EXPECT_TRUE(socket.Ehlo() + "\r\n" == reply);
        } else {
            EXPECT_EQ(socket.Ehlo(), "421 a reply is over the limit of 65536 bytes");
            EXPECT_EQ(socket.SendQuit(), "421 a reply is over the limit of 65536 bytes");
        }
    }
}

TEST(SmtpSocket, LongestReplyLineIsTakenAndALongerOneEndsTheConnection) {
    for (const std::size_t excess_bytes : {0U, 1U}) {
        std::string reply(kMaxReplyLineBytes + excess_bytes - 2, 'x');
        reply.replace(0, 4, "250 ");
        ScriptedServer server(AnswersOnce(reply + "\r\n"));
        GreetedSocket socket(server);
        EXPECT_TRUE(socket.Ehlo() == (excess_bytes == 0 ? reply : "421 a reply line is over the limit of 65536 bytes"));
    }
}

TEST(SmtpSocket, EndlessReplyEndsTheConnection) {
    ScriptedServer server(AfterCommand([](Peer& peer) {
        for (;;) peer.SendUnrecorded("250-more and more\r\n");
    }));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.Ehlo(), "421 a reply is over the limit of 65536 bytes");
}

TEST(SmtpSocket, ArgumentsWithLineEndsOrNulAreNeverSent) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("220 ready\r\n");
        peer.Expect("RSET");
        peer.Send("250 ok\r\n");
        peer.WaitForClose();
    });
    GreetedSocket socket(server);
    const std::string refused = "501 an argument with CR, LF or NUL was not sent";
    for (const std::string& bad : {std::string("<a>\r\nDATA"), std::string("a\n"), std::string("\ra"),
                                   std::string("a\0b", 3), std::string("\r\n")}) {
        for (const std::string& reply : socket.WithArgument(bad)) EXPECT_EQ(reply, refused);
        EXPECT_EQ(socket.SendAuth(bad), refused);
        EXPECT_EQ(socket.SendUser(bad), refused);
        EXPECT_EQ(socket.SendPassWord(bad), refused);
        EXPECT_EQ(socket.SendMD5Auth(bad, "password", "challenge"), refused);
        EXPECT_EQ(socket.SendCommand(bad + "\r\n"), refused);
    }
    EXPECT_EQ(socket.timed_out, 0);
    EXPECT_EQ(socket.SendReset(), "250 ok");
    socket.Close();
    EXPECT_EQ(server.Transcript(), "S: 220 ready\nC: RSET\nS: 250 ok\nC: (closed)\n");
}

// --- The message

// What goes over the wire after DATA, for a text.
std::string WireOf(const std::string& text, DataForm form) {
    std::promise<std::string> wire;
    ScriptedServer server(AfterCommand([&](Peer& peer) {
        peer.Send("354 go\r\n");
        wire.set_value(peer.ReadMessage());
        peer.Send("250 ok\r\n");
        peer.WaitForClose();
    }));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.Data(text, form), "250 ok");
    socket.Close();
    EXPECT_TRUE(server.Transcript().ends_with(" bytes)\nS: 250 ok\nC: (closed)\n"));
    return wire.get_future().get();
}

TEST(SmtpSocket, MessageIsFramedByTheFormTheCallerNames) {
    EXPECT_EQ(WireOf("..a\r\n.b\r\n.\r\n", DataForm::Fetched), "..a\r\n.b\r\n.\r\n");
    EXPECT_EQ(WireOf("..a\r\n.b\r\n.\r\n", DataForm::NotStuffed), "...a\r\n..b\r\n.\r\n");
    EXPECT_EQ(WireOf("a\r\n.\r\nMAIL FROM:<evil>\n.\nb", DataForm::Fetched),
              "a\r\n..\r\nMAIL FROM:<evil>\r\n..\r\nb\r\n.\r\n");
}

TEST(SmtpSocket, EmptyMessageIsSentAsAnEmptyMessage) {
    EXPECT_EQ(WireOf("", DataForm::Fetched), ".\r\n");
    EXPECT_EQ(WireOf(".\r\n", DataForm::Fetched), ".\r\n");
    EXPECT_EQ(WireOf(".\r\n", DataForm::NotStuffed), ".\r\n");
}

TEST(SmtpSocket, LargeMessageArrivesWhole) {
    const std::string message = LargeMessage();
    EXPECT_TRUE(WireOf(message, DataForm::Fetched) == message + ".\r\n");
}

TEST(SmtpSocket, NothingIsSentWhenDataIsRefused) {
    for (const std::string reply : {"503 no recipients", "451-later\r\n451 please", "334 what"}) {
        ScriptedServer server([&](Peer& peer) {
            peer.Send("220 ready\r\n");
            peer.Expect("DATA");
            peer.Send(reply + "\r\n");
            peer.Expect("RSET");
            peer.Send("250 ok\r\n");
            peer.WaitForClose();
        });
        GreetedSocket socket(server);
        EXPECT_EQ(socket.Data("a\r\n"), reply);
        EXPECT_EQ(socket.SendReset(), "250 ok");
        socket.Close();
        EXPECT_TRUE(server.Transcript().ends_with("C: RSET\nS: 250 ok\nC: (closed)\n"));
    }
}

TEST(SmtpSocket, PositiveReplyToDataNeverPassesForTheDelivery) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("220 ready\r\n");
        peer.Expect("DATA");
        peer.Send("250 ok\r\n");
        peer.Expect("QUIT");
        peer.Send("221 bye\r\n");
        peer.WaitForClose();
    });
    GreetedSocket socket(server);
    EXPECT_EQ(socket.Data("a\r\n"), "554 DATA was answered: 250 ok");
    EXPECT_EQ(socket.SendQuit(), "221 bye");
    EXPECT_EQ(server.Transcript(), "S: 220 ready\nC: DATA\nS: 250 ok\nC: QUIT\nS: 221 bye\nC: (closed)\n");
}

TEST(SmtpSocket, ReplyThatCameBeforeTheMessageNeverPassesForItsDelivery) {
    ScriptedServer server(AnswersOnce("354 go\r\n250 ok\r\n"));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.Data("a\r\n"), "421 a reply before the end of the message: 250 ok");
    EXPECT_EQ(socket.SendQuit(), "421 a reply before the end of the message: 250 ok");
    EXPECT_EQ(server.Transcript(), "S: 220 ready\nC: DATA\nS: 354 go\nS: 250 ok\nC: (closed)\n");
}

TEST(SmtpSocket, RefusalRightBehindTheInvitationIsTheResult) {
    ScriptedServer server(AnswersOnce("354 go\r\n554 changed my mind\r\n"));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.Data("a\r\n"), "554 changed my mind");
    EXPECT_EQ(socket.SendQuit(), "421 the server refused a message before its end");
    EXPECT_EQ(server.Transcript(), "S: 220 ready\nC: DATA\nS: 354 go\nS: 554 changed my mind\nC: (closed)\n");
}

struct EarlyWord {
    std::string name;
    std::function<void(Peer&)> server;
    std::string result;
};

// Each server has read the beginning of a message that it does not read on.
TEST(SmtpSocket, ServerThatSpeaksWhileTheMessageIsSent) {
    const std::vector<EarlyWord> cases = {
        {"refuses", [](Peer& peer) { peer.Send("552-too\r\n552 big\r\n"); }, "552-too\r\n552 big"},
        {"refuses for now", [](Peer& peer) { peer.Send("452 full\r\n"); }, "452 full"},
        {"refuses slowly", [](Peer& peer) { peer.Drip("552 too big\r\n", 20ms); }, "552 too big"},
        {"refuses and closes",
         [](Peer& peer) {
             peer.Send("552 too big\r\n");
             peer.Close();
         },
         "552 too big"},
        {"refuses and resets",
         [](Peer& peer) {
             peer.Send("552 too big\r\n");
             peer.Reset();
         },
         "552 too big"},
        {"accepts", [](Peer& peer) { peer.Send("250 ok\r\n"); }, "421 a reply before the end of the message: 250 ok"},
        {"says nonsense", [](Peer& peer) { peer.Send("hello\r\n"); },
         "421 a reply before the end of the message: hello"},
        {"says nothing in a line", [](Peer& peer) { peer.Send("\r\n"); },
         "421 a reply before the end of the message: "},
        {"closes", [](Peer& peer) { peer.Close(); }, "421 the server closed the connection"},
        {"resets", [](Peer& peer) { peer.Reset(); }, "421 connection lost: Connection reset by peer"},
    };
    const std::string message = LargeMessage();
    for (const EarlyWord& c : cases) {
        std::promise<void> done;
        std::future<void> is_done = done.get_future();
        ScriptedServer server(AfterCommand([&](Peer& peer) {
            peer.Send("354 go\r\n");
            peer.ReadLine();
            c.server(peer);
            is_done.wait();
        }));
        GreetedSocket socket(server);
        EXPECT_EQ(WithResetAsSeen(socket.Data(message)), WithResetAsSeen(c.result)) << c.name;
        EXPECT_EQ(socket.timed_out, 0) << c.name;
        EXPECT_TRUE(socket.SendQuit().starts_with("421 ")) << c.name;
        done.set_value();
    }
}

TEST(SmtpSocket, BytesBehindTheReplyToAMessageDoNotUndoIt) {
    ScriptedServer server(AfterCommand([](Peer& peer) {
        peer.Send("354 go\r\n");
        peer.ReadMessage();
        peer.Send("250 ok\r\n250 ok again\r\n");
        peer.WaitForClose();
    }));
    GreetedSocket socket(server);
    EXPECT_EQ(socket.Data("a\r\n"), "250 ok");
    EXPECT_EQ(socket.SendReset(), "421 unexpected data from the server: 250 ok again??");
}

TEST(SmtpSocket, ConnectionLostAfterTheMessageIsNoDelivery) {
    for (const std::string begun : {"", "2", "250", "250 ok\r", "250-ok\r\n"}) {
        ScriptedServer server(AfterCommand([&](Peer& peer) {
            peer.Send("354 go\r\n");
            peer.ReadMessage();
            peer.SendUnrecorded(begun);
            peer.Close();
        }));
        GreetedSocket socket(server);
        EXPECT_EQ(socket.Data("a\r\n"), "421 the server closed the connection") << begun;
    }
}

TEST(SmtpSocket, ServerThatStopsReadingTheMessageTimesOut) {
    std::promise<void> done;
    std::future<void> is_done = done.get_future();
    ScriptedServer server(AfterCommand([&](Peer& peer) {
        peer.Send("354 go\r\n");
        is_done.wait();
    }));
    const std::string message = LargeMessage();
    GreetedSocket socket(server, 1);
    const Stopwatch watch;
    EXPECT_EQ(socket.Data(message), "421 no answer in time");
    EXPECT_EQ(socket.timed_out, 1);
    EXPECT_GE(watch.Elapsed(), 1s);
    EXPECT_LT(watch.Elapsed(), 10s);
    done.set_value();
}

TEST(SmtpSocket, MessageOnlyHasToGoOnAndItsReplyHasTheFullTime) {
    ScriptedServer server(AfterCommand([](Peer& peer) {
        peer.Send("354 go\r\n");
        for (int i = 0; i < 12; ++i) {
            peer.ReadLine();
            peer.Pause(250ms);
        }
        peer.ReadMessage();
        peer.Pause(500ms);
        peer.Send("250 ok\r\n");
        peer.WaitForClose();
    }));
    GreetedSocket socket(server, 2);
    const Stopwatch watch;
    EXPECT_EQ(socket.Data(LargeMessage()), "250 ok");
    EXPECT_GT(watch.Elapsed(), 3s);
    EXPECT_EQ(socket.timed_out, 0);
}

TEST(SmtpSocket, ReplyToTheMessageThatNeverComesTimesOut) {
    ScriptedServer server(AfterCommand([](Peer& peer) {
        peer.Send("354 go\r\n");
        peer.ReadMessage();
        peer.WaitForClose();
    }));
    GreetedSocket socket(server, 1);
    EXPECT_EQ(socket.Data("a\r\n"), "421 no answer in time");
    EXPECT_EQ(socket.timed_out, 1);
}

TEST(SmtpSocket, EarlyReplyThatIsNeverCompletedTimesOut) {
    ScriptedServer server(AnswersOnce("354 go\r\n55"));
    GreetedSocket socket(server, 1);
    EXPECT_EQ(socket.Data("a\r\n"), "421 no answer in time");
    EXPECT_EQ(socket.timed_out, 1);
}

TEST(SmtpSocket, InterruptedWhileSendingAMessage) {
    std::promise<void> stalls;
    std::promise<void> done;
    std::future<void> is_done = done.get_future();
    ScriptedServer server(AfterCommand([&](Peer& peer) {
        peer.Send("354 go\r\n");
        peer.ReadLine();
        stalls.set_value();
        is_done.wait();
    }));
    std::string answer;
    testing::InterruptedWorker worker([&] {
        GreetedSocket socket(server);
        answer = socket.Data(LargeMessage());
        EXPECT_EQ(socket.SendQuit(), answer);
    });
    std::future<void> is_stalled = stalls.get_future();
    EXPECT_TRUE(testing::Happens(is_stalled));
    EXPECT_LT(worker.Terminate(), 5s);
    EXPECT_EQ(answer, "421 interrupted");
    done.set_value();
}

}  // namespace
}  // namespace tarvex
