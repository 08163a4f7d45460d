// Connections that the guard gives: a run over one is the run that connects by itself, byte for byte.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/net/name_lookup.h"
#include "platform/net/tcp_stream.h"
#include "tests/support/conversation.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// A socket that is connected to a port of this machine, as a host makes it.
CConnection ConnectedTo(int port, bool is_secured = false) {
    TcpStream stream;
    EXPECT_FALSE(stream.Connect(NumericAddress("127.0.0.1").value(), port, Deadline(std::chrono::seconds(10))));
    return CConnection(stream.Release(), is_secured);
}

struct ConnectingGuard : CRunGuard {
    std::function<CConnection(CServerToReach&)> connects;
    std::vector<std::string> asked;

    CConnection Connects(const CPopProfile& profile, CServerToReach& server) override {
        asked.push_back((server.protocol == CProtocol::Pop3 ? "POP3 " : "SMTP ") + std::string(server.name) + " " +
                        std::to_string(server.port));
        return connects ? connects(server) : CRunGuard::Connects(profile, server);
    }
};

// A profile whose servers' names nobody can look up, and the two servers that the guard leads to instead.
class GivenConnection : public ::testing::Test {
protected:
    GivenConnection() {
        pop.Add(Mail("u1"));
        profile.setting.popserver = "pop.invalid";
        profile.setting.smtpserver = "smtp.invalid";
        AddAddress(profile, "a@example.net");
        guard.connects = [this](CServerToReach& server) {
            return ConnectedTo(server.protocol == CProtocol::Pop3 ? pop.Port() : smtp.Port(), true);
        };
    }

    const CRunResult& Run() {
        copy = profile;
        copy.guard = &guard;
        copy.DoOperation();
        return copy.result;
    }

    MailboxServer pop{"alice", "secret"};
    SinkServer smtp;
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(995, 465);
    CPopProfile copy;
    ConnectingGuard guard;
};

TEST_F(GivenConnection, CarriesBothConversationsOfARun) {
    EXPECT_EQ(Run().ending, CRunEnding::Delivered);
    EXPECT_THAT(guard.asked, ElementsAre("POP3 pop.invalid 995", "SMTP smtp.invalid 465"));
    EXPECT_EQ(Arrived(smtp), (Arrivals{{"u1 -> a@example.net", 1}}));
    EXPECT_THAT(LogText(profile), HasSubstr("connecting.. pop.invalid\n+OK"));
    EXPECT_THAT(ReadFile(ProfileFile(profile)), HasSubstr("pop.invalid"));
}

TEST_F(GivenConnection, MayBeTheOneThatTheRunMakes) {
    profile.setting.popserver = profile.setting.smtpserver = "127.0.0.1";
    profile.setting.popport = pop.Port();
    profile.setting.smtpport = smtp.Port();
    guard.connects = [](CServerToReach& server) { return server.Connect(); };
    EXPECT_EQ(Run().ending, CRunEnding::Delivered);
    guard.connects = [](CServerToReach& server) {
        EXPECT_TRUE(server.Connect()) << "and thrown away";
        return CConnection();
    };
    pop.Add(Mail("u2"));
    EXPECT_EQ(Run().ending, CRunEnding::Delivered);
}

TEST_F(GivenConnection, IsNotNeeded) {
    profile.setting.popserver = "127.0.0.1";
    profile.setting.popport = UnusedPort();
    guard.connects = nullptr;
    EXPECT_EQ(Run().ending, CRunEnding::MailboxFailed);
    const CRunFailure by_itself = Run().mailbox;
    guard.connects = [](CServerToReach& server) { return server.Connect(); };
    const CRunFailure by_guard = Run().mailbox;
    EXPECT_EQ(by_guard.stage, CRunStage::Connect);
    EXPECT_EQ(by_guard.failure_class, CFailureClass::Connection);
    EXPECT_EQ(by_guard.reason, by_itself.reason);
}

TEST_F(GivenConnection, ThatNobodyServesRunsIntoTheTimeOutOfTheProfile) {
    const ScriptedServer silent([](Peer& peer) { peer.WaitForClose(); });
    guard.connects = [&](CServerToReach&) { return ConnectedTo(silent.Port()); };
    profile.setting.timeout = kStallTimeOut_s;
    EXPECT_EQ(Run().mailbox.failure_class, CFailureClass::TimeOut);
    EXPECT_EQ(copy.result.mailbox.stage, CRunStage::Greeting);
}

TEST_F(GivenConnection, EndsWithItsRun) {
    std::promise<void> connected, closed;
    const ScriptedServer silent([&](Peer& peer) {
        peer.WaitForClose();
        closed.set_value();
    });
    guard.connects = [&](CServerToReach&) {
        auto connection = ConnectedTo(silent.Port());
        connected.set_value();
        return connection;
    };
    ASSERT_EQ(StartRun(tree.root, profile, &guard), CStartResult::Started);
    connected.get_future().wait();
    InterruptRuns(tree.root);
    EXPECT_EQ(closed.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(tree.root.WaitThread(20'000), 1);
}

TEST_F(GivenConnection, ThatCannotBeUsedFailsHere) {
    guard.connects = [](CServerToReach&) {
        TcpStream closed;
        EXPECT_TRUE(closed.Reserve());
        const std::intptr_t socket = closed.Release();
        CloseSocket(socket);
        return CConnection(socket);
    };
    EXPECT_EQ(Run().mailbox.failure_class, CFailureClass::Local);
    EXPECT_THAT(copy.result.mailbox.reason, HasSubstr("cannot be used"));
}

// Otherwise the run would speak TLS within TLS.
TEST_F(GivenConnection, ThatIsSecuredNeedsNoTlsOfTheRun) {
    for (const int sslsmtp : {1, 2}) {
        profile.setting.sslsmtp = sslsmtp;
        CSmtpTrial trial;
        EXPECT_EQ(TrySmtp(profile, guard, &trial), 1) << sslsmtp;
        guard.connects = [this](CServerToReach&) { return ConnectedTo(smtp.Port(), false); };
        EXPECT_EQ(TrySmtp(profile, guard, &trial), 0) << sslsmtp;
        guard.connects = [this](CServerToReach&) { return ConnectedTo(smtp.Port(), true); };
    }
}

TEST_F(GivenConnection, CarriesWhatOnlyLooks) {
    CMailboxListing listing;
    EXPECT_EQ(ListMailbox(profile, guard, &listing), 1);
    EXPECT_EQ(listing.mails.size(), 1U);
    CSmtpTrial trial;
    EXPECT_EQ(TrySmtp(profile, guard, std::vector<CString>{"a@example.net"}, &trial), 1);
    profile.guard = &guard;
    CSmtpSocket* const connection = profile.CreateSmtpConnection();
    EXPECT_NE(connection, nullptr);
    QuitSmtpConnection(connection);
    EXPECT_THAT(guard.asked, ElementsAre("POP3 pop.invalid 995", "SMTP smtp.invalid 465", "SMTP smtp.invalid 465"));
    EXPECT_THAT(smtp.Delivered(), IsEmpty());
}

TEST(Connection, OwnsItsSocket) {
    std::promise<void> closed;
    const ScriptedServer server([&](Peer& peer) {
        peer.WaitForClose();
        closed.set_value();
    });
    CConnection first = ConnectedTo(server.Port());
    {
        CConnection second = std::move(first);
        EXPECT_FALSE(first);
        EXPECT_TRUE(second);
        CConnection third;
        third = std::move(second);
        EXPECT_TRUE(third);
    }
    EXPECT_EQ(closed.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

}  // namespace
}  // namespace tarvex::testing
