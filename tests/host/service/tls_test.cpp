// The service between a mailbox that begins TLS by STLS and its addresses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "testing/scripted_server.h"
#include "tests/host/service/served_tree.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

class ServingByStls : public ServiceTest {
protected:
    void AddProfileOf(const ScriptedServer& mailbox) {
        host_.AddProfile(mailbox.Port(), sink_.Port(), [](CPopProfile& profile) {
            profile.setting.popserver = "localhost";
            profile.setting.apop = 0;
        });
        WriteFile(host_.Root() + "/ca.pem", identity_.ca_certificate);
        WriteFile(host_.Root() + "/host.def", "[pop_tls]\r\n2\r\n[tls_authority]\r\n" + host_.Root() + "/ca.pem\r\n");
    }

    bool Upgrade(Peer& peer) const {
        peer.Send("+OK ready\r\n");
        peer.Expect("STLS");
        peer.Send("+OK\r\n");
        return peer.StartTls(identity_);
    }

    const TlsIdentity identity_ = MakeTlsIdentity();
};

TEST_F(ServingByStls, ForwardsInRunAfterRun) {
    const std::string text = MailNumber(1).text;
    const ScriptedServer mailbox([&](Peer& peer) {
        if (!Upgrade(peer)) return;
        peer.Expect("USER user");
        peer.Send("+OK\r\n");
        peer.Expect("PASS secret");
        peer.Send("+OK\r\n");
        for (std::string line; (line = peer.ReadLine()) != "QUIT";) {
            peer.Send(line == "UIDL"   ? "+OK\r\n1 mail-1\r\n.\r\n"
                      : line == "LIST" ? "+OK\r\n1 100\r\n.\r\n"
                                       : "+OK\r\n" + text + ".\r\n");
        }
        peer.Send("+OK\r\n");
        peer.WaitForClose();
    });
    AddProfileOf(mailbox);
    const auto service = Serve();
    EXPECT_TRUE(service->WaitForOutput("run ended, forwarded 1 message", kLong)) << service->Printed();
    EXPECT_TRUE(service->WaitForOutput("run ended, nothing new", kLong)) << service->Printed();
    Stop(*service);
    ASSERT_THAT(sink_.Delivered(), SizeIs(1));
    EXPECT_THAT(sink_.Delivered()[0].text, HasSubstr("Subject: mail-1"));
}

TEST_F(ServingByStls, StopsWithinSecondsFromARunThatStallsBehindIt) {
    const ScriptedServer mailbox([this](Peer& peer) {
        if (!Upgrade(peer)) return;
        peer.Expect("USER user");
        ++blocked_;
        peer.WaitForClose();
    });
    AddProfileOf(mailbox);
    const auto service = Serve();
    WaitUntilBlocked();
    const auto start = Clock::now();
    Stop(*service);
    EXPECT_LT(Clock::now() - start, 5s);
    EXPECT_THAT(service->Printed(), HasSubstr("interrupted"));
}

}  // namespace
}  // namespace tarvex::testing
