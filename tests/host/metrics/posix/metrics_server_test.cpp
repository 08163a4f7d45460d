// Figures over HTTP and in files: what they say, that they never fall, and that no client keeps anybody waiting.

#include "host/metrics/metrics_server.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "host/history/history.h"
#include "host/system/command_error.h"
#include "host/system/posix/descriptor.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using host::Descriptor;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
namespace fs = std::filesystem;

constexpr auto kLong = 20s;

Descriptor Connect(int port) {
    Descriptor client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const timeval patience{20, 0};
    setsockopt(client.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    return client;
}

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

int PortIn(const std::string& place) {
    return std::stoi(place.substr(place.find("127.0.0.1:") + std::string("127.0.0.1:").size()));
}

// The values by name and labels, of counters alone.
std::map<std::string, double> CountersIn(const std::string& text) {
    std::map<std::string, double> counters;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t end = line.find_first_of("{ ");
        const bool is_counter = line.substr(0, end).ends_with("_total") || line.find("_bucket") != std::string::npos;
        if (line.starts_with("tarvex_") && is_counter)
            counters[line.substr(0, line.rfind(' '))] = std::stod(line.substr(line.rfind(' ')));
    }
    return counters;
}

TEST(MetricsServer, AnswersOneKindOfRequest) {
    const auto figures = [](host::MetricForm form) {
        return std::string(form == host::MetricForm::Text ? "text" : "open");
    };
    for (const auto& [head, status, body] : std::vector<std::array<std::string, 3>>{
             {"GET /metrics HTTP/1.1", "200 OK", "text"},
             {"GET /metrics?x=1 HTTP/1.0\r\nAccept: text/plain", "200 OK", "text"},
             {"GET /metrics HTTP/1.1\r\nAccept: application/openmetrics-text;version=1.0.0", "200 OK", "open"},
             {"GET / HTTP/1.1", "404 Not Found", ""},
             {"GET /metrics/../x HTTP/1.1", "404 Not Found", ""},
             {"HEAD /metrics HTTP/1.1", "405 Method Not Allowed", ""},
             {"POST /metrics HTTP/1.1", "405 Method Not Allowed", ""},
             {"GET /metrics", "400 Bad Request", ""},
             {"GET /metrics SMTP/1.0", "400 Bad Request", ""},
             {"", "400 Bad Request", ""},
         }) {
        const std::string answer = host::AnswerTo(head, figures);
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 " + status + "\r\n")) << head;
        EXPECT_THAT(answer, EndsWith("\r\n\r\n" + (body.empty() ? status + '\n' : body))) << head;
    }
}

TEST(MetricsServer, IsOfThisMachineAlone) {
    const TempDir root;
    for (const char* const place : {"0.0.0.0:9100", "192.0.2.1:9100", "[::]:9100", ":9100", "9100",
                                    "127.0.0.1:", "127.0.0.1:70000", "127.0.0.1:9x", "example.org:9100", "unix:"}) {
        try {
            const host::MetricsServer server(root.String(), place);
            ADD_FAILURE() << place;
        } catch (const host::CommandError& error) {
            EXPECT_EQ(error.ExitCode(), host::kBadUsage) << place;
        }
    }
}

TEST(MetricsServer, SilentClientsKeepNobodyWaitingAndLongRequestsEnd) {
    const TempDir root;
    host::MetricsServer server(root.String(), "127.0.0.1:0");
    const int port = PortIn(server.Place());
    std::vector<Descriptor> silent;
    for (int i = 0; i < 5; ++i) silent.push_back(Connect(port));
    EXPECT_THAT(Ask(Connect(port), "GET /metrics HTTP/1.1\r\n\r\n"), EndsWith("# EOF\n"));
    EXPECT_THAT(Ask(Connect(port), "GET /metrics HTTP/1.1\r\nX: " + std::string(9000, 'x') + "\r\n\r\n"),
                StartsWith("HTTP/1.1 431 "));
}

TEST(MetricsServer, TakesTheSocketOfOneThatIsNoMore) {
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

TEST(MetricsServer, DoesNotWaitForOneThatIsHaltedOnItsSocket) {
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

// A tree with a profile that has sent two messages, and its service.
class Metrics : public ::testing::Test {
protected:
    Metrics() {
        host_.AddProfile(mailbox_.Port(), sink_.Port(), [](CPopProfile& profile) { profile.setting.timer = 60; });
        mailbox_.Add(MailNumber(1));
        mailbox_.Add(MailNumber(2));
        host_.Run(0, {"--now"});
        Serve();
    }

    void Serve() {
        service_ =
            std::make_unique<ChildProcess>(std::vector<std::string>{TARVEX_HOST, "--root", host_.Root(), "serve",
                                                                    "--every", "0.05", "--metrics", "unix:" + Path()},
                                           ChildProcess::Output::Together);
        ASSERT_TRUE(service_->WaitForOutput("serving metrics on ", kLong));
    }

    std::string Path() const { return folder_ / "metrics"; }
    std::string File() const { return host_.Root() + "/.tarvex/history.db"; }

    std::string Scrape(const std::string& more = {}) const {
        const Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::ranges::copy(Path(), address.sun_path);
        EXPECT_EQ(connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        const timeval patience{20, 0};
        setsockopt(client.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        return Ask(client, "GET /metrics HTTP/1.1\r\n" + more + "\r\n");
    }

    // That none has fallen, neither in what is served nor in what the command prints.
    void ExpectNoneFell(const std::map<std::string, double>& before) const {
        for (const std::string& text : {Scrape(), host_.Tell({"metrics"})}) {
            auto now = CountersIn(text);
            for (const auto& [name, value] : before) EXPECT_GE(now[name], value) << name;
        }
    }

    TempDir folder_;
    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
    Host host_;
    std::unique_ptr<ChildProcess> service_;
};

TEST_F(Metrics, TellOfRunsProfilesAndTheServiceWithoutAnAddress) {
    const std::string text = Scrape();
    EXPECT_THAT(text, AllOf(HasSubstr("\ntarvex_runs_total{profile=\"user0/from0\",result=\"delivered\"} 1\n"),
                            HasSubstr("\ntarvex_tree_copies_total 2\n"), HasSubstr("\ntarvex_readable 1\n"),
                            HasSubstr("\ntarvex_run_seconds_bucket{le=\"+Inf\"} 1\ntarvex_run_seconds_sum 0."),
                            HasSubstr("\ntarvex_failed_in_a_row{profile=\"user0/from0\"} 0\n"),
                            HasSubstr("\nprocess_open_fds "), EndsWith("\n# EOF\n")));
    EXPECT_THAT(text, AllOf(Not(HasSubstr("example")), Not(HasSubstr("127.0.0.1"))));
    EXPECT_THAT(Scrape("Accept: application/openmetrics-text\r\n"), HasSubstr("\n# TYPE tarvex_runs counter\n"));
    const std::string printed = host_.Tell({"metrics"});
    EXPECT_EQ(CountersIn(printed), CountersIn(text));
    EXPECT_THAT(printed, Not(HasSubstr("process_")));  // which would be those of the command
}

TEST_F(Metrics, CountersNeverFall) {
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

TEST_F(Metrics, GoIntoAFileAsAWhole) {
    const std::string file = folder_ / "tarvex.prom";
    WriteFile(file, "old");
    EXPECT_EQ(host_.Tell({"metrics", "--output", file}), "");
    EXPECT_THAT(ReadFile(file), EndsWith("# EOF\n"));
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0644));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_.String()), {}), 2);  // the socket is the other one
}

}  // namespace
}  // namespace tarvex::testing
