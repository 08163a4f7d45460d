// Of which kind the failures are that the sockets keep, each against a server that fails in that way.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "platform/net/sockets.h"
#include "testing/scripted_server.h"
#include "tests/support/net_tools.h"
#include "tests/support/shortage.h"

namespace tarvex {
namespace {

using testing::Peer;
using testing::ScriptedServer;

constexpr const char* kHost = "127.0.0.1";

// Of what PopConnect, or the USER behind it, ends with.
FailureKind PopFailure(const std::function<void(Peer&)>& session, int time_out_s = 60) {
    ScriptedServer server([&](Peer& peer) {
        session(peer);
        peer.WaitForClose();
    });
    CPopSocket socket;
    socket.SetTimeOut(time_out_s);
    if (socket.PopConnect(kHost, server.Port()).starts_with('+')) socket.SendUser("u");
    return socket.LastFailure().kind;
}

FailureKind SmtpFailure(int ssl, const std::function<void(Peer&)>& session) {
    ScriptedServer server(session);
    CSmtpSocket socket;
    socket.ssl = ssl;
    socket.SetTimeOut(60);
    socket.SmtpConnect(kHost, server.Port());
    return socket.LastFailure().kind;
}

TEST(FailureKind, OfAServerThatIsNotReached) {
    CPopSocket socket;
    socket.PopConnect(kHost, testing::UnusedPort());
    EXPECT_EQ(socket.LastFailure().kind, FailureKind::NotListening);
    EXPECT_TRUE(socket.LastFailure().reason.ends_with("Connection refused"));
    socket.PopConnect(kHost, 0);
    EXPECT_EQ(socket.LastFailure().kind, FailureKind::NoConnection);
    const testing::ResolverStandIn resolver([](const std::string&) { return NameAnswer{{}, "no such name"}; });
    socket.PopConnect("pop.example", 110);
    EXPECT_EQ(socket.LastFailure().kind, FailureKind::NoSuchServer);
    {
        const testing::NoDescriptors none;
        socket.Create(0, 1, nullptr);
    }
    EXPECT_EQ(socket.LastFailure().kind, FailureKind::Local);
}

TEST(FailureKind, OfAnExchange) {
    const auto answer = [](const char* text) {
        return [text](Peer& peer) {
            peer.Send("+OK ready\r\n");
            peer.ReadLine();
            peer.Send(text);
        };
    };
    EXPECT_EQ(PopFailure(answer("+OK\r\n")), FailureKind::None);
    EXPECT_EQ(PopFailure(answer("-ERR no\r\n")), FailureKind::None);
    EXPECT_EQ(PopFailure(answer(""), 1), FailureKind::TimedOut);
    EXPECT_EQ(PopFailure([](Peer& peer) { peer.Close(); }), FailureKind::Lost);
    EXPECT_EQ(PopFailure([](Peer& peer) { peer.Send("+OK ready\r\n+OK out of turn\r\n"); }), FailureKind::Protocol);
}

TEST(FailureKind, AnArgumentThatIsNotSentIsForgottenWithTheNextAnswer) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.ReadLine();
        peer.Send("-ERR no\r\n");
        peer.WaitForClose();
    });
    CPopSocket socket;
    socket.PopConnect(kHost, server.Port());
    socket.SendUser("a\nb");
    EXPECT_EQ(socket.LastFailure().kind, FailureKind::Local);
    socket.SendUser("u");
    EXPECT_EQ(socket.LastFailure().kind, FailureKind::None);
}

TEST(FailureKind, OfTls) {
    EXPECT_EQ(SmtpFailure(1, [](Peer& peer) { peer.Send("220 in clear\r\n"); }), FailureKind::NoTls);
    const auto without_upgrade = [](Peer& peer) {
        peer.Send("220 ready\r\n");
        peer.ReadLine();
        peer.Send("250 me\r\n");
        peer.WaitForClose();
    };
    EXPECT_EQ(SmtpFailure(2, without_upgrade), FailureKind::NoTls);
}

TEST(FailureKind, OfACertificate) {
    const auto with = [](const testing::TlsIdentity& identity) {
        return SmtpFailure(1, [&](Peer& peer) { peer.StartTls(identity, "220 ready\r\n"); });
    };
    const auto trusted = [&](const testing::TlsOptions& options) {
        const testing::TlsIdentity identity = testing::MakeTlsIdentity(options);
        const testing::TrustedAuthority authority(identity);
        return with(identity);
    };
    EXPECT_EQ(trusted({}), FailureKind::None);
    EXPECT_EQ(trusted({.names = {"mail.example.org"}, .addresses = {"127.0.0.9"}}), FailureKind::CertificateOfOther);
    EXPECT_EQ(trusted({.expired = true}), FailureKind::CertificateOutOfDate);
    const testing::TrustedAuthority another(testing::MakeTlsIdentity());
    EXPECT_EQ(with(testing::MakeTlsIdentity()), FailureKind::CertificateNotTrusted);
}

}  // namespace
}  // namespace tarvex
