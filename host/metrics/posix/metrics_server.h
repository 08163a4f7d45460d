#pragma once

// Figures over HTTP, for a monitoring system on this machine: GET /metrics, and nothing else. A thread of its own
// answers, so that no client ever keeps the service waiting; what a client may send, and how long it may take, has its
// limits.

#include <chrono>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/metrics/figures.h"
#include "host/system/posix/descriptor.h"

namespace tarvex::host {

// The answer to a request with this head: its first line and what follows it. `figures` is asked where it is one for
// them.
std::string AnswerTo(std::string_view head, const std::function<std::string(MetricForm)>& figures);

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

    const std::string& Place() const { return place_; }  // "http://127.0.0.1:9100/metrics"

private:
    using Clock = std::chrono::steady_clock;

    struct Client {
        Descriptor socket;
        Clock::time_point deadline;
        std::string in;
        std::string out;
        bool answered = false;
    };

    void ListenOnPath(const std::string& path);
    void ListenOnPort(const std::string& host, const std::string& port);
    void Serve();
    bool Turn();  // false when it is to end
    void Accept();
    bool Work(Client& client);  // false when it is over
    bool Read(Client& client);

    Figures figures_;  // of the thread
    std::mutex mutex_;
    std::vector<MeasuredProfile> profiles_;  // by the mutex
    std::string place_;
    std::string path_;  // of the socket, where it has one
    Descriptor listener_;
    Descriptor stop_;
    std::list<Client> clients_;
    std::thread thread_;
};

}  // namespace tarvex::host
