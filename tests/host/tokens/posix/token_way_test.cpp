// Runs that log in with tokens: over TLS alone, with a new token after an expiry or a refusal, and in plain words where
// there is none.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "host/rules/ruled_runs.h"
#include "host/tokens/login_speaker.h"
#include "host/tokens/posix/token_file.h"
#include "host/ways/server_way.h"
#include "testing/scripted_server.h"
#include "tests/host/tokens/posix/authorization_server.h"
#include "tests/support/forwarding.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using host::Base64Encoded;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

const TlsIdentity& Localhost() {
    static const TlsIdentity identity = MakeTlsIdentity();
    return identity;
}

std::string XOAuth2(const std::string& token) {
    return Base64Encoded(
        "user=alice\x01"
        "auth=Bearer " +
        token + "\x01\x01");
}

// A POP3 server behind TLS with one message, which takes these tokens.
ScriptedServer::Session Mailbox(std::function<bool(const std::string&)> takes) {
    return [takes = std::move(takes)](Peer& peer) {
        if (!peer.StartTls(Localhost(), "+OK ready <1@x>\r\n")) return;
        peer.Expect("AUTH XOAUTH2");
        peer.Send("+ \r\n");
        if (!takes(peer.ReadLine())) {
            peer.Send("+ " + Base64Encoded(R"({"status":"401"})") + "\r\n");
            peer.Expect("");
            peer.Send("-ERR [AUTH] the token is no good\r\n");
            return peer.WaitForClose();
        }
        peer.Send("+OK\r\n");
        peer.Expect("UIDL");
        peer.Send("+OK\r\n1 u1\r\n.\r\n");
        const std::string next = peer.ReadLine();
        if (next == "LIST") {
            peer.Send("+OK\r\n1 100\r\n.\r\n");
            peer.Expect("RETR 1");
            peer.Send("+OK\r\nFrom: a@example.org\r\nMessage-ID: <1@x>\r\n\r\ntext\r\n.\r\n");
            peer.Expect("QUIT");
        }
        peer.Send("+OK\r\n");
        peer.WaitForClose();
    };
}

// An SMTP server that offers STARTTLS and takes one message for the token.
ScriptedServer::Session Relay(bool by_starttls) {
    return [by_starttls](Peer& peer) {
        if (by_starttls) {
            peer.Send("220 ready\r\n");
            peer.Expect("EHLO localhost");
            peer.Send("250-ready\r\n250 STARTTLS\r\n");
            peer.Expect("STARTTLS");
            peer.Send("220 go\r\n");
        }
        if (!peer.StartTls(Localhost(), by_starttls ? "" : "220 ready\r\n")) return;
        peer.ReadLine();  // EHLO
        peer.Send("250-ready\r\n250 AUTH XOAUTH2\r\n");
        peer.Expect("AUTH XOAUTH2");
        peer.Send("334 \r\n");
        peer.Expect(XOAuth2("token-1"));
        peer.Send("235 welcome\r\n");
        for (std::string line = peer.ReadLine(); line != "DATA"; line = peer.ReadLine()) peer.Send("250 fine\r\n");
        peer.Send("354 go\r\n");
        peer.ReadMessage();
        peer.Send("250 taken\r\n");
        peer.Expect("QUIT");
        peer.Send("221 bye\r\n");
        peer.WaitForClose();
    };
}

// A tree with rules, and a profile whose tokens come from a program that counts.
class TokenWay : public ::testing::Test {
protected:
    TokenWay() {
        WriteFile(tree.Folder() / "ca.pem", Localhost().ca_certificate);
        WriteFile(tree.Folder() / "program", "#!/bin/sh\necho x >>'" + (tree.Folder() / "runs") +
                                                 "'\necho token-$(wc -l <'" + (tree.Folder() / "runs") + "')\n");
        std::filesystem::permissions(std::string(tree.Folder() / "program"), std::filesystem::perms::owner_all);
        profile.setting.popserver = profile.setting.smtpserver = "localhost";
        profile.setting.popuser = "alice";
        profile.setting.timeout = 15;
        AddAddress(profile, "a@example.net");
        Use({{"pop_tls", "1"}, {"pop_login", "1"}, {"token_command", tree.Folder() / "program"}});
    }

    void Use(std::map<std::string, std::string> keys) {
        keys["tls_authority"] = tree.Folder() / "ca.pem";
        std::string text;
        for (const auto& [key, value] : keys) text += '[' + key + "]\r\n" + value + "\r\n";
        WriteFile(OnDisk(tree.root.path) + "/host.def", text);
    }

    const CRunResult& Run(int port) {
        tree.root.running_copies.clear();
        profile.setting.popport = port;
        EXPECT_EQ(profile.SaveSetting(), 1);
        EXPECT_EQ(runs.Start(tree.root, profile), CStartResult::Started);
        EXPECT_EQ(tree.root.WaitThread(60'000), 1);
        runs.Finish(*tree.root.running_copies.back());
        return tree.root.running_copies.back()->result;
    }

    SinkServer smtp;
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(0, smtp.Port());
    host::RuledRuns runs{tree.root.path, [](const std::string&) {}};
};

TEST_F(TokenWay, LeadsToTheMailboxAndNeverShowsTheToken) {
    const ScriptedServer server(Mailbox([](const std::string& said) { return said == XOAuth2("token-1"); }));
    for (const bool apop : {false, true}) {
        profile.setting.apop = apop ? 1 : 0;
        const CRunResult& result = Run(server.Port());
        EXPECT_THAT(result.mailbox.reply + result.mailbox.reason, IsEmpty());
        EXPECT_EQ(result.ending, apop ? CRunEnding::NothingNew : CRunEnding::Delivered);
    }
    EXPECT_EQ(smtp.Delivered().size(), 1U);
    EXPECT_THAT(LogText(profile),
                AllOf(HasSubstr("connecting.. localhost\n+OK ready <1@x>\nUSER alice\n+OK\n"), HasSubstr("\nAPOP \n"),
                      Not(HasSubstr("token")), Not(HasSubstr(XOAuth2("token-1")))));
}

TEST_F(TokenWay, LeadsToTheRelayWithTlsAsSslsmtpSays) {
    for (const bool by_starttls : {false, true}) {
        const ScriptedServer server(Mailbox([](const std::string&) { return true; }));
        const ScriptedServer relay(Relay(by_starttls));
        Use({{"pop_tls", "1"},
             {"pop_login", "1"},
             {"smtp_login", "1"},
             {"sentonce", "0"},
             {"floodguard", "0"},
             {"loopguard", "0"},
             {"token_command", tree.Folder() / "program"}});
        profile.setting.sslsmtp = by_starttls ? 2 : 1;
        profile.setting.smtpauth = 1;
        profile.setting.smtpport = relay.Port();
        WriteUidls(*profile.forward_addresses[0], {});
        const CRunResult& result = Run(server.Port());
        EXPECT_EQ(result.ending, CRunEnding::Delivered)
            << result.delivery.reply << result.delivery.reason << LogText(profile);
    }
}

TEST_F(TokenWay, AsksForANewTokenWhenTheServerRefusesOne) {
    const ScriptedServer server(Mailbox([](const std::string& said) { return said == XOAuth2("token-2"); }));
    const CRunResult first = Run(server.Port());
    EXPECT_EQ(first.mailbox.reply, "-ERR [AUTH] the token is no good");
    EXPECT_EQ(first.mailbox.stage, CRunStage::Login);
    EXPECT_EQ(first.mailbox.failure_class, CFailureClass::Permanent);
    EXPECT_EQ(Run(server.Port()).ending, CRunEnding::Delivered);
}

// Before anything is fetched again, the run looks whether the relay is there: with the token, too.
TEST_F(TokenWay, GoesOnWhenTheRelayIsBack) {
    const ScriptedServer server(Mailbox([](const std::string&) { return true; }));
    std::atomic<int> connections = 0;
    ScriptedServer relay([&](Peer& peer) {
        const int number = ++connections;
        if (number == 1) return peer.Close();
        if (number > 2) return Relay(false)(peer);
        if (!peer.StartTls(Localhost(), "220 ready\r\n")) return;
        peer.ReadLine();  // EHLO
        peer.Send("250-ready\r\n250 AUTH XOAUTH2\r\n");
        peer.Expect("AUTH XOAUTH2");
        peer.Send("334 \r\n");
        peer.Expect(XOAuth2("token-1"));
        peer.Send("235 welcome\r\n");
        peer.Expect("QUIT");
        peer.Send("221 bye\r\n");
        peer.WaitForClose();
    });
    Use({{"pop_tls", "1"}, {"pop_login", "1"}, {"smtp_login", "1"}, {"token_command", tree.Folder() / "program"}});
    profile.setting.sslsmtp = 1;
    profile.setting.smtpauth = 1;
    profile.setting.smtpport = relay.Port();
    EXPECT_EQ(Run(server.Port()).ending, CRunEnding::DeliveryFailed);
    EXPECT_EQ(Run(server.Port()).ending, CRunEnding::Delivered) << relay.Transcript();
}

// Two runs wait: one for the program, the other for the first.
TEST_F(TokenWay, WaitForATokenEndsWithTheRun) {
    const std::string begun = tree.Folder() / "begun";
    WriteFile(tree.Folder() / "slow", "#!/bin/sh\necho x >> " + begun + "\nsleep 60\n");
    std::filesystem::permissions(tree.Folder() / "slow", std::filesystem::perms{0700});
    Use({{"pop_tls", "1"}, {"pop_login", "1"}, {"token_command", tree.Folder() / "slow"}});
    CPopProfile& second = tree.AddProfile(1, smtp.Port());
    AddAddress(second, "a@example.net");
    for (CPopProfile* const one : {&profile, &second}) ASSERT_EQ(runs.Start(tree.root, *one), CStartResult::Started);
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (!std::filesystem::exists(begun) && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    InterruptRuns(tree.root);
    EXPECT_EQ(tree.root.WaitThread(20'000), 1);
    for (const auto& copy : tree.root.running_copies) EXPECT_TRUE(copy->result.interrupted);
}

struct WithoutToken {
    std::map<std::string, std::string> keys;
    std::string reply;  // begins so
    CFailureClass failure_class;
};

TEST_F(TokenWay, WithoutATokenTheRunSaysWhyAndNobodyIsConnected) {
    const std::vector<WithoutToken> cases = {
        {{{"pop_login", "1"}, {"token_command", "/bin/true"}},
         "-ERR [AUTH] token: pop_tls is off, and no token goes out in clear",
         CFailureClass::Permanent},
        {{{"pop_login", "1"}, {"pop_tls", "1"}, {"token_command", "/bin/true"}},
         "-ERR [AUTH] token: token_command printed no token",
         CFailureClass::Permanent},
        {{{"pop_login", "2"}, {"pop_tls", "1"}, {"token_command", "/bin/false"}},
         "-ERR [SYS/TEMP] token: token_command ended with code 1",
         CFailureClass::Transient},
        {{{"pop_login", "2"}, {"pop_tls", "1"}},
         "-ERR [AUTH] token: nobody has logged in at the provider yet; `tarvex login` mends it",
         CFailureClass::Permanent},
    };
    for (const WithoutToken& one : cases) {
        Use(one.keys);
        const ScriptedServer server([](Peer& peer) { peer.WaitForClose(); });
        const CRunResult& result = Run(server.Port());
        EXPECT_EQ(result.mailbox.reply, one.reply);
        EXPECT_EQ(result.mailbox.failure_class, one.failure_class);
        EXPECT_EQ(server.Connections(), 0);
    }
    EXPECT_EQ(runs.WhyNotNow(profile, true), "waits for `tarvex login`: nobody has logged in at the provider yet");
    Use({{"smtp_login", "1"}});
    profile.setting.smtpauth = 1;
    profile.setting.esmtp = 1;
    EXPECT_EQ(runs.WhyNotNow(profile, true), "waits for `tarvex login`: nobody has logged in at the provider yet");
    profile.setting.esmtp = 0;  // no login, no token
    EXPECT_EQ(runs.WhyNotNow(profile, true), "");
}

TEST_F(TokenWay, StarttlsOfTheRelayFailsClosed) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"220 go\r\n250 injected\r\n", "554 5.7.0 TLS: the server spoke out of turn before TLS"},
        {"454 later\r\n", "421 4.7.0 TLS: the server refuses STARTTLS: 454 later"},
        {"502 what\r\n", "554 5.7.0 TLS: the server refuses STARTTLS: 502 what"},
    };
    profile.setting.sslsmtp = 2;
    profile.setting.smtpauth = 1;
    EXPECT_EQ(profile.SaveSetting(), 1);
    Use({{"smtp_login", "1"}, {"token_command", tree.Folder() / "program"}});
    for (const auto& [answer, expected] : cases) {
        ScriptedServer relay([&answer](Peer& peer) {
            peer.Send("220 ready\r\n");
            peer.Expect("EHLO localhost");
            peer.Send("250 STARTTLS\r\n");
            peer.Expect("STARTTLS");
            peer.Send(answer);
            peer.WaitForClose();
        });
        profile.setting.smtpport = relay.Port();
        CSmtpTrial trial;
        EXPECT_FALSE(host::TryRelay(profile, {}, trial));
        const std::string reason = expected.substr(expected.find("TLS: ") + 5);
        EXPECT_EQ(trial.steps.back().kind, int{PROBE_TLS});
        EXPECT_EQ(trial.steps.back().text, reason);
        EXPECT_THAT(relay.Transcript(), Not(HasSubstr("AUTH")));
    }
}

// ---- in the service

TEST(TokensInTheService, ExpireAndAreReplacedAlsoAfterAKill) {
    std::atomic<int> asked = 0;
    std::atomic<int> given = 0;
    // It takes the token before, too, until the new one was used; and fails now and then.
    const AuthorizationServer provider([&](const ProviderRequest& request) -> std::optional<ProviderAnswer> {
        if (++asked % 3 == 2) return ProviderAnswer{503, ""};
        const std::string token = request.form.at("refresh_token");
        if (token != "refresh-" + std::to_string(given) && token != "refresh-" + std::to_string(given - 1))
            return ProviderAnswer{400, R"({"error":"invalid_grant"})"};
        const std::string number = std::to_string(++given);
        return ProviderAnswer{200, R"({"access_token":"access-)" + number + R"(","refresh_token":"refresh-)" + number +
                                       R"(","expires_in":1})"};
    });
    std::mutex mutex;
    std::set<std::string> heard;
    const ScriptedServer mailbox(Mailbox([&](const std::string& said) {
        const std::scoped_lock lock(mutex);
        heard.insert(said);
        return true;
    }));
    SinkServer sink;
    Host host;
    host.AddProfile(mailbox.Port(), sink.Port(), [](CPopProfile& profile) {
        profile.setting.popserver = "localhost";
        profile.setting.popuser = "alice";
    });
    std::filesystem::create_directories(host.Root() + "/providers.d");
    WriteFile(host.Root() + "/providers.d/example.def", provider.ProviderFile());
    WriteFile(host.Root() + "/ca.pem", Localhost().ca_certificate);
    WriteFile(host.Root() + "/host.def",
              "[pop_tls]\n1\n[pop_login]\n1\n[spread]\n0\n[tls_authority]\n" + host.Root() + "/ca.pem\n");
    EXPECT_THAT(
        host.Tell({"status"}, host::kSomethingFails),
        HasSubstr("user0/from0: waits for `tarvex login user0/from0`: nobody has logged in at the provider yet"));
    host::StoredToken token;
    token.provider = "example";
    token.login = "alice";
    token.refresh_token = "refresh-0";
    host::TokenFile(host.Root(), host.Root() + "\\user0\\from0").Write(token);

    const auto heard_count = [&] {
        const std::scoped_lock lock(mutex);
        return heard.size();
    };
    for (std::size_t i = 1; i <= 2; ++i) {
        ChildProcess service = host.StartCommand({"serve", "--every", "0.05"});
        const auto end = std::chrono::steady_clock::now() + 40s;
        while (heard_count() < 2 * i && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(20ms);
        service.Signal(SIGKILL);
        service.Wait();
        EXPECT_GE(heard_count(), 2 * i) << service.Printed() << service.Errors();
    }
    EXPECT_EQ(sink.Delivered().size(), 1U);
    ChildProcess status = host.StartCommand({"status"});
    status.Wait();
    EXPECT_THAT(status.Printed(), Not(HasSubstr("waits for")));
}

}  // namespace
}  // namespace tarvex::testing
