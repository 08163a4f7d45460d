// What tunnels cost the system: threads, ports, descriptors.

#include "host/tunnels/tunnels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/system/process.h"
#include "testing/scripted_server.h"
#include "testing/temp_dir.h"
#include "testing/tls.h"
#include "tests/support/process_facts.h"

namespace tarvex::testing {
namespace {

// The server's end of a connection, spoken by the thread of the test.
class ServerEnd {
public:
    ServerEnd(int socket, const TlsIdentity& identity) : socket_(socket), tls_(identity) {}

    void ShakeHands() {
        while (tls_.Handshake() == TlsServer::Progress::NeedsMore) {
            Flush();
            std::array<char, 4096> buffer;
            const ssize_t bytes = recv(static_cast<int>(socket_.Socket()), buffer.data(), buffer.size(), 0);
            ASSERT_GT(bytes, 0);
            tls_.Received({buffer.data(), static_cast<std::size_t>(bytes)});
        }
        Flush();
    }
    void Say(const std::string& line) {
        tls_.Write(line);
        Flush();
    }
    // What the client has to answer, again and again. Returns how many bytes it took before it took no more.
    std::size_t AskForNewKeys(std::size_t most_bytes) {
        std::size_t taken = 0;
        std::string output;
        while (taken < most_bytes) {
            while (output.size() < 16384) {
                tls_.AskForNewKeys();
                output += tls_.TakeOutput();
            }
            pollfd wanted{static_cast<int>(socket_.Socket()), POLLOUT, 0};
            if (poll(&wanted, 1, 2000) <= 0) break;
            const ssize_t sent = send(wanted.fd, output.data(), output.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (sent <= 0) break;
            taken += static_cast<std::size_t>(sent);
            output.erase(0, static_cast<std::size_t>(sent));
        }
        return taken;
    }

private:
    void Flush() {
        const std::string output = tls_.TakeOutput();
        EXPECT_EQ(send(static_cast<int>(socket_.Socket()), output.data(), output.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(output.size()));
    }

    CConnection socket_;
    TlsServer tls_;
};

std::string Heard(const CConnection& run, std::size_t bytes) {
    std::string heard;
    std::vector<char> buffer(std::min<std::size_t>(bytes, 65536));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (heard.size() < bytes && std::chrono::steady_clock::now() < deadline) {
        const ssize_t now =
            recv(static_cast<int>(run.Socket()), buffer.data(), std::min(buffer.size(), bytes - heard.size()), 0);
        if (now == 0) break;
        if (now > 0) heard.append(buffer.data(), static_cast<std::size_t>(now));
        if (now < 0) std::this_thread::yield();
    }
    return heard;
}

bool FallsToNone(const host::Tunnels& tunnels) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (tunnels.Count() > 0 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    return tunnels.Count() == 0;
}

// The sockets of this process that listen.
std::size_t Listening() {
    std::set<std::string> own;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        own.insert(std::filesystem::read_symlink(entry.path(), error).string());
    }
    std::size_t count = 0;
    for (const char* const file : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream table(file);
        for (std::string line; std::getline(table, line);) {
            std::istringstream words(line);
            std::vector<std::string> columns;
            for (std::string word; words >> word;) columns.push_back(word);
            constexpr std::size_t kState = 3, kInode = 9;
            if (columns.size() > kInode && columns[kState] == "0A")
                count += own.count("socket:[" + columns[kInode] + "]");
        }
    }
    return count;
}

class ManyTunnels : public ::testing::Test {
protected:
    ManyTunnels() { WriteFile(folder / "ca.pem", identity.ca_certificate); }

    void Open() {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        host::TunnelPlan plan;
        plan.server = "localhost";
        plan.authority = folder / "ca.pem";
        servers.emplace_back(ends[0], identity);
        runs.push_back(tunnels.Open(CConnection(ends[1]), std::move(plan)));
    }

    TempDir folder;
    const TlsIdentity identity = MakeTlsIdentity();
    std::vector<CConnection> runs;
    std::vector<ServerEnd> servers;
    host::Tunnels tunnels;
};

TEST_F(ManyTunnels, ThousandAtOnceCostOneThreadAndNoPort) {
    host::RaiseFileLimit();
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < 4500) GTEST_SKIP() << "this system allows only " << limit.rlim_cur << " descriptors";
    const std::ptrdiff_t threads = ThreadCount();
    const std::size_t listening = Listening();
    const std::size_t memory = ResidentMemoryBytes();
    for (int i = 0; i < 1000; ++i) Open();
    for (ServerEnd& server : servers) ASSERT_NO_FATAL_FAILURE(server.ShakeHands());
    for (std::size_t i = 0; i < servers.size(); ++i) servers[i].Say("+OK " + std::to_string(1000 + i) + "\r\n");
    for (std::size_t i = 0; i < servers.size(); ++i) {
        ASSERT_EQ(Heard(runs[i], 10), "+OK " + std::to_string(1000 + i) + "\r\n");
    }
    EXPECT_EQ(tunnels.Count(), 1000);
    EXPECT_EQ(ThreadCount(), threads + 1);
    EXPECT_EQ(Listening(), listening);
    EXPECT_LT(ResidentMemoryBytes() - memory, std::size_t{200} << 20) << "with the servers' side";
    runs.clear();
    EXPECT_TRUE(FallsToNone(tunnels));
}

// Nobody reads: what a server sends must not pile up.
TEST_F(ManyTunnels, RunThatDoesNotReadSlowsTheServerDown) {
    ASSERT_NO_FATAL_FAILURE(Open());
    ASSERT_NO_FATAL_FAILURE(servers[0].ShakeHands());
    std::atomic<std::size_t> said = 0;
    std::thread server([&] {
        for (int i = 0; i < 640; ++i) {
            servers[0].Say(std::string(100'000, 'x'));
            said += 100'000;
        }
    });
    const std::size_t memory = ResidentMemoryBytes();
    std::size_t heard = 0;
    while (heard < 64'000'000) {
        const std::size_t now = Heard(runs[0], 100'000).size();
        if (now == 0) break;
        heard += now;
        EXPECT_LT(said - std::min<std::size_t>(said, heard), std::size_t{4} << 20);
    }
    server.join();
    EXPECT_GE(heard, 64'000'000U);
    EXPECT_LT(ResidentMemoryBytes(), memory + (std::size_t{16} << 20));
}

// What a server makes the tunnel answer, without reading the answers, must not pile up either.
TEST_F(ManyTunnels, ServerThatDoesNotReadIsNotReadEither) {
    ASSERT_NO_FATAL_FAILURE(Open());
    ASSERT_NO_FATAL_FAILURE(servers[0].ShakeHands());
    constexpr std::size_t kMost = std::size_t{2} << 20;
    EXPECT_LT(servers[0].AskForNewKeys(kMost), kMost);
}

TEST_F(ManyTunnels, ThoseThatAreLeftEndWithTheirOwner) {
    auto owner = std::make_unique<host::Tunnels>();
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const CConnection server(ends[0]);
    host::TunnelPlan plan;
    plan.server = "localhost";
    const CConnection run = owner->Open(CConnection(ends[1]), std::move(plan));
    owner.reset();
    EXPECT_EQ(Heard(run, 1), "");
}

}  // namespace
}  // namespace tarvex::testing
