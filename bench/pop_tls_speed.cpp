// Fetches mailboxes of Dovecot in clear and through tunnels with TLS, in turn, and prints how fast that is: medians
// over the rounds, and the throughput beside that in clear.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "host/ways/server_way.h"
#include "tests/real/servers/real_servers.h"

namespace tarvex::bench {
namespace {

using host::HostRules;
using host::PopTls;
using testing::Login;
using testing::PopServer;

constexpr int kRounds = 9;

struct Way {
    PopTls tls;
    const char* name;
    std::vector<double> seconds = {};
};

class Guard final : public CRunGuard {
public:
    Guard(const HostRules& rules, host::Ways& ways) : rules_(rules), ways_(ways) {}
    CConnection Connects(const CPopProfile& profile, CServerToReach& server) override {
        return host::WayTo(server, profile, rules_, &ways_);
    }

private:
    const HostRules& rules_;
    host::Ways& ways_;
};

// The bytes of the messages.
std::size_t Fetch(CPopProfile& profile) {
    CArray<CReceiveMail*, CReceiveMail*> mails;
    CCheckedMail handled;
    CCheckedMail present;
    if (!profile.PopProcess(&mails, &handled, &present)) {
        std::fprintf(stderr, "the mailbox failed: %s%s\n", profile.result.mailbox.reply.c_str(),
                     profile.result.mailbox.reason.c_str());
        std::exit(1);
    }
    std::size_t bytes = 0;
    for (const CReceiveMail* mail : mails) {
        bytes += mail->text.size();
        delete mail;
    }
    return bytes;
}

void Compare(const PopServer& server, const Login& login, const char* what) {
    std::vector<Way> ways = {{PopTls::Off, "clear"}, {PopTls::FromTheFirstByte, "tls"}, {PopTls::Stls, "starttls"}};
    host::Ways shared{""};
    std::size_t bytes = 0;
    for (int round = -1; round < kRounds; ++round) {
        for (Way& way : ways) {
            HostRules rules;
            rules.pop_tls = static_cast<int>(way.tls);
            rules.tls_authority = server.CaFile();
            Guard guard(rules, shared);
            CPopProfile profile;
            profile.setting.popserver = "localhost";
            profile.setting.popport = way.tls == PopTls::FromTheFirstByte ? server.TlsPort() : server.Port();
            profile.setting.popuser = login.user;
            profile.setting.poppassword = login.password;
            profile.guard = &guard;
            const auto begun = std::chrono::steady_clock::now();
            bytes = Fetch(profile);
            const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begun;
            if (round >= 0) way.seconds.push_back(taken.count());  // the first one warms up
        }
    }
    const double clear_s = Median(ways.front().seconds);
    for (const Way& way : ways) {
        const double seconds = Median(way.seconds);
        std::printf("%-30s %-9s %7.1f ms %7.1f MB/s   %.2f of clear\n", what, way.name, seconds * 1e3,
                    static_cast<double>(bytes) / seconds / 1e6, clear_s / seconds);
    }
}

}  // namespace
}  // namespace tarvex::bench

int main() {
    using namespace tarvex::testing;
    try {
        const Login kSmall{"alice", "alice's password"};
        const Login kLarge{"bob", "bob pass"};
        PopServer server(TlsOptions{.names = {"localhost"}});
        server.Deliver(kSmall, MakeOrdinaryMails(500, 20'000));
        server.Deliver(kLarge, MakeOrdinaryMails(100, 500'000));
        tarvex::bench::Compare(server, kSmall, "500 messages of 20 kB");
        tarvex::bench::Compare(server, kLarge, "100 messages of 500 kB");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
