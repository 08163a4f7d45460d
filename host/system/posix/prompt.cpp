// Reads standard input, and passwords without showing them, on POSIX.

#include "host/system/prompt.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <iostream>
#include <map>

#include "host/system/process.h"

namespace tarvex::host {
namespace {

constexpr std::initializer_list<int> kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

volatile std::sig_atomic_t signal_at_prompt = 0;

void Remember(int signal) { signal_at_prompt = signal; }

// A signal does not end the program as long as the object lives: the terminal must show again what is typed. It is
// delivered only while the program waits for input, so that none comes unnoticed in front of the wait.
class HeldSignals {
public:
    HeldSignals() {
        signal_at_prompt = 0;
        sigset_t held;
        sigemptyset(&held);
        for (const int signal : kSignals) sigaddset(&held, signal);
        sigprocmask(SIG_BLOCK, &held, &old_mask_);
        for (const int signal : kSignals) {
            struct sigaction action {};
            action.sa_handler = Remember;
            sigaction(signal, &action, &old_[signal]);
        }
    }
    ~HeldSignals() {
        for (const auto& [signal, action] : old_) sigaction(signal, &action, nullptr);
        sigprocmask(SIG_SETMASK, &old_mask_, nullptr);
        const int signal = signal_at_prompt;
        signal_at_prompt = 0;
        if (signal != 0) raise(signal);
    }
    HeldSignals(const HeldSignals&) = delete;

    const sigset_t& MaskToWaitWith() const { return old_mask_; }

private:
    std::map<int, struct sigaction> old_;
    sigset_t old_mask_{};
};

class HiddenTyping {
public:
    HiddenTyping() {
        tcgetattr(STDIN_FILENO, &old_);
        termios hidden = old_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        hidden.c_lflag |= ECHONL;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    ~HiddenTyping() { tcsetattr(STDIN_FILENO, TCSAFLUSH, &old_); }
    HiddenTyping(const HiddenTyping&) = delete;

private:
    termios old_{};
};

// False at the end of the input and after a signal. Byte by byte, so that nothing is taken that belongs to the next
// question.
bool ReadBytes(std::string& line, const sigset_t* mask) {
    line.clear();
    for (;;) {
        // A signal that CatchTermination keeps may come just before the wait, which then would not end.
        const timespec look{0, 100'000'000};
        pollfd input{STDIN_FILENO, POLLIN, 0};
        const int ready = ppoll(&input, 1, &look, mask);
        if (signal_at_prompt != 0 || CaughtSignal() != 0) return false;
        if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
        if (ready < 0) return false;
        char c = 0;
        if (read(STDIN_FILENO, &c, 1) <= 0) return !line.empty();
        if (c == '\n') break;
        line += c;
    }
    if (line.ends_with('\r')) line.pop_back();
    return true;
}

}  // namespace

bool CanAsk() { return isatty(STDIN_FILENO) == 1; }

bool ReadLine(std::string& line) { return ReadBytes(line, nullptr); }

bool AskHidden(const std::string& question, std::string& answer) {
    const HeldSignals held;
    const HiddenTyping hidden;  // before the question, so that nothing that is typed at once is shown
    std::cerr << question << std::flush;
    return ReadBytes(answer, &held.MaskToWaitWith());
}

}  // namespace tarvex::host
