// A connection over the loopback, and what comes over it.

#include "testing/plain_client.h"

#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <chrono>

namespace tarvex::testing {

struct PlainClient::Connection {
    asio::io_context context;
    asio::ip::tcp::socket socket{context};
};

PlainClient::PlainClient(int port, const std::string& address) : connection_(std::make_unique<Connection>()) {
    connection_->socket.connect({asio::ip::make_address(address), static_cast<unsigned short>(port)});
}

PlainClient::~PlainClient() = default;

std::string PlainClient::Ask(const std::string& request) {
    std::string text;
    asio::async_write(connection_->socket, asio::buffer(request), [](const asio::error_code&, std::size_t) {});
    asio::async_read(connection_->socket, asio::dynamic_buffer(text), [](const asio::error_code&, std::size_t) {});
    connection_->context.run_for(std::chrono::seconds(20));
    connection_->socket.close();
    connection_->context.run();  // what was under way uses the text
    return text;
}

}  // namespace tarvex::testing
