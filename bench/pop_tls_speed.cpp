// Fetches mailboxes of Dovecot in clear and through tunnels with TLS, in turn, and prints how fast that is: medians
// over the rounds, the throughput beside that in clear, and what this process does for it. A client that does nothing
// but read what comes, in clear and through TLS, shows what the server allows: it cannot be beaten.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
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
    const char* name;
    std::function<std::size_t()> fetch;  // returns the bytes of the messages
    std::vector<double> seconds = {};
    std::vector<double> cpu_seconds = {};  // of this process, without the server
    std::vector<double> waits = {};        // how often a thread of it has waited
};

rusage Used() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    return used;
}

double CpuSeconds(const rusage& used) {
    return static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
           static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1e6;
}

// Reads what comes and keeps none of it.
class BareClient {
public:
    BareClient(int port, bool tls) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int on = 1;
        setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        Require(connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0);
        if (!tls) return;
        context_.reset(SSL_CTX_new(TLS_client_method()));
        ssl_.reset(SSL_new(context_.get()));
        Require(SSL_set_fd(ssl_.get(), socket_) == 1 && SSL_connect(ssl_.get()) == 1);
    }
    ~BareClient() { close(socket_); }
    BareClient(const BareClient&) = delete;
    BareClient& operator=(const BareClient&) = delete;

    std::size_t Fetch(const Login& login, int messages) {
        Line();
        for (const std::string& command : {"USER " + login.user, "PASS " + login.password}) {
            Send(command);
            Line();
        }
        std::size_t bytes = 0;
        for (int message = 1; message <= messages; ++message) {
            Send("RETR " + std::to_string(message));
            bytes += Text();
        }
        Send("QUIT");
        Line();
        return bytes;
    }

private:
    static void Require(bool good) {
        if (!good) throw std::runtime_error("the client that only reads has failed");
    }

    void Send(const std::string& command) {
        const std::string line = command + "\r\n";
        const auto size = static_cast<int>(line.size());
        Require((ssl_ ? SSL_write(ssl_.get(), line.data(), size)
                      : static_cast<int>(send(socket_, line.data(), line.size(), 0))) == size);
    }

    // One piece; its end is kept, to find the end of an answer in.
    std::size_t Read() {
        const auto room = static_cast<int>(buffer_.size());
        const int bytes = ssl_ ? SSL_read(ssl_.get(), buffer_.data(), room)
                               : static_cast<int>(recv(socket_, buffer_.data(), buffer_.size(), 0));
        Require(bytes > 0);
        tail_.append(buffer_.data(), static_cast<std::size_t>(bytes));
        if (tail_.size() > kEnd.size()) tail_.erase(0, tail_.size() - kEnd.size());
        return static_cast<std::size_t>(bytes);
    }
    void Line() {
        while (!tail_.ends_with("\r\n")) Read();
        tail_.clear();
    }
    std::size_t Text() {
        std::size_t bytes = 0;
        while (!tail_.ends_with(kEnd)) bytes += Read();
        tail_.clear();
        return bytes;
    }

    static constexpr std::string_view kEnd = "\r\n.\r\n";
    struct Release {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };
    const int socket_;
    std::unique_ptr<SSL_CTX, Release> context_;
    std::unique_ptr<SSL, Release> ssl_;
    std::array<char, 64 * 1024> buffer_{};
    std::string tail_;
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

std::size_t FetchAsARun(const PopServer& server, const Login& login, PopTls tls, host::Ways& ways) {
    HostRules rules;
    rules.pop_tls = static_cast<int>(tls);
    rules.tls_authority = server.CaFile();
    Guard guard(rules, ways);
    CPopProfile profile;
    profile.setting.popserver = "localhost";
    profile.setting.popport = tls == PopTls::FromTheFirstByte ? server.TlsPort() : server.Port();
    profile.setting.popuser = login.user;
    profile.setting.poppassword = login.password;
    profile.guard = &guard;
    return Fetch(profile);
}

void Compare(const PopServer& server, const Login& login, int messages, const char* what) {
    host::Ways shared{""};
    const auto run = [&](PopTls tls) { return [&, tls] { return FetchAsARun(server, login, tls, shared); }; };
    const auto bare = [&](bool tls) {
        return [&, tls] { return BareClient(tls ? server.TlsPort() : server.Port(), tls).Fetch(login, messages); };
    };
    std::vector<Way> ways = {{"clear", run(PopTls::Off)},
                             {"tls", run(PopTls::FromTheFirstByte)},
                             {"starttls", run(PopTls::Stls)},
                             {"only read, clear", bare(false)},
                             {"only read, tls", bare(true)}};
    std::size_t bytes = 0;
    for (int round = -1; round < kRounds; ++round) {
        for (Way& way : ways) {
            const rusage before = Used();
            const auto begun = std::chrono::steady_clock::now();
            bytes = way.fetch();
            const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begun;
            const rusage after = Used();
            if (round < 0) continue;  // that one warms up
            way.seconds.push_back(taken.count());
            way.cpu_seconds.push_back(CpuSeconds(after) - CpuSeconds(before));
            way.waits.push_back(static_cast<double>(after.ru_nvcsw - before.ru_nvcsw));
        }
    }
    const double clear_s = Median(ways.front().seconds);
    const double bare_tls_s = Median(ways.back().seconds);
    for (const Way& way : ways) {
        const double seconds = Median(way.seconds);
        std::printf(
            "%-24s %-17s %7.1f ms %7.1f MB/s   %.2f of clear   %.2f of only reading through TLS"
            "   cpu %6.1f ms   %6.0f waits\n",
            what, way.name, seconds * 1e3, static_cast<double>(bytes) / seconds / 1e6, clear_s / seconds,
            bare_tls_s / seconds, Median(way.cpu_seconds) * 1e3, Median(way.waits));
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
        tarvex::bench::Compare(server, kSmall, 500, "500 messages of 20 kB");
        tarvex::bench::Compare(server, kLarge, 100, "100 messages of 500 kB");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
