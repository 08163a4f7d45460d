#pragma once

// Waits for connections at a listening socket that does not block. The system's own way of waiting is not the same
// everywhere.

#include <asio/ip/tcp.hpp>
#include <functional>
#include <memory>

namespace tarvex::loopback {

class AcceptWatch {
public:
    explicit AcceptWatch(asio::ip::tcp::acceptor& acceptor);
    ~AcceptWatch();
    AcceptWatch(const AcceptWatch&) = delete;
    AcceptWatch& operator=(const AcceptWatch&) = delete;

    // Calls `then` once, on the serving thread, when a connection can be accepted or the acceptor has been closed.
    void Wait(std::function<void()> then);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::loopback
