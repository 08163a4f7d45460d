// Signals, descriptors and the terminal of the process on POSIX.

#include "host/system/process.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace tarvex::host {
namespace {

volatile std::sig_atomic_t caught_signal = 0;

void Remember(int signal) { caught_signal = signal; }

}  // namespace

std::vector<std::string> Arguments(int argc, char** argv) { return {argv, argv + argc}; }

std::string MachineName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : std::string();
}

void FillStandardStreams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        // The lowest free number is what is opened.
        if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) return;
    }
}

void CatchTermination() {
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN) continue;
        action.sa_handler = Remember;
        action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
        sigaction(signal, &action, nullptr);
    }
}

int CaughtSignal() { return caught_signal; }

void SurviveFileSizeLimit() { std::signal(SIGXFSZ, SIG_IGN); }

void RaiseFileLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

bool CanRedraw() {
    const char* const terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && terminal && std::strcmp(terminal, "dumb") != 0;
}

int TerminalLines() {
    winsize size{};
    constexpr int kUsualLines = 24;
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : kUsualLines;
}

std::size_t TerminalColumns() {
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

bool ShowsColours() {
    const char* const no_color = std::getenv("NO_COLOR");
    return CanRedraw() && !(no_color && *no_color);
}

void ShowUtf8() {}  // UTF-8 is what they take

void PassBytesToOutput() {}

void PassBytesFromInput() {}

}  // namespace tarvex::host
