// Writes to standard error when it can be written.

#include "host/system/error_output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "host/system/posix/descriptor.h"

namespace tarvex::host {
namespace {

// A terminal that says it takes more may take less than a line. Its other users are to wait as ever, so it is opened
// anew.
Descriptor OpenTerminal() {
    if (isatty(STDERR_FILENO) != 1) return Descriptor();
    return Descriptor(open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

}  // namespace

struct ErrorOutput::Way {
    Descriptor terminal = OpenTerminal();

    int Number() const { return terminal.IsOpen() ? terminal.Get() : STDERR_FILENO; }
};

ErrorOutput::ErrorOutput() : way_(std::make_unique<Way>()) {}

ErrorOutput::~ErrorOutput() = default;

bool ErrorOutput::TakesMore(std::chrono::milliseconds patience) const {
    pollfd errors{way_->Number(), POLLOUT, 0};
    return poll(&errors, 1, static_cast<int>(patience.count())) == 1;
}

std::size_t ErrorOutput::Write(std::string_view text) {
    const ssize_t written = write(way_->Number(), text.data(), text.size());
    return written < 0 ? 0 : static_cast<std::size_t>(written);
}

}  // namespace tarvex::host
