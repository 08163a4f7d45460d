// The listening socket and the thread that serves it.

#include "loopback/listener.h"

#include <array>
#include <asio/buffer.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/ip/address.hpp>
#include <asio/post.hpp>
#include <future>
#include <utility>

namespace tarvex::loopback {

using asio::ip::tcp;

Listener::Listener(const std::string& address, OnConnection on_connection) : on_connection_(std::move(on_connection)) {
    const tcp::endpoint endpoint(asio::ip::make_address(address), 0);
    acceptor_.open(endpoint.protocol());
    acceptor_.bind(endpoint);
    acceptor_.listen();
    acceptor_.non_blocking(true);
    watch_.emplace(acceptor_);
    port_ = acceptor_.local_endpoint().port();
    Accept();
    thread_ = std::thread([this] {
        const auto work = asio::make_work_guard(context_);
        context_.run();
    });
}

Listener::~Listener() { Stop(); }

void Listener::Stop() {
    context_.stop();
    if (thread_.joinable()) thread_.join();
}

void Listener::Run(const std::function<void()>& work) {
    std::promise<void> done;
    asio::post(context_, [&] {
        work();
        done.set_value();
    });
    done.get_future().wait();
}

void Listener::Accept() {
    watch_->Wait([this] {
        if (!acceptor_.is_open()) return;
        AcceptWaiting();
        Accept();
    });
}

void Listener::AcceptWaiting() {
    for (;;) {
        std::error_code error;
        tcp::socket socket = acceptor_.accept(error);
        if (error) return;
        HandOver(std::move(socket));
    }
}

void Listener::HandOver(tcp::socket socket) {
    std::error_code ignored;
    socket.set_option(tcp::no_delay(true), ignored);
    on_connection_(std::move(socket));
}

void Listener::CloseListener() {
    std::error_code ignored;
    acceptor_.close(ignored);
}

void EndAndDiscard(std::shared_ptr<tcp::socket> socket) {
    std::error_code ignored;
    socket->shutdown(tcp::socket::shutdown_send, ignored);
    Discard(std::move(socket));
}

void Discard(std::shared_ptr<tcp::socket> socket) {
    const auto scratch = std::make_shared<std::array<char, 4096>>();
    tcp::socket& reader = *socket;
    reader.async_read_some(asio::buffer(*scratch), [socket = std::move(socket), scratch](std::error_code error, auto) {
        std::error_code ignored;
        if (error) {
            socket->close(ignored);
        } else {
            Discard(socket);
        }
    });
}

}  // namespace tarvex::loopback
