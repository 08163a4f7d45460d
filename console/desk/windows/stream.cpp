// The named pipe of the desk, where it is the service's: nothing is said to a pipe of another user.

#include <utility>  // Boost.Asio 1.74 leaves it out

#include "console/desk/stream.h"

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/windows/stream_handle.hpp>
#include <chrono>

#include "host/system/windows/pipes.h"

namespace tarvex::console {
namespace {

namespace net = boost::asio;
using boost::system::error_code;

constexpr std::chrono::milliseconds kMoment{10};

error_code SystemError(DWORD number) { return {static_cast<int>(number), boost::system::system_category()}; }

class PipeStream : public DeskStreamOver<net::windows::stream_handle> {
public:
    explicit PipeStream(net::io_context& context) : DeskStreamOver(context), free_(context) {}

    // Waits while the desk is busy with others.
    void Connect(const std::string& place, Done done) override {
        const std::wstring path = host::PipePath(place);
        HANDLE pipe = host::OpenPipe(path).Release();
        const DWORD error = pipe ? ERROR_SUCCESS : GetLastError();
        if (error == ERROR_PIPE_BUSY) {
            free_.expires_after(kMoment);
            return free_.async_wait([this, place, done = std::move(done)](error_code stopped) {
                stopped || is_closed_ ? done(net::error::operation_aborted) : Connect(place, done);
            });
        }
        error_code result = SystemError(error);
        if (pipe && !host::HasTrustedServer(pipe)) {
            CloseHandle(pipe);
            result = SystemError(ERROR_ACCESS_DENIED);
        } else if (pipe) {
            stream_.assign(pipe, result);
            if (result) CloseHandle(pipe);
        }
        net::post(stream_.get_executor(), [done = std::move(done), result] { done(result); });
    }

    void Close() override {
        is_closed_ = true;
        free_.cancel();
        DeskStreamOver::Close();
    }

private:
    net::steady_timer free_;
    bool is_closed_ = false;
};

}  // namespace

std::unique_ptr<DeskStream> DeskStream::Make(net::io_context& context) { return std::make_unique<PipeStream>(context); }

}  // namespace tarvex::console
