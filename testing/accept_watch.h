#pragma once

// Waits for connections at a listening socket that does not block. The system's own way of waiting is not the same
// everywhere.

#include <asio/ip/tcp.hpp>
#include <functional>
#include <memory>

namespace tarvex::testing {

class AcceptWatch {
public:
    explicit AcceptWatch(asio::ip::tcp::acceptor& acceptor);
    ~AcceptWatch();
    AcceptWatch(const AcceptWatch&) = delete;
    AcceptWatch& operator=(const AcceptWatch&) = delete;

    // Calls `then` once when a connection can be accepted, or the acceptor has been closed.
    void Wait(std::function<void()> then);

    // To be called for each socket that was accepted.
    static void Release(asio::ip::tcp::socket& socket);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::testing
