// Writes the service's lines to the journal, a terminal or a file.

#include "host/service/posix/service_log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr int kPatienceMs = 100;

// Whether standard error is the stream that JOURNAL_STREAM names.
bool IsJournal() {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (!stream || fstat(STDERR_FILENO, &status) != 0) return false;
    return stream == std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
}

// A terminal that says it takes more may take less than a line. Its other users are to wait as ever, so it is opened
// anew.
Descriptor OpenTerminal() {
    if (isatty(STDERR_FILENO) != 1) return Descriptor();
    return Descriptor(open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

}  // namespace

ServiceLog::ServiceLog() : to_journal_(IsJournal()), terminal_(OpenTerminal()) {}

void ServiceLog::Write(int level, const std::string& text) {
    const std::lock_guard lock(mutex_);
    const int output = terminal_.IsOpen() ? terminal_.Get() : STDERR_FILENO;
    pollfd errors{output, POLLOUT, 0};
    if (poll(&errors, 1, lost_ == 0 ? kPatienceMs : 0) != 1) {
        ++lost_;
        return;
    }
    const std::string head = to_journal_ ? '<' + std::to_string(level) + '>' : ShowTime(std::time(nullptr)) + ' ';
    std::string lines = head + text + '\n';
    if (lost_ > 0) lines.insert(0, head + '(' + ShowCount(lost_, "line") + " lost)\n");
    if (torn_) lines.insert(0, "\n");
    const ssize_t written = write(output, lines.data(), lines.size());
    if (written == static_cast<ssize_t>(lines.size())) {
        lost_ = 0;
        torn_ = false;
    } else {
        ++lost_;
        torn_ = torn_ || written > 0;
    }
}

}  // namespace tarvex::host
