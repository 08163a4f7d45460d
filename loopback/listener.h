#pragma once

// A socket that listens on a loopback address and the one thread that serves it and all its connections.

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "loopback/accept_watch.h"

namespace tarvex::loopback {

class Listener {
public:
    // Called on the serving thread with each connection.
    using OnConnection = std::function<void(asio::ip::tcp::socket)>;

    // Serves from now on. Throws std::system_error when the address cannot be had.
    Listener(const std::string& address, OnConnection on_connection);
    ~Listener();  // as Stop
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int Port() const { return port_; }

    // Runs the work on the serving thread and waits for it. Not from the serving thread itself.
    void Run(const std::function<void()>& work);

    // Hands over every connection that a client has already made. On the serving thread only.
    void AcceptWaiting();

    // Accepts nothing any more. On the serving thread only.
    void CloseListener();

    // Ends the serving thread; connections stay as they are until they are destroyed.
    void Stop();

private:
    void Accept();
    void HandOver(asio::ip::tcp::socket socket);

    asio::io_context context_;
    asio::ip::tcp::acceptor acceptor_{context_};
    std::optional<AcceptWatch> watch_;
    OnConnection on_connection_;
    int port_ = 0;
    std::thread thread_;
};

// Ends a connection in such a way that the client surely gets what was sent to it: closing at once would reset the
// connection, and drop what is under way, when the client has sent something that nobody read. Serving thread only.
void EndAndDiscard(std::shared_ptr<asio::ip::tcp::socket> socket);

// Reads and forgets until the client has gone. Serving thread only.
void Discard(std::shared_ptr<asio::ip::tcp::socket> socket);

}  // namespace tarvex::loopback
