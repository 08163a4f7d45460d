#pragma once

// A client of a server on this machine.

#include <memory>
#include <string>

namespace tarvex::testing {

class PlainClient {
public:
    explicit PlainClient(int port, const std::string& address = "127.0.0.1");  // throws std::system_error
    ~PlainClient();

    // Sends this, and reads until the server closes; at most 20 seconds.
    std::string Ask(const std::string& request);

private:
    struct Connection;
    std::unique_ptr<Connection> connection_;
};

}  // namespace tarvex::testing
