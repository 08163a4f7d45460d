// By an event, since the wait for reading does not work with listening sockets here.

#include "testing/accept_watch.h"

#include <winsock2.h>

#include <asio/windows/object_handle.hpp>
#include <utility>

namespace tarvex::testing {

using asio::ip::tcp;

struct AcceptWatch::Impl {
    explicit Impl(tcp::acceptor& acceptor) : event(acceptor.get_executor(), WSACreateEvent()) {
        WSAEventSelect(acceptor.native_handle(), event.native_handle(), FD_ACCEPT | FD_CLOSE);
    }
    asio::windows::object_handle event;
};

AcceptWatch::AcceptWatch(tcp::acceptor& acceptor) : impl_(new Impl(acceptor)) {}
AcceptWatch::~AcceptWatch() = default;

void AcceptWatch::Wait(std::function<void()> then) {
    impl_->event.async_wait([this, then = std::move(then)](std::error_code error) {
        if (error) return;
        WSAResetEvent(impl_->event.native_handle());
        then();
    });
}

// It has inherited the event.
void AcceptWatch::Release(tcp::socket& socket) { WSAEventSelect(socket.native_handle(), nullptr, 0); }

}  // namespace tarvex::testing
