// A full queue swallows connections under wine only; Windows itself refuses them.

#include "tests/support/black_hole.h"

#include <gtest/gtest.h>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <vector>

namespace tarvex::testing {

struct BlackHole::Impl {
    sockaddr_in address{};
    std::vector<SOCKET> sockets;

    sockaddr* Address() { return reinterpret_cast<sockaddr*>(&address); }

    SOCKET Open() {
        sockets.push_back(::socket(AF_INET, SOCK_STREAM, 0));
        u_long on = 1;
        ::ioctlsocket(sockets.back(), static_cast<long>(FIONBIO), &on);
        return sockets.back();
    }

    // Until a connection is not made within a time in which every other one is made.
    void Fill() {
        for (int i = 0; i < 16; ++i) {
            WSAPOLLFD connecting{Open(), POLLOUT, 0};
            ::connect(connecting.fd, Address(), sizeof address);
            if (::WSAPoll(&connecting, 1, 200) == 0) return;
        }
        ADD_FAILURE() << "the queue never fills";
    }
};

BlackHole::BlackHole(const std::string& address, int port) : impl_(std::make_unique<Impl>()) {
    impl_->address.sin_family = AF_INET;
    impl_->address.sin_port = htons(static_cast<u_short>(port));
    inet_pton(AF_INET, address.c_str(), &impl_->address.sin_addr);
    const SOCKET listener = impl_->Open();
    int length = sizeof impl_->address;
    EXPECT_EQ(::bind(listener, impl_->Address(), length), 0) << WSAGetLastError();
    EXPECT_EQ(::listen(listener, 0), 0);
    EXPECT_EQ(::getsockname(listener, impl_->Address(), &length), 0);
    impl_->Fill();
}

BlackHole::~BlackHole() {
    for (const SOCKET socket : impl_->sockets) ::closesocket(socket);
}

int BlackHole::Port() const { return ntohs(impl_->address.sin_port); }

}  // namespace tarvex::testing
