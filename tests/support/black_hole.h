#pragma once

// A server that swallows what is sent to it.

#include <memory>
#include <string>

namespace tarvex::testing {

// An address that never answers: it listens, but its queue is full.
class BlackHole {
public:
    explicit BlackHole(const std::string& address = "127.0.0.1", int port = 0);
    ~BlackHole();
    BlackHole(const BlackHole&) = delete;
    BlackHole& operator=(const BlackHole&) = delete;

    int Port() const;
    void WaitUntilSomebodyConnects() const;

private:
    // The connections to the port that the system says are being made.
    int Attempts() const;

    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::testing
