// What `tarvex status` says where TLS to the POP3 server fails, and what TLS leaves as it was: the settings of the
// profile, and the ports of this machine.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "testing/scripted_server.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr int kFromTheFirstByte = 1;
constexpr int kByStls = 2;

// A tree whose profile fetches from localhost over TLS, and trusts the authority of that server.
struct TlsHost : Host {
    TlsHost(int pop_port, int smtp_port, int tls, const TlsIdentity& trusted) {
        profile = AddProfile(pop_port, smtp_port, [](CPopProfile& adapted) {
            adapted.setting.popserver = "localhost";
            adapted.setting.apop = 0;
            adapted.setting.timeout = 20;
        });
        WriteFile(Root() + "/ca.pem", trusted.ca_certificate);
        WriteFile(Root() + "/host.def",
                  "[pop_tls]\r\n" + std::to_string(tls) + "\r\n[tls_authority]\r\n" + Root() + "/ca.pem\r\n");
    }
    std::string profile;
};

struct Failing {
    const char* what;
    int tls;
    TlsIdentity trusted;
    std::function<void(Peer&)> server;
    std::string reason;
};

std::vector<Failing> FailingOnes() {
    const TlsIdentity good = MakeTlsIdentity();
    const TlsIdentity other_name = MakeTlsIdentity({.names = {"pop.example.org"}, .addresses = {}});
    const TlsIdentity expired = MakeTlsIdentity({.expired = true});
    TlsIdentity old = good;
    old.only_version = TLS1_1_VERSION;
    const auto with = [](const TlsIdentity& identity) { return [identity](Peer& peer) { peer.StartTls(identity); }; };
    const auto stls = [](std::string answer, std::function<void(Peer&)> then) {
        return [=](Peer& peer) {
            peer.Send("+OK ready\r\n");
            peer.Expect("STLS");
            peer.Send(answer);
            then(peer);
        };
    };
    const auto waits = [](Peer& peer) { peer.WaitForClose(); };
    const std::string for_good = "-ERR [SYS/PERM] TLS: ";
    const std::string for_now = "-ERR [SYS/TEMP] TLS: ";
    return {
        {"wrong authority", kFromTheFirstByte, MakeTlsIdentity(), with(good),
         for_good + "the certificate is of an authority that is not trusted here"},
        {"wrong authority by STLS", kByStls, MakeTlsIdentity(), stls("+OK\r\n", with(good)),
         for_good + "the certificate is of an authority that is not trusted here"},
        {"wrong name", kFromTheFirstByte, other_name, with(other_name),
         for_good + "the certificate is for another host"},
        {"expired", kFromTheFirstByte, expired, with(expired), for_good + "the certificate has expired"},
        {"TLS 1.1", kFromTheFirstByte, good, with(old), for_good + "the server does not speak TLS 1.2 or newer"},
        {"bytes behind the answer to STLS", kByStls, good, stls("+OK\r\n+OK logged in\r\n", waits),
         for_good + "the server spoke out of turn before TLS"},
        {"no STLS", kByStls, good, stls("-ERR unknown command\r\n", waits), for_good + "the server refuses STLS"},
        {"cut", kFromTheFirstByte, good, [](Peer& peer) { peer.Close(); },
         for_now + "the server closed the connection"},
        {"cut behind the greeting", kFromTheFirstByte, good,
         [good](Peer& peer) {
             if (!peer.StartTls(good)) return;
             peer.Send("+OK ready\r\n");
             peer.Expect("USER user");
             peer.CloseWithoutNotify();
             peer.WaitForClose();
         },
         "the server closed the connection"},
    };
}

TEST(TlsStatus, TellsWhyThereIsNone) {
    for (const Failing& one : FailingOnes()) {
        SCOPED_TRACE(one.what);
        SinkServer sink;
        ScriptedServer server([&](Peer& peer) { one.server(peer); });
        const TlsHost host(server.Port(), sink.Port(), one.tls, one.trusted);
        host.Run(kUnavailable);
        EXPECT_THAT(host.Tell({"status"}, 1), HasSubstr(one.reason));
        EXPECT_THAT(nlohmann::json::parse(host.Tell({"status", "--json"}, 1))[0]["reason"], HasSubstr(one.reason));
        EXPECT_THAT(server.Transcript(), Not(HasSubstr("PASS")));
    }
}

}  // namespace
}  // namespace tarvex::testing
