#pragma once

// A connection to the desk: over a Unix socket, on Windows over a named pipe. One operation at a time. What is done
// when it ends is called later, never at once.

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace tarvex::console {

class DeskStream {
public:
    using Done = std::function<void(boost::system::error_code)>;

    static std::unique_ptr<DeskStream> Make(boost::asio::io_context& context);
    virtual ~DeskStream() = default;

    // `place`: the path of the socket or the name of the pipe.
    virtual void Connect(const std::string& place, Done done) = 0;
    virtual void Write(boost::asio::const_buffer bytes, Done done) = 0;
    virtual void Read(boost::asio::mutable_buffer into, Done done) = 0;      // until it is full
    virtual void Read(std::size_t bytes, std::string& into, Done done) = 0;  // its room grows with what comes
    virtual void Close() = 0;                                                // what is under way ends with an error
};

// The same for every kind of stream, but how it is connected.
template <class Stream>
class DeskStreamOver : public DeskStream {
public:
    explicit DeskStreamOver(boost::asio::io_context& context) : stream_(context) {}

    void Write(boost::asio::const_buffer bytes, Done done) override {
        boost::asio::async_write(stream_, bytes, WithoutCount(std::move(done)));
    }
    void Read(boost::asio::mutable_buffer into, Done done) override {
        boost::asio::async_read(stream_, into, WithoutCount(std::move(done)));
    }
    void Read(std::size_t bytes, std::string& into, Done done) override {
        boost::asio::async_read(stream_, boost::asio::dynamic_buffer(into, bytes), boost::asio::transfer_exactly(bytes),
                                WithoutCount(std::move(done)));
    }
    void Close() override {
        boost::system::error_code ignored;
        stream_.close(ignored);
    }

protected:
    Stream stream_;

private:
    static auto WithoutCount(Done done) {
        return [done = std::move(done)](boost::system::error_code error, std::size_t) { done(error); };
    }
};

}  // namespace tarvex::console
