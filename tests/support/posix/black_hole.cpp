// A server that swallows what is sent to it: POSIX sockets.

#include "tests/support/black_hole.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace tarvex::testing {

struct BlackHole::Impl {
    sockaddr_in address{};
    std::vector<int> sockets;

    sockaddr* Address() { return reinterpret_cast<sockaddr*>(&address); }

    int Open() {
        sockets.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        return sockets.back();
    }

    // Until a connection is not made within a time in which every other one is made.
    void Fill() {
        for (int i = 0; i < 16; ++i) {
            pollfd connecting{Open(), POLLOUT, 0};
            (void)::connect(connecting.fd, Address(), sizeof address);
            if (::poll(&connecting, 1, 200) == 0) return;
        }
        ADD_FAILURE() << "the queue never fills";
    }
};

BlackHole::BlackHole(const std::string& address, int port) : impl_(std::make_unique<Impl>()) {
    impl_->address.sin_family = AF_INET;
    impl_->address.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, address.c_str(), &impl_->address.sin_addr);
    const int listener = impl_->Open();
    socklen_t length = sizeof impl_->address;
    EXPECT_EQ(::bind(listener, impl_->Address(), length), 0) << std::strerror(errno);
    EXPECT_EQ(::listen(listener, 0), 0);
    EXPECT_EQ(::getsockname(listener, impl_->Address(), &length), 0);
    impl_->Fill();
}

BlackHole::~BlackHole() {
    for (const int socket : impl_->sockets) ::close(socket);
}

int BlackHole::Port() const { return ntohs(impl_->address.sin_port); }

}  // namespace tarvex::testing
