// Reads the signals of a service from a signalfd.

#include "host/service/posix/signals.h"

#include <sys/signalfd.h>

#include <csignal>
#include <initializer_list>

namespace tarvex::host {

Signals::Signals() {
    sigset_t kept;
    sigemptyset(&kept);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) sigaddset(&kept, signal);
    }
    pthread_sigmask(SIG_BLOCK, &kept, nullptr);
    descriptor_ = Descriptor(signalfd(-1, &kept, SFD_CLOEXEC | SFD_NONBLOCK));
    std::signal(SIGPIPE, SIG_IGN);
}

std::optional<int> Signals::Next() const {
    signalfd_siginfo info{};
    if (read(descriptor_.Get(), &info, sizeof info) != sizeof info) return std::nullopt;
    return static_cast<int>(info.ssi_signo);
}

void Signals::Release(int signal) {
    sigset_t released;
    sigemptyset(&released);
    sigaddset(&released, signal);
    pthread_sigmask(SIG_UNBLOCK, &released, nullptr);
}

}  // namespace tarvex::host
