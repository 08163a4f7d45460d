// Figures at a path and in files: whose the socket is, and that counters never fall.

#include "host/metrics/metrics_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "host/system/command_error.h"
#include "host/system/posix/descriptor.h"
#include "tests/host/metrics/measured_tree.h"

namespace tarvex::testing {
namespace {

using host::Descriptor;
using ::testing::EndsWith;
namespace fs = std::filesystem;

constexpr auto kLong = 20s;

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(path, address.sun_path);
    return address;
}

std::string Ask(const Descriptor& client, const std::string& request) {
    EXPECT_EQ(send(client.Get(), request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
    std::string text;
    std::array<char, 4096> piece;
    for (ssize_t count; (count = recv(client.Get(), piece.data(), piece.size(), 0)) > 0;)
        text.append(piece.data(), static_cast<std::size_t>(count));
    return text;
}

TEST(MetricsSocketAtPath, TakesTheSocketOfOneThatIsNoMore) {
    const TempDir root;
    const std::string path = root / "metrics";
    { const host::MetricsServer first(root.String(), "unix:" + path); }
    EXPECT_FALSE(fs::exists(path));
    const Descriptor left(socket(AF_UNIX, SOCK_STREAM, 0));
    const sockaddr_un address = AddressOf(path);
    ASSERT_EQ(bind(left.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const host::MetricsServer second(root.String(), "unix:" + path);
    EXPECT_THROW(host::MetricsServer(root.String(), "unix:" + path), host::CommandError);
}

TEST(MetricsSocketAtPath, DoesNotWaitForOneThatIsHaltedOnItsSocket) {
    const TempDir root;
    const std::string path = root / "metrics";
    const sockaddr_un address = AddressOf(path);
    const auto* const place = reinterpret_cast<const sockaddr*>(&address);
    const Descriptor halted(socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(bind(halted.Get(), place, sizeof address), 0);
    ASSERT_EQ(listen(halted.Get(), 0), 0);
    std::vector<Descriptor> queue;
    do {
        queue.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
    } while (connect(queue.back().Get(), place, sizeof address) == 0);
    EXPECT_THROW(host::MetricsServer(root.String(), "unix:" + path), host::CommandError);
    EXPECT_TRUE(fs::exists(path));
}

class MetricsAtPath : public MeasuredTree {
protected:
    MetricsAtPath() : MeasuredTree("unix:") {}

    std::string File() const { return host_.Root() + "/.tarvex/history.db"; }

    std::string Scrape() const {
        const Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const sockaddr_un address = AddressOf(Path());
        EXPECT_EQ(connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        const timeval patience{20, 0};
        setsockopt(client.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        return Ask(client, "GET /metrics HTTP/1.1\r\n\r\n");
    }

    // That none has fallen, neither in what is served nor in what the command prints.
    void ExpectNoneFell(const std::map<std::string, double>& before) const {
        for (const std::string& text : {Scrape(), host_.Tell({"metrics"})}) {
            auto now = CountersIn(text);
            for (const auto& [name, value] : before) EXPECT_GE(now[name], value) << name;
        }
    }
};

TEST_F(MetricsAtPath, CountersNeverFall) {
    const auto before = CountersIn(Scrape());
    EXPECT_EQ(before.at("tarvex_tree_messages_delivered_total"), 2);
    for (const char* const file : {"", "-wal", "-shm"}) fs::remove(File() + file);
    ExpectNoneFell(before);
    service_->Signal(SIGHUP);
    ASSERT_TRUE(service_->WaitForOutput("loaded the tree again", kLong));
    ExpectNoneFell(before);
    EXPECT_TRUE(fs::exists(File()));
    WriteFile(host_.Root() + "/user0/from0/profile.log", "");
    service_->Kill();
    Serve();
    ExpectNoneFell(before);
    EXPECT_EQ(host_.Tell({"profile", "remove", "user0/from0", "--yes"}), "Removed user0/from0.\n");
    EXPECT_GE(CountersIn(Scrape()).at("tarvex_tree_messages_delivered_total"), 2);
}

TEST_F(MetricsAtPath, GoIntoAFileAsAWhole) {
    const std::string file = folder_ / "tarvex.prom";
    WriteFile(file, "old");
    EXPECT_EQ(host_.Tell({"metrics", "--output", file}), "");
    EXPECT_THAT(ReadFile(file), EndsWith("# EOF\n"));
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0644));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_.String()), {}), 2);  // the socket is the other one
}

}  // namespace
}  // namespace tarvex::testing
