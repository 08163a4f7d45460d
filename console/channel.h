#pragma once

// The bytes of a connection to a browser, with or without TLS.

#include <array>
#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tarvex::console {

using Socket = boost::asio::generic::stream_protocol::socket;
using TlsContext = std::shared_ptr<boost::asio::ssl::context>;

// The certificate (PEM) for connections that are opened from now on; null when no file is named. Throws CommandError.
TlsContext LoadCertificate(const std::string& certificate, const std::string& key);

// One operation at a time. What is done when it ends is called later, never at once.
class Channel {
public:
    using Done = std::function<void(boost::system::error_code, std::size_t)>;

    Channel(Socket socket, TlsContext tls);

    void Open(Done done);
    void Read(boost::asio::mutable_buffer into, Done done);                        // what is there
    void Write(const std::array<boost::asio::const_buffer, 2>& bytes, Done done);  // all of it
    void Finish(Done done);                                                        // nothing more will be written
    void Close();

    std::string Peer() const;  // its address; empty for a Unix socket
    boost::asio::any_io_executor Executor() { return socket_.get_executor(); }

private:
    Socket socket_;
    TlsContext context_;
    std::optional<boost::asio::ssl::stream<Socket&>> tls_;
};

}  // namespace tarvex::console
