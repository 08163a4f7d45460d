// What a host can see of a run while it goes on.

#include "tarvex/observer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "loopback/mail_servers.h"
#include "platform/net/sockets.h"
#include "platform/net/traffic.h"
#include "tarvex/tarvex.h"
#include "testing/temp_dir.h"
#include "tests/support/net_tools.h"

namespace tarvex::testing {
namespace {

using loopback::MailboxServer;
using loopback::SinkServer;

using namespace std::chrono_literals;

// A root with one profile that is always due and has one address.
class Observed {
public:
    explicit Observed(int pop_port, int smtp_port) {
        EXPECT_EQ(root.SetRootPath(folder_ / "tree"), 1);
        CPopProfile& profile = *root.CreateNewUser("user", "", 0)->CreateNewPopProfile("", "me@example.org");
        profile.setting.popserver = profile.setting.smtpserver = "127.0.0.1";
        profile.setting.popport = pop_port;
        profile.setting.smtpport = smtp_port;
        profile.setting.popuser = "user";
        profile.setting.poppassword = "secret";
        profile.setting.timer = 0;
        profile.CreateNewForwardAddress("", "phone@example.net");
    }

    // Reads the observer of the running copy until it shows what is wanted.
    void WaitUntil(const std::function<bool(const CRunObserver&)>& reached) const {
        const Stopwatch watch;
        while (!reached(root.running_copies.front()->observer)) {
            ASSERT_LT(watch.Elapsed(), 20s);
            std::this_thread::yield();
        }
    }

private:
    TempDir folder_;

public:
    CRootPath root;
};

TEST(Observer, TellsHowFarARunIsWhileItGoesOn) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    for (const char* id : {"a", "b", "c"}) mailbox.Add({id, "Subject: x\r\n\r\n" + std::string(10'000, 'x') + "\r\n"});
    sink.SetFault([mails = 0](const std::string& command) mutable {
        return command.starts_with("MAIL") && ++mails == 3 ? "stall" : "";
    });
    Observed observed(mailbox.Port(), sink.Port());
    Tarvex(&observed.root);
    observed.WaitUntil([](const CRunObserver& run) { return run.messages_delivered == 2; });
    const CRunObserver& run = observed.root.running_copies.front()->observer;
    EXPECT_EQ(run.messages_to_fetch, 3);
    EXPECT_EQ(run.messages_fetched, 3);
    EXPECT_GT(run.bytes_received, 30'000);
    EXPECT_GT(run.bytes_sent, 20'000);
    EXPECT_LT(run.bytes_sent, 30'000);
    EXPECT_EQ(observed.root.users[0]->profiles[0]->observer.messages_fetched,
              0);  // the tree's own profile does not run
}

TEST(Observer, WhatIsHandledIsNotToBeFetched) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    mailbox.Add({"a", "Subject: x\r\n\r\nx\r\n"});
    Observed observed(mailbox.Port(), sink.Port());
    for (const int wanted : {1, 0}) {
        Tarvex(&observed.root);
        ASSERT_EQ(observed.root.WaitThread(20'000), 1);
        const CRunObserver& run = observed.root.running_copies.front()->observer;
        EXPECT_EQ(run.messages_to_fetch, wanted);
        EXPECT_EQ(run.messages_fetched, wanted);
        EXPECT_EQ(run.messages_delivered, wanted);
    }
}

TEST(Observer, BytesAreThoseOnTheWire) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.Expect("QUIT");
        peer.Send("+OK\r\n");
    });
    std::atomic<std::int64_t> received{0}, sent{0}, inner_received{0}, inner_sent{0};
    CPopSocket socket;
    {
        const TrafficScope scope(received, sent);
        ASSERT_EQ(socket.Create(0, 1, nullptr), 1);
        EXPECT_EQ(socket.PopConnect("127.0.0.1", server.Port()), "+OK ready");
        const TrafficScope inner(inner_received, inner_sent);
        EXPECT_EQ(socket.SendQuit(), "+OK");
    }
    EXPECT_EQ(received, 11);
    EXPECT_EQ(sent, 0);
    EXPECT_EQ(inner_received, 5);
    EXPECT_EQ(inner_sent, 6);
}

TEST(Observer, WithTlsBytesAreTheEncryptedOnes) {
    const TlsIdentity identity = MakeTlsIdentity();
    const TrustedAuthority trusted(identity);
    ScriptedServer server([&identity](Peer& peer) {
        if (peer.StartTls(identity, "220 ready\r\n")) peer.WaitForClose();
    });
    std::atomic<std::int64_t> received{0}, sent{0};
    const TrafficScope scope(received, sent);
    CSmtpSocket socket;
    socket.ssl = 1;
    ASSERT_EQ(socket.Create(0, 1, nullptr), 1);
    EXPECT_EQ(socket.SmtpConnect("127.0.0.1", server.Port()), "220 ready");
    EXPECT_GT(received, 500);  // the certificate alone is longer
    EXPECT_GT(sent, 100);
}

}  // namespace
}  // namespace tarvex::testing
