#pragma once

// What a service tells the manager that started it: datagrams to the socket that NOTIFY_SOCKET names (sd_notify(3), for
// systemd and those who speak like it). Without that variable nothing is told. A name with "@" in front is abstract.

#include <chrono>
#include <optional>
#include <string>

#include "host/system/posix/descriptor.h"

namespace tarvex::host {

class ServiceManager {
public:
    ServiceManager();

    void Ready() const;      // started, or done with reloading
    void Reloading() const;  // until Ready
    void Stopping() const;
    void KeepAlive() const;

    // How often KeepAlive is wanted: twice within the time after which the manager takes the service for hung
    // (WATCHDOG_USEC). Nothing when it does not watch.
    std::optional<std::chrono::microseconds> KeepAliveInterval() const { return interval_; }

private:
    void Tell(const std::string& text) const;

    Descriptor socket_;
    std::string address_;  // as in NOTIFY_SOCKET
    std::optional<std::chrono::microseconds> interval_;
};

}  // namespace tarvex::host
