// The Unix socket of the desk.

#include <utility>  // Boost.Asio 1.74 leaves it out

#include "console/desk/stream.h"

#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>

namespace tarvex::console {
namespace {

using Local = boost::asio::local::stream_protocol;

class SocketStream : public DeskStreamOver<Local::socket> {
public:
    using DeskStreamOver::DeskStreamOver;

    void Connect(const std::string& place, Done done) override {
        try {
            stream_.async_connect(Local::endpoint(place), done);
        } catch (const boost::system::system_error& error) {  // too long for a socket
            boost::asio::post(stream_.get_executor(), [done, code = error.code()] { done(code); });
        }
    }
};

}  // namespace

std::unique_ptr<DeskStream> DeskStream::Make(boost::asio::io_context& context) {
    return std::make_unique<SocketStream>(context);
}

}  // namespace tarvex::console
