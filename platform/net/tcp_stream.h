#pragma once

// One TCP socket that never blocks. Waiting happens in Wait alone, so an interruption has one place to reach.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/net/deadline.h"
#include "platform/net/failure.h"
#include "platform/net/name_lookup.h"
#include "platform/os/threads.h"

namespace tarvex {

// What became of one attempt to send or to receive.
struct Transfer {
    enum class Status {
        Progress,    // `bytes` were taken or delivered, at least one
        WouldBlock,  // nothing now
        Ended,       // the other side sends nothing more (receiving only)
        Failed,      // `reason` says why
    };
    Status status = Status::WouldBlock;
    std::size_t bytes = 0;
    std::string reason = {};
};

// Closes a socket that no TcpStream has; nothing for -1.
void CloseSocket(std::intptr_t socket) noexcept;

class TcpStream final : public Interruptible {
public:
    TcpStream() = default;
    ~TcpStream();
    TcpStream(const TcpStream&) = delete;
    TcpStream& operator=(const TcpStream&) = delete;

    // Takes a socket descriptor in advance; false when there is none. The first connection of its family uses it.
    [[nodiscard]] bool Reserve();

    // After a failure the socket is closed; another address may be tried.
    [[nodiscard]] Failure Connect(const NetworkAddress& address, int port, const Deadline& deadline);

    // Takes over a stream socket that somebody else has connected, in the place of its own: a descriptor, or a SOCKET
    // on Windows. After a failure it is closed.
    [[nodiscard]] Failure Adopt(std::intptr_t socket);

    // Gives its socket away.
    [[nodiscard]] std::intptr_t Release();

    // Sends as much of the parts, in their order, as the system takes now.
    [[nodiscard]] Transfer Send(std::span<const std::string_view> parts);
    [[nodiscard]] Transfer Receive(char* buffer, std::size_t size_bytes);

    enum class Event { ToConnect, ToRead, ToWrite, ToReadOrWrite };
    // Waits until the event or an end of the connection, which the next attempt to send or receive then tells.
    [[nodiscard]] Failure Wait(Event event, const Deadline& deadline);

    void Close();

    // Shuts the socket down, which is for good and wakes Wait.
    void Interrupt() noexcept override;

private:
    bool OpenSocket(bool ipv6);

    int socket_ = -1;
    [[maybe_unused]] int wake_up_ = -1;  // where shutting the socket down does not wake Wait: a socket that does
    bool is_ipv6_ = false;
    [[maybe_unused]] bool received_since_sent_ = false;  // what was received may not be acknowledged yet
    std::atomic<bool> interrupted_ = false;
};

}  // namespace tarvex
