#pragma once

// What the tests of the sockets share.

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/net/name_lookup.h"
#include "platform/net/tls.h"
#include "platform/os/threads.h"
#include "testing/scripted_server.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {

using std::chrono::milliseconds;

class Stopwatch {
public:
    milliseconds Elapsed() const {
        return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start_);
    }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Asks this in place of the system for as long as it lives.
class ResolverStandIn {
public:
    explicit ResolverStandIn(NameResolver resolver) { SetNameResolver(std::move(resolver)); }
    explicit ResolverStandIn(std::vector<std::string> addresses)
        : ResolverStandIn([addresses = std::move(addresses)](const std::string&) {
              NameAnswer answer;
              for (const std::string& address : addresses) answer.addresses.push_back(NumericAddress(address).value());
              return answer;
          }) {}
    ~ResolverStandIn() { SetNameResolver(nullptr); }
    ResolverStandIn(const ResolverStandIn&) = delete;
    ResolverStandIn& operator=(const ResolverStandIn&) = delete;
};

// The one certificate authority that is trusted as long as it lives, in place of the system's.
class TrustedAuthority {
public:
    explicit TrustedAuthority(const TlsIdentity& identity) {
        if (const char* old = std::getenv("SSL_CERT_FILE")) old_ = old;
        WriteFile(folder_ / "ca.pem", identity.ca_certificate);
        ::setenv("SSL_CERT_FILE", (folder_ / "ca.pem").c_str(), 1);
        ForgetTrustStore();
    }
    ~TrustedAuthority() {
        if (old_) {
            ::setenv("SSL_CERT_FILE", old_->c_str(), 1);
        } else {
            ::unsetenv("SSL_CERT_FILE");
        }
        ForgetTrustStore();
    }
    TrustedAuthority(const TrustedAuthority&) = delete;
    TrustedAuthority& operator=(const TrustedAuthority&) = delete;

private:
    TempDir folder_;
    std::optional<std::string> old_;
};

// An address that never answers: it listens, but its queue is full.
class BlackHole {
public:
    explicit BlackHole(const std::string& address = "127.0.0.1", int port = 0) {
        address_.sin_family = AF_INET;
        address_.sin_port = htons(static_cast<std::uint16_t>(port));
        inet_pton(AF_INET, address.c_str(), &address_.sin_addr);
        Open();
        socklen_t length = sizeof address_;
        EXPECT_EQ(::bind(sockets_[0], Address(), sizeof address_), 0) << std::strerror(errno);
        EXPECT_EQ(::listen(sockets_[0], 0), 0);
        EXPECT_EQ(::getsockname(sockets_[0], Address(), &length), 0);
        Fill();
    }
    ~BlackHole() {
        for (const int socket : sockets_) ::close(socket);
    }
    BlackHole(const BlackHole&) = delete;
    BlackHole& operator=(const BlackHole&) = delete;

    int Port() const { return ntohs(address_.sin_port); }

    // One attempt is its own, the one that filled the queue.
    void WaitUntilSomebodyConnects() const {
        const Stopwatch watch;
        while (Attempts() < 2) {
            if (watch.Elapsed() > std::chrono::seconds(20)) FAIL() << "nobody connects";
            std::this_thread::yield();
        }
    }

private:
    // The connections to the port that the system says are being made.
    int Attempts() const {
        std::array<char, 8> port{};
        std::snprintf(port.data(), port.size(), ":%04X", Port());
        std::ifstream table("/proc/net/tcp");
        int attempts = 0;
        for (std::string number, local, remote, state, line; table >> number >> local >> remote >> state;) {
            std::getline(table, line);
            if (remote.ends_with(port.data()) && state == "02") ++attempts;
        }
        return attempts;
    }

    sockaddr* Address() { return reinterpret_cast<sockaddr*>(&address_); }
    int Open() {
        sockets_.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        return sockets_.back();
    }
    // Until a connection is not made within a time in which every other one is made.
    void Fill() {
        for (int i = 0; i < 16; ++i) {
            pollfd connecting{Open(), POLLOUT, 0};
            ::connect(connecting.fd, Address(), sizeof address_);
            if (::poll(&connecting, 1, 200) == 0) return;
        }
        ADD_FAILURE() << "the queue never fills";
    }

    sockaddr_in address_{};
    std::vector<int> sockets_;
};

// Runs the work on a worker thread and terminates the worker once `reached` is fulfilled. The time-outs of the work
// must be far longer than this is allowed to take.
class InterruptedWorker {
public:
    explicit InterruptedWorker(std::function<void()> work) : work_(std::move(work)) {
        thread_ = AfxBeginThread(
            [](void* self) {
                static_cast<InterruptedWorker*>(self)->work_();
                return 0U;
            },
            this, 0, 0, 0, nullptr);
    }

    milliseconds Terminate() {
        const Stopwatch watch;
        TerminateThread(thread_, 0);
        return watch.Elapsed();
    }

private:
    std::function<void()> work_;
    Thread* thread_;
};

// Waits for an event of another thread, never for ever.
inline bool Happens(std::future<void>& event) {
    return event.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
}

// The sockets of this process that are connected to that port of loopback.
inline std::vector<int> SocketsConnectedTo(int port) {
    std::vector<int> found;
    for (int candidate = 0; candidate < 1024; ++candidate) {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        if (::getpeername(candidate, reinterpret_cast<sockaddr*>(&peer), &length) == 0 && peer.sin_family == AF_INET &&
            ntohs(peer.sin_port) == port) {
            found.push_back(candidate);
        }
    }
    return found;
}

}  // namespace tarvex::testing
