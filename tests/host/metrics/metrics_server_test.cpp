// Figures over HTTP: what they say, and that no client keeps anybody waiting.

#include "host/metrics/metrics_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/system/command_error.h"
#include "testing/plain_client.h"
#include "tests/host/metrics/measured_tree.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kRequest = "GET /metrics HTTP/1.1\r\n\r\n";

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

TEST(MetricsServer, HasItsPortAloneOnEitherLoopback) {
    const TempDir root;
    for (const auto& [host, address] : {std::pair("127.0.0.1:", "127.0.0.1"), std::pair("[::1]:", "::1")}) {
        const host::MetricsServer server(root.String(), host + std::string("0"));
        EXPECT_THAT(server.Place(), StartsWith(std::string("http://") + host));
        const int port = PortIn(server.Place());
        EXPECT_THROW(host::MetricsServer(root.String(), host + std::to_string(port)), host::CommandError);
        EXPECT_THAT(PlainClient(port, address).Ask(kRequest), EndsWith("# EOF\n"));
    }
}

TEST(MetricsServer, SilentClientsKeepNobodyWaitingAndLongRequestsEnd) {
    const TempDir root;
    host::MetricsServer server(root.String(), "127.0.0.1:0");
    const int port = PortIn(server.Place());
    std::vector<std::unique_ptr<PlainClient>> silent;
    for (int i = 0; i < 5; ++i) silent.push_back(std::make_unique<PlainClient>(port));
    EXPECT_THAT(PlainClient(port).Ask(kRequest), EndsWith("# EOF\n"));
    EXPECT_THAT(PlainClient(port).Ask("GET /metrics HTTP/1.1\r\nX: " + std::string(9000, 'x') + "\r\n\r\n"),
                StartsWith("HTTP/1.1 431 "));
}

// Eight are served at a time; whoever comes behind them has his turn when one of them has gone.
TEST(MetricsServer, ManyClientsHaveTheirTurnAndTheEndWaitsForNone) {
    const TempDir root;
    auto server = std::make_unique<host::MetricsServer>(root.String(), "127.0.0.1:0");
    const int port = PortIn(server->Place());
    std::vector<std::unique_ptr<PlainClient>> silent;
    for (int i = 0; i < 8; ++i) silent.push_back(std::make_unique<PlainClient>(port));
    auto answer = std::async(std::launch::async, [port] { return PlainClient(port).Ask(kRequest); });
    EXPECT_EQ(answer.wait_for(100ms), std::future_status::timeout);
    silent.pop_back();
    EXPECT_THAT(answer.get(), EndsWith("# EOF\n"));
    const auto start = std::chrono::steady_clock::now();
    server.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s) << "a silent client has ten";
}

class Metrics : public MeasuredTree {
protected:
    Metrics() : MeasuredTree("127.0.0.1:0") {}

    std::string Scrape(const std::string& more = {}) const {
        return PlainClient(PortIn(service_->Printed())).Ask("GET /metrics HTTP/1.1\r\n" + more + "\r\n");
    }
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

}  // namespace
}  // namespace tarvex::testing
