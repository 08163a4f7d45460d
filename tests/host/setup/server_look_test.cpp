// What a look at a server finds out, and what the server hears: no login.

#include "host/setup/server_look.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "testing/scripted_server.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

using namespace host;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

class ServerLooks : public ::testing::Test {
protected:
    ServerLooks() { WriteFile(folder_ / "ca.pem", identity_.ca_certificate); }

    ServerLook Look(CProtocol protocol, const ScriptedServer& server, PopTls tls = PopTls::FromTheFirstByte) {
        return LookAt(protocol, {"localhost", server.Port(), tls}, folder_ / "ca.pem");
    }

    TempDir folder_;
    const TlsIdentity identity_ = MakeTlsIdentity();
};

TEST_F(ServerLooks, MailboxIsAskedForItsCapabilitiesAndNothingElse) {
    ScriptedServer server([&](Peer& peer) {
        if (!peer.StartTls(identity_)) return;
        peer.Send("+OK ready\r\n");
        peer.Expect("CAPA");
        peer.Drip("+OK\r\nUSER\r\nsasl plain xoauth2\r\n.\r\n", std::chrono::milliseconds(1));
        peer.Expect("QUIT");
        peer.WaitForClose();
    });
    const ServerLook look = Look(CProtocol::Pop3, server);
    EXPECT_EQ(look.trouble, "");
    EXPECT_THAT(look.facts.names, Contains("localhost"));
    EXPECT_TRUE(look.takes_passwords && look.takes_xoauth2);
    EXPECT_FALSE(look.takes_oauthbearer || look.TakesTokensOnly());
    EXPECT_THAT(server.Transcript(), Not(HasSubstr("!!")));
}

TEST_F(ServerLooks, MailboxThatUpgradesHearsNoUserNeither) {
    ScriptedServer server([&](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.Expect("STLS");
        peer.Send("+OK\r\n");
        if (!peer.StartTls(identity_)) return;
        peer.Expect("CAPA");
        peer.Send("-ERR what\r\n");
        peer.Expect("QUIT");
        peer.WaitForClose();
    });
    const ServerLook look = Look(CProtocol::Pop3, server, PopTls::Stls);
    EXPECT_EQ(look.trouble, "");
    EXPECT_TRUE(look.takes_passwords);  // it is old
    EXPECT_THAT(server.Transcript(), Not(HasSubstr("!!")));
}

void AnswerHello(Peer& peer) {
    peer.ReadLine();
    peer.Send("250-localhost\r\n250-AUTH OAUTHBEARER XOAUTH2\r\n250 8BITMIME\r\n");
    peer.Expect("QUIT");
    peer.Send("221 bye\r\n");
    peer.WaitForClose();
}

TEST_F(ServerLooks, RelayTellsItsLogins) {
    ScriptedServer server([&](Peer& peer) {
        if (!peer.StartTls(identity_)) return;
        peer.Send("220 ready\r\n");
        AnswerHello(peer);
    });
    const ServerLook look = Look(CProtocol::Smtp, server);
    EXPECT_EQ(look.trouble, "");
    EXPECT_TRUE(look.TakesTokensOnly() && look.takes_oauthbearer);
    ScriptedServer upgrading([&](Peer& peer) {
        peer.Send("220 ready\r\n");
        peer.ReadLine();
        peer.Send("250-localhost\r\n250 STARTTLS\r\n");
        peer.Expect("STARTTLS");
        peer.Send("220 go on\r\n");
        if (peer.StartTls(identity_)) AnswerHello(peer);
    });
    EXPECT_TRUE(Look(CProtocol::Smtp, upgrading, PopTls::Stls).takes_xoauth2);
    EXPECT_THAT(server.Transcript() + upgrading.Transcript(), Not(HasSubstr("!!")));
}

TEST_F(ServerLooks, TroubleIsTold) {
    const TlsIdentity other = MakeTlsIdentity({.names = {"other.example"}, .addresses = {}});
    const ScriptedServer untrusted([&](Peer& peer) { peer.StartTls(other); });
    EXPECT_THAT(Look(CProtocol::Pop3, untrusted).trouble, HasSubstr("TLS: "));
    WriteFile(folder_ / "ca.pem", other.ca_certificate);
    EXPECT_EQ(Look(CProtocol::Smtp, untrusted).trouble, "TLS: the certificate is for another host");
    WriteFile(folder_ / "ca.pem", identity_.ca_certificate);
    for (const CProtocol protocol : {CProtocol::Pop3, CProtocol::Smtp}) {
        const ScriptedServer web([&](Peer& peer) {
            if (peer.StartTls(identity_)) peer.Send("HTTP/1.1 400 Bad Request\r\n\r\n");
        });
        EXPECT_THAT(Look(protocol, web).trouble, HasSubstr("it does not speak"));
    }
    EXPECT_THAT(LookAt(CProtocol::Pop3, {"localhost", UnusedPort(), PopTls::FromTheFirstByte}, "").trouble,
                HasSubstr("connect: "));
    EXPECT_THAT(LookAt(CProtocol::Smtp, {"nowhere.invalid", 465, PopTls::FromTheFirstByte}, "").trouble,
                HasSubstr("find the server: "));
}

}  // namespace
}  // namespace tarvex::testing
