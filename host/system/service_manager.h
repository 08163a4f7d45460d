#pragma once

// What a service tells the manager that started it. On POSIX: datagrams to the socket that NOTIFY_SOCKET names
// (sd_notify(3), for systemd and those who speak like it); a name with "@" in front is abstract. Without a manager
// nothing is told.

#include <chrono>
#include <memory>
#include <optional>

namespace tarvex::host {

class ServiceManager {
public:
    ServiceManager();
    ~ServiceManager();
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    void Ready() const;      // started, done with reloading, or holds runs back no more
    void Reloading() const;  // until Ready
    void Holding() const;    // runs back, until Ready
    void Stopping() const;   // tells again with each call
    void KeepAlive() const;

    // How often KeepAlive is wanted: on POSIX twice within the time after which the manager takes the service for hung
    // (WATCHDOG_USEC). Nothing when it does not watch.
    std::optional<std::chrono::microseconds> KeepAliveInterval() const;

private:
    struct Line;
    std::unique_ptr<Line> line_;  // to the manager
};

}  // namespace tarvex::host
