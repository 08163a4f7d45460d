// Waits for connections at a listening socket, by Asio's own means.

#include "loopback/accept_watch.h"

#include <utility>

namespace tarvex::loopback {

using asio::ip::tcp;

struct AcceptWatch::Impl {
    tcp::acceptor& acceptor;
};

AcceptWatch::AcceptWatch(tcp::acceptor& acceptor) : impl_(new Impl{acceptor}) {}
AcceptWatch::~AcceptWatch() = default;

void AcceptWatch::Wait(std::function<void()> then) {
    impl_->acceptor.async_wait(tcp::acceptor::wait_read, [then = std::move(then)](std::error_code) { then(); });
}

}  // namespace tarvex::loopback
