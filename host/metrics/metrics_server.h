#pragma once

// Figures over HTTP, for a monitoring system on this machine: GET /metrics, and nothing else. A thread of its own
// answers, so that no client ever keeps the service waiting; what a client may send, and how long it may take, has its
// limits.

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/metrics/figures.h"

namespace tarvex::host {

// The answer to a request with this head: its first line and what follows it. `figures` is asked where it is one for
// them.
std::string AnswerTo(std::string_view head, const std::function<std::string(MetricForm)>& figures);

// The answer that is nothing but its status, with these further lines of its head.
std::string MetricsRefusal(std::string_view status, std::string_view more = {});

class MetricsServer {
public:
    // `place` is "unix:PATH", "127.0.0.1:PORT" or "[::1]:PORT"; port 0 stands for a free one. Throws CommandError.
    // After signals are blocked that are to be read elsewhere.
    MetricsServer(const std::string& root, const std::string& place);
    ~MetricsServer();
    MetricsServer(const MetricsServer&) = delete;
    MetricsServer& operator=(const MetricsServer&) = delete;

    // The profiles there are now. From any thread; waits for nobody.
    void Tell(std::vector<MeasuredProfile> profiles);

    const std::string& Place() const;  // "http://127.0.0.1:9100/metrics"

private:
    class Sockets;
    std::unique_ptr<Sockets> sockets_;
};

}  // namespace tarvex::host
