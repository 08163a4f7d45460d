#include "host/posix/service_log.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "host/wording.h"

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

}  // namespace

ServiceLog::ServiceLog() : to_journal_(IsJournal()) {}

void ServiceLog::Write(int level, const std::string& text) {
    pollfd errors{STDERR_FILENO, POLLOUT, 0};
    if (poll(&errors, 1, lost_ == 0 ? kPatienceMs : 0) != 1) {
        ++lost_;
        return;
    }
    const std::string head = to_journal_ ? '<' + std::to_string(level) + '>' : ShowTime(std::time(nullptr)) + ' ';
    std::string lines = head + text + '\n';
    if (lost_ > 0) lines.insert(0, head + '(' + ShowCount(lost_, "line") + " lost)\n");
    lost_ = 0;
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, lines.data(), lines.size());
}

}  // namespace tarvex::host
