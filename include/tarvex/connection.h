#pragma once

// A connection to a server, as a host hands it to a run.

#include <cstdint>
#include <string_view>
#include <utility>

#include "tarvex/text.h"

enum class CProtocol : int { Pop3 = 0, Smtp = 1 };

// A connected stream socket, owned, or none. Any kind of socket will do that has bytes in their order in both
// directions: TCP, or one end of a socket pair.
//
// A run makes the socket non-blocking and keeps it from child processes; on TCP it sends without delay and acknowledges
// at once. The profile's time-out holds for every exchange, the wait for the greeting included. The run closes the
// socket in every case. An interruption of the run shuts it down in both directions at once.
class CConnection {
public:
    CConnection() = default;
    // Takes the socket over: a descriptor, or a SOCKET on Windows; -1 for none. `is_secured`: the host answers for
    // encryption, and an SMTP run begins no TLS of its own, whatever `sslsmtp` says.
    explicit CConnection(std::intptr_t socket, bool is_secured = false) noexcept
        : socket_(socket), is_secured_(is_secured) {}
    // One that fails at once, as a fault of this machine: for a host that has no connection to give and does not want
    // the run to make one.
    static CConnection Unusable() noexcept { return CConnection(-2); }

    CConnection(CConnection&& other) noexcept : socket_(other.Release()), is_secured_(other.is_secured_) {}
    CConnection& operator=(CConnection&& other) noexcept {
        std::swap(socket_, other.socket_);
        std::swap(is_secured_, other.is_secured_);
        return *this;
    }
    TARVEX_API ~CConnection();  // closes

    explicit operator bool() const { return socket_ != -1; }
    bool IsSecured() const { return is_secured_; }
    std::intptr_t Socket() const { return socket_; }
    [[nodiscard]] std::intptr_t Release() noexcept { return std::exchange(socket_, -1); }

private:
    std::intptr_t socket_ = -1;
    bool is_secured_ = false;
};

// A server that a run needs a connection to.
class CServerToReach {
public:
    CServerToReach(CProtocol of, std::string_view called, int at) : protocol(of), name(called), port(at) {}
    CServerToReach(const CServerToReach&) = delete;
    CServerToReach& operator=(const CServerToReach&) = delete;

    // Connects as the run itself does: looks the name up and tries each address, within the profile's time-out and
    // until the run is interrupted. The socket is non-blocking. None on failure; a host that then gives no connection
    // either has the run fail for that reason, in the run's own words.
    virtual CConnection Connect() = 0;

    const CProtocol protocol;
    const std::string_view name;
    const int port;

protected:
    ~CServerToReach() = default;
};
