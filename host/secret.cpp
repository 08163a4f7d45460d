#include "host/secret.h"

#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iostream>
#include <map>

#include "host/display.h"
#include "host/trouble.h"

namespace tarvex::host {
namespace {

constexpr std::initializer_list<int> kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

volatile std::sig_atomic_t signal_at_prompt = 0;

void Remember(int signal) { signal_at_prompt = signal; }

// A signal does not end the program as long as the object lives: the terminal must show again what is typed.
class HeldSignals {
public:
    HeldSignals() {
        signal_at_prompt = 0;
        for (const int signal : kSignals) {
            struct sigaction action {};
            action.sa_handler = Remember;  // without SA_RESTART: reading ends
            sigaction(signal, &action, &old_[signal]);
        }
    }
    ~HeldSignals() {
        for (const auto& [signal, action] : old_) sigaction(signal, &action, nullptr);
        if (signal_at_prompt != 0) raise(signal_at_prompt);
    }
    HeldSignals(const HeldSignals&) = delete;

private:
    std::map<int, struct sigaction> old_;
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

// False at the end of the input. Byte by byte, so that nothing is taken that belongs to the next question.
bool ReadLine(std::string& line) {
    line.clear();
    for (;;) {
        char c = 0;
        const ssize_t count = read(STDIN_FILENO, &c, 1);
        if (count < 0 && errno == EINTR && signal_at_prompt == 0) continue;
        if (count <= 0) return !line.empty() && signal_at_prompt == 0;
        if (c == '\n') break;
        line += c;
    }
    if (line.ends_with('\r')) line.pop_back();
    return true;
}

}  // namespace

bool CanAsk() { return isatty(STDIN_FILENO) == 1; }

std::string AskSecret(const std::string& question) {
    if (!CanAsk()) {
        throw Trouble(kBadUsage,
                      "there is no terminal to ask for a password on; give it with the -stdin or -file form of "
                      "the option");
    }
    std::string secret;
    bool answered = false;
    {
        const HeldSignals held;
        const HiddenTyping hidden;  // before the question, so that nothing that is typed at once is shown
        std::cerr << question << std::flush;
        answered = ReadLine(secret);
    }
    if (!answered) throw Trouble(kBadUsage, "no password was given");
    return secret;
}

bool AskYes(const std::string& question) {
    if (!CanAsk()) throw Trouble(kBadUsage, "there is no terminal to ask on; say --yes");
    std::cerr << question << " [y/N] " << std::flush;
    std::string answer;
    signal_at_prompt = 0;
    ReadLine(answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

std::string SecretFromInput() {
    if (CanAsk()) return AskSecret("Password: ");
    signal_at_prompt = 0;
    std::string secret;
    if (!ReadLine(secret)) throw Trouble(kBadUsage, "standard input has no line with the password");
    return secret;
}

std::string SecretFromFile(const std::string& path) {
    std::ifstream file(path);
    std::string secret;
    if (!file || !std::getline(file, secret)) {
        throw Trouble(kNotFound, "cannot read a password from \"" + ShowText(path, "UTF-8") +
                                     "\": " + (file.eof() ? "it is empty" : std::strerror(errno)));
    }
    if (secret.ends_with('\r')) secret.pop_back();
    return secret;
}

}  // namespace tarvex::host
