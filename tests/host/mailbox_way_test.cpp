// POP3 over TLS by the rules: what comes through, what is refused and in which words, and how it ends.

#include "host/ways/server_way.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "host/rules/ruled_runs.h"
#include "testing/scripted_server.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using host::PopTls;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr int kAmple_s = 15;
constexpr int kStall_s = 1;

const TlsIdentity& Localhost() {
    static const TlsIdentity identity = MakeTlsIdentity();
    return identity;
}

// A mailbox with one message, from the greeting on.
void ServeMailbox(Peer& peer, const std::string& message, bool greet = true) {
    if (greet) peer.Send("+OK ready\r\n");
    peer.Expect("USER alice");
    peer.Send("+OK\r\n");
    peer.Expect("PASS secret");
    peer.Send("+OK\r\n");
    peer.Expect("UIDL");
    peer.Send("+OK\r\n1 u1\r\n.\r\n");
    peer.Expect("LIST");
    peer.Send("+OK\r\n1 100\r\n.\r\n");
    peer.Expect("RETR 1");
    peer.SendUnrecorded("+OK\r\n" + message + ".\r\n");
    peer.Expect("QUIT");
    peer.Send("+OK\r\n");
    peer.WaitForClose();
}

bool UpgradeByStls(Peer& peer, const TlsIdentity& identity) {
    peer.Send("+OK ready\r\n");
    peer.Expect("STLS");
    peer.Send("+OK go on\r\n");
    return peer.StartTls(identity);
}

// A tree with rules, and a profile whose POP3 server is called localhost.
class MailboxWay : public ::testing::Test {
protected:
    MailboxWay() {
        Trust(Localhost());
        profile.setting.popserver = "localhost";
        profile.setting.timeout = kAmple_s;
        AddAddress(profile, "a@example.net");
    }

    void Trust(const TlsIdentity& identity) {
        WriteFile(tree.Folder() / "ca.pem", identity.ca_certificate);
        WriteFile(OnDisk(tree.root.path) + "/host.def", "[pop_tls]\r\n" + std::to_string(static_cast<int>(tls)) +
                                                            "\r\n[tls_authority]\r\n" + (tree.Folder() / "ca.pem") +
                                                            "\r\n");
    }
    void Use(PopTls how) {
        tls = how;
        Trust(Localhost());
    }

    void Start(int port) {
        profile.setting.popport = port;
        EXPECT_EQ(profile.SaveSetting(), 1);
        EXPECT_EQ(runs.Start(tree.root, profile), CStartResult::Started);
    }

    const CRunResult& Run(int port) {
        tree.root.running_copies.clear();
        Start(port);
        EXPECT_EQ(tree.root.WaitThread(60'000), 1);
        runs.Finish(*tree.root.running_copies.back());
        return tree.root.running_copies.back()->result;
    }

    CMailboxListing Look(int port, const CProbeWatch& watch = {}) {
        profile.setting.popport = port;
        CMailboxListing listing;
        host::LookIntoMailbox(profile, listing, watch);
        return listing;
    }

    PopTls tls = PopTls::FromTheFirstByte;
    SinkServer smtp;
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(0, smtp.Port());
    host::RuledRuns runs{tree.root.path, [](const std::string&) {}};
};

TEST_F(MailboxWay, ALookTellsOfTlsAsTheStepThatItIs) {
    for (const PopTls how : {PopTls::FromTheFirstByte, PopTls::Stls}) {
        Use(how);
        const bool stls = how == PopTls::Stls;
        const ScriptedServer server([&](Peer& peer) {
            if (stls ? UpgradeByStls(peer, Localhost()) : peer.StartTls(Localhost()))
                ServeMailbox(peer, Message("m1"), !stls);
        });
        std::vector<int> begun, ended;
        Look(server.Port(), [&](std::span<const CProbeStep> steps) {
            begun.push_back(steps.back().kind);
            ended.clear();
            for (const CProbeStep& step : steps.first(steps.size() - 1)) ended.push_back(step.kind);
        });
        const int greeting = stls ? PROBE_GREETING : PROBE_TLS;  // of both the first
        EXPECT_THAT(begun,
                    ElementsAre(PROBE_FIND_SERVER, PROBE_CONNECT, greeting, PROBE_LOGIN, PROBE_LIST, PROBE_QUIT));
        EXPECT_THAT(ended, ElementsAre(PROBE_FIND_SERVER, PROBE_CONNECT, greeting, stls ? PROBE_TLS : PROBE_GREETING,
                                       PROBE_LOGIN, PROBE_LIST));
    }
}

// Without the line that a run changes.
std::string WithoutLastTime(std::string settings) {
    const std::size_t begin = settings.find("[lasttime]");
    return settings.erase(begin, settings.find("\r\n\r\n", begin) - begin);
}

TEST_F(MailboxWay, FetchesWithTlsFromTheFirstByteOrByStls) {
    for (const PopTls how : {PopTls::FromTheFirstByte, PopTls::Stls}) {
        Use(how);
        const std::string id = std::to_string(static_cast<int>(how));
        const ScriptedServer server([&](Peer& peer) {
            const bool stls = how == PopTls::Stls;
            if (stls ? UpgradeByStls(peer, Localhost()) : peer.StartTls(Localhost()))
                ServeMailbox(peer, Message("m" + id), !stls);
        });
        profile.setting.popport = server.Port();
        EXPECT_EQ(profile.SaveSetting(), 1);
        const std::string before = ReadFile(ProfileFile(profile));
        WriteUidls(*profile.forward_addresses[0], {});

        const CRunResult& result = Run(server.Port());

        EXPECT_EQ(result.ending, CRunEnding::Delivered) << result.mailbox.reply << result.mailbox.reason;
        EXPECT_EQ(Arrived(smtp).count("m" + id + " -> a@example.net"), 1U);
        EXPECT_EQ(WithoutLastTime(ReadFile(ProfileFile(profile))), WithoutLastTime(before));
        EXPECT_THAT(LogText(profile), HasSubstr("connecting.. localhost\n+OK ready\n"));
    }
}

struct Refused {
    const char* what;
    PopTls how;
    std::function<void(Peer&)> server;
    std::string reply;  // begins so
    CFailureClass failure_class = CFailureClass::Permanent;
};

std::vector<Refused> RefusedOnes() {
    const TlsIdentity other_authority = MakeTlsIdentity();
    TlsIdentity old = Localhost();
    old.only_version = TLS1_1_VERSION;
    const auto with = [](const TlsIdentity& identity) { return [identity](Peer& peer) { peer.StartTls(identity); }; };
    const auto says = [](std::string words) {
        return [words](Peer& peer) {
            peer.Send(words);
            peer.WaitForClose();
        };
    };
    const auto answers_stls = [](std::string words) {
        return [words](Peer& peer) {
            peer.Send("+OK ready\r\n");
            peer.Expect("STLS");
            peer.Send(words);
            peer.WaitForClose();
        };
    };
    constexpr auto kFirst = PopTls::FromTheFirstByte;
    constexpr auto kStls = PopTls::Stls;
    constexpr auto kTransient = CFailureClass::Transient;
    return {
        {"another authority", kFirst, with(other_authority),
         "-ERR [SYS/PERM] TLS: the certificate is of an authority that is not trusted here"},
        {"TLS 1.1", kFirst, with(old), "-ERR [SYS/PERM] TLS: the server does not speak TLS 1.2 or newer"},
        {"no TLS", kFirst, says("+OK ready\r\n"), "-ERR [SYS/PERM] TLS: the server does not speak TLS here"},
        {"cut", kFirst, [](Peer& peer) { peer.Close(); }, "-ERR [SYS/TEMP] TLS: the server closed the connection",
         kTransient},
        {"another authority, by STLS", kStls, [&](Peer& peer) { UpgradeByStls(peer, MakeTlsIdentity()); },
         "-ERR [SYS/PERM] TLS: the certificate is of an authority that is not trusted here"},
        {"no STLS", kStls, answers_stls("-ERR unknown command\r\n"),
         "-ERR [SYS/PERM] TLS: the server refuses STLS: -ERR unknown command"},
        {"no STLS now", kStls, answers_stls("-ERR [SYS/TEMP] busy\r\n"), "-ERR [SYS/TEMP] TLS: the server refuses STLS",
         kTransient},
        {"bytes behind the answer to STLS", kStls, answers_stls("+OK go on\r\n+OK logged in\r\n"),
         "-ERR [SYS/PERM] TLS: the server spoke out of turn before TLS"},
        {"bytes behind the greeting", kStls, says("+OK ready\r\n+OK go on\r\n"),
         "-ERR [SYS/PERM] TLS: the server spoke out of turn before TLS"},
        {"a line without an end", kStls, says(std::string(5000, 'x')),
         "-ERR [SYS/PERM] TLS: the server does not speak POP3"},
        {"its own refusal", kStls, says("-ERR [IN-USE] not now\r\n"), "-ERR [IN-USE] not now", kTransient},
        {"cut before STLS", kStls, says("+OK re"), "-ERR [SYS/TEMP] TLS: the server closed the connection", kTransient},
    };
}

// The password is never said, and nothing of the mailbox counts.
TEST_F(MailboxWay, WhatIsRefusedReachesTheRunAsAGreetingWithTheReason) {
    for (const Refused& one : RefusedOnes()) {
        SCOPED_TRACE(one.what);
        Use(one.how);
        const bool closes = std::string(one.what) == "cut before STLS";
        ScriptedServer server([&](Peer& peer) {
            if (closes) return peer.Send("+OK re");
            one.server(peer);
        });
        const CRunResult& result = Run(server.Port());
        EXPECT_EQ(result.ending, CRunEnding::MailboxFailed);
        EXPECT_THAT(result.mailbox.reply, StartsWith(one.reply)) << result.mailbox.reason;
        EXPECT_EQ(result.mailbox.failure_class, one.failure_class);
        EXPECT_EQ(result.mailbox.stage, CRunStage::Greeting);
        EXPECT_THAT(server.Transcript(), Not(HasSubstr("USER")));
    }
}

TEST_F(MailboxWay, CertificateHasToBeOfTheServerAndOfNow) {
    struct Case {
        TlsOptions options;
        std::string reply;
    };
    for (const Case& one : {Case{{.names = {"pop.example.org"}}, "the certificate is for another host"},
                            Case{{.expired = true}, "the certificate has expired"}}) {
        const TlsIdentity identity = MakeTlsIdentity(one.options);
        Trust(identity);
        const ScriptedServer server([&](Peer& peer) { peer.StartTls(identity); });
        EXPECT_EQ(Run(server.Port()).mailbox.reply, "-ERR [SYS/PERM] TLS: " + one.reply);
        EXPECT_THAT(LogText(profile), HasSubstr("\n-ERR [SYS/PERM] TLS: " + one.reply + "\nError..Closing Socket\n"));
    }
    const TlsIdentity by_address = MakeTlsIdentity({.names = {}});
    Trust(by_address);
    profile.setting.popserver = "127.0.0.1";
    const ScriptedServer server([&](Peer& peer) {
        if (peer.StartTls(by_address)) ServeMailbox(peer, Message("m"));
    });
    EXPECT_EQ(Run(server.Port()).ending, CRunEnding::Delivered);
}

TEST_F(MailboxWay, AuthorityThatCannotBeReadIsNotReplacedByTheSystems) {
    std::filesystem::remove(std::string(tree.Folder() / "ca.pem"));
    const ScriptedServer server([](Peer& peer) { peer.StartTls(Localhost()); });
    EXPECT_THAT(Run(server.Port()).mailbox.reply,
                StartsWith("-ERR [SYS/PERM] TLS: the file of tls_authority cannot be read"));
}

TEST_F(MailboxWay, ServerThatCannotBeReachedIsToldInTheWordsOfTheRun) {
    const CRunFailure failure = Run(UnusedPort()).mailbox;
    EXPECT_EQ(failure.stage, CRunStage::Connect);
    EXPECT_EQ(failure.failure_class, CFailureClass::Connection);
    EXPECT_THAT(failure.reason, HasSubstr("could not connect to"));
}

TEST_F(MailboxWay, WithoutTunnelsNothingGoesInClear) {
    const ScriptedServer server([](Peer& peer) { peer.WaitForClose(); });
    host::RuleMemory memory(tree.root.path, [](const std::string&) {});
    host::ByteBudget budget{1 << 20};
    profile.setting.popport = server.Port();
    host::KeptMails kept(budget);
    host::RunRules rules(*host::RulesOf(profile), profile, memory, budget, kept);
    CPopProfile copy;
    copy = profile;
    copy.guard = &rules;
    copy.DoOperation();
    EXPECT_EQ(copy.result.mailbox.failure_class, CFailureClass::Local);
    EXPECT_EQ(server.Connections(), 0);
}

TEST_F(MailboxWay, CarriesWhatIsBigAndWhatComesInDrops) {
    std::string big = Message("big");
    while (big.size() < std::size_t{8} << 20) big += std::string(998, 'x') + "\r\n";
    const ScriptedServer server([&](Peer& peer) {
        if (peer.StartTls(Localhost())) ServeMailbox(peer, big);
    });
    EXPECT_EQ(Run(server.Port()).ending, CRunEnding::Delivered);
    ASSERT_EQ(smtp.Delivered().size(), 1U);
    EXPECT_EQ(smtp.Delivered()[0].text, big);

    WriteUidls(*profile.forward_addresses[0], {});
    const ScriptedServer slow([&](Peer& peer) {
        if (!peer.StartTls(Localhost())) return;
        peer.Drip("+OK ready\r\n", 5ms);
        ServeMailbox(peer, Message("slow"), false);
    });
    EXPECT_EQ(Run(slow.Port()).ending, CRunEnding::Delivered);
}

TEST_F(MailboxWay, ConversationThatIsCutIsALostConnection) {
    const ScriptedServer server([](Peer& peer) {
        if (!peer.StartTls(Localhost())) return;
        peer.Send("+OK ready\r\n");
        peer.Expect("USER alice");
        peer.CloseWithoutNotify();
        peer.WaitForClose();
    });
    const CRunFailure failure = Run(server.Port()).mailbox;
    EXPECT_EQ(failure.stage, CRunStage::Login);
    EXPECT_EQ(failure.failure_class, CFailureClass::Connection);
}

TEST_F(MailboxWay, StallsObeyTheTimeOutOfTheProfile) {
    profile.setting.timeout = kStall_s;
    const std::vector<ScriptedServer::Session> stalls = {[](Peer& peer) { peer.WaitForClose(); },
                                                         [](Peer& peer) {
                                                             if (peer.StartTls(Localhost())) peer.WaitForClose();
                                                         }};
    for (const ScriptedServer::Session& stall : stalls) {
        const ScriptedServer server(stall);
        EXPECT_EQ(Run(server.Port()).mailbox.failure_class, CFailureClass::TimeOut);
    }
}

TEST_F(MailboxWay, HundredStalledOnesEndAtOnce) {
    constexpr int kMany = 100;
    Counter stalled;
    const ScriptedServer server([&](Peer& peer) {
        if (stalled.Add() % 2 == 0) peer.StartTls(Localhost());
        peer.WaitForClose();
    });
    WriteFile(OnDisk(tree.root.path) + "/host.def",
              ReadFile(OnDisk(tree.root.path) + "/host.def") + "[backoff]\r\n0\r\n");
    std::vector<CPopProfile*> profiles = {&profile};
    while (profiles.size() < kMany) {
        profiles.push_back(&tree.AddProfile(0, smtp.Port()));
        profiles.back()->setting.popserver = "localhost";
        profiles.back()->setting.timeout = 120;
        AddAddress(*profiles.back(), "a@example.net");
    }
    for (CPopProfile* one : profiles) {
        one->setting.popport = server.Port();
        ASSERT_EQ(runs.Start(tree.root, *one), CStartResult::Started);
    }
    ASSERT_TRUE(stalled.WaitFor(kMany));
    const auto begun = std::chrono::steady_clock::now();
    InterruptRuns(tree.root);
    EXPECT_EQ(tree.root.WaitThread(30'000), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 5s);
}

std::vector<std::string> Shown(const CArray<CProbeStep>& steps) {
    std::vector<std::string> shown;
    for (const CProbeStep& step : steps) {
        shown.push_back(std::string(ProbeStepName(step.kind)) + (step.failure == PROBE_SUCCESS ? ": " : " failed: ") +
                        step.text);
    }
    return shown;
}

TEST_F(MailboxWay, LookShowsTlsAsAStep) {
    const auto list = [](Peer& peer) {
        peer.Expect("USER alice");
        peer.Send("+OK\r\n");
        peer.Expect("PASS secret");
        peer.Send("+OK in\r\n");
        peer.Expect("UIDL");
        peer.Send("+OK one\r\n1 u1\r\n.\r\n");
        peer.Expect("LIST");
        peer.Send("+OK\r\n1 100\r\n.\r\n");
        peer.Expect("QUIT");
        peer.Send("+OK bye\r\n");
        peer.WaitForClose();
    };
    const ScriptedServer server([&](Peer& peer) {
        if (peer.StartTls(Localhost(), "+OK ready\r\n")) list(peer);
    });
    const auto tls_step =
        AllOf(StartsWith("TLS: TLSv1.3, TLS_AES_256_GCM_SHA384, certificate for localhost, 127.0.0.1, "),
              HasSubstr(" days left"));
    EXPECT_THAT(Shown(Look(server.Port()).steps),
                ElementsAre("find the server: ", "connect: ", tls_step, "greeting: +OK ready", "log in: +OK in",
                            "list: +OK one", "quit: +OK bye"));

    Use(PopTls::Stls);
    const ScriptedServer upgrading([&](Peer& peer) {
        if (UpgradeByStls(peer, Localhost())) list(peer);
    });
    EXPECT_THAT(Shown(Look(upgrading.Port()).steps),
                ElementsAre("find the server: ", "connect: ", "greeting: +OK ready", tls_step, "log in: +OK in",
                            "list: +OK one", "quit: +OK bye"));
}

TEST_F(MailboxWay, LookTellsWhyThereIsNoTls) {
    const ScriptedServer plain([](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.WaitForClose();
    });
    const CProbeStep no_tls = Look(plain.Port()).steps.back();
    EXPECT_EQ(no_tls.kind, PROBE_TLS);
    EXPECT_EQ(no_tls.failure, PROBE_NO_TLS);

    const ScriptedServer another([](Peer& peer) { peer.StartTls(MakeTlsIdentity()); });
    const CProbeStep untrusted = Look(another.Port()).steps.back();
    EXPECT_EQ(untrusted.failure, PROBE_BAD_CERTIFICATE);
    EXPECT_EQ(untrusted.reason, CProbeReason::NotTrusted);

    profile.setting.timeout = kStall_s;
    const ScriptedServer silent([](Peer& peer) { peer.WaitForClose(); });
    const CProbeStep stalled = Look(silent.Port()).steps.back();
    EXPECT_EQ(stalled.kind, PROBE_TLS);
    EXPECT_EQ(stalled.failure, PROBE_TIMED_OUT);

    WriteFile(OnDisk(tree.root.path) + "/host.def", "[pop_tls]\r\nmaybe\r\n");
    EXPECT_EQ(Look(silent.Port()).steps.back().failure, PROBE_LOCAL);
}

// A login that is spoken between the two: the password that the run gives never reaches the server.
class Answering final : public host::TunnelSpeaker {
public:
    host::Turn FromServer(std::string& heard, host::Said& said) override {
        said.to_run = heard;
        heard.clear();
        return host::Turn::GoesOn;
    }
    host::Turn FromRun(std::string& heard, host::Said& said) override {
        if (!heard.ends_with("\r\n")) return host::Turn::GoesOn;
        const bool is_user = heard.starts_with("USER");
        heard.clear();
        if (is_user) {
            said.to_run = "+OK\r\n";
            return host::Turn::GoesOn;
        }
        said.to_server = "AUTH TOKEN\r\n";
        return host::Turn::Done;
    }
};

struct SpeakingGuard : CRunGuard {
    host::Tunnels tunnels;
    std::string authority;

    CConnection Connects(const CPopProfile& /*profile*/, CServerToReach& server) override {
        host::TunnelPlan plan;
        plan.server = server.name;
        plan.authority = authority;
        plan.after_tls = std::make_unique<Answering>();
        return tunnels.Open(server.Connect(), std::move(plan));
    }
};

TEST_F(MailboxWay, SpeakerMayLogInInThePlaceOfTheRun) {
    ScriptedServer server([](Peer& peer) {
        if (!peer.StartTls(Localhost(), "+OK ready\r\n")) return;
        peer.Expect("AUTH TOKEN");
        peer.Send("+OK in\r\n");
        peer.Expect("UIDL");
        peer.Send("+OK\r\n.\r\n");
        peer.Expect("QUIT");
        peer.Send("+OK\r\n");
        peer.WaitForClose();
    });
    SpeakingGuard guard;
    guard.authority = tree.Folder() / "ca.pem";
    profile.setting.popport = server.Port();
    CPopProfile copy;
    copy = profile;
    copy.guard = &guard;
    copy.DoOperation();
    EXPECT_EQ(copy.result.ending, CRunEnding::NothingNew) << copy.result.mailbox.reply;
    EXPECT_THAT(server.Transcript(), Not(HasSubstr("secret")));
}

}  // namespace
}  // namespace tarvex::testing
