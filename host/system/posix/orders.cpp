// Reads the signals of a service from a signalfd.

#include "host/system/orders.h"

#include <sys/signalfd.h>

#include <csignal>
#include <cstring>
#include <initializer_list>

#include "host/system/posix/kept_orders.h"

namespace tarvex::host {
namespace {

constexpr std::initializer_list<int> kSignals = {SIGHUP, SIGINT, SIGTERM};

std::string NameOf(int signal) { return std::string("SIG") + sigabbrev_np(signal); }

}  // namespace

Orders::Orders() : kept_(std::make_unique<Kept>()) {
    sigset_t kept;
    sigemptyset(&kept);
    for (const int signal : kSignals) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) sigaddset(&kept, signal);
    }
    pthread_sigmask(SIG_BLOCK, &kept, nullptr);
    kept_->signals = Descriptor(signalfd(-1, &kept, SFD_CLOEXEC | SFD_NONBLOCK));
    std::signal(SIGPIPE, SIG_IGN);
}

Orders::~Orders() = default;

std::optional<GivenOrder> Orders::Next() {
    signalfd_siginfo info{};
    if (read(kept_->signals.Get(), &info, sizeof info) != sizeof info) return std::nullopt;
    const int signal = static_cast<int>(info.ssi_signo);
    return GivenOrder{signal == SIGHUP ? Order::Reload : Order::Stop, NameOf(signal)};
}

void Orders::Release(const GivenOrder& given) {
    sigset_t released;
    sigemptyset(&released);
    for (const int signal : kSignals) {
        if (NameOf(signal) == given.by) sigaddset(&released, signal);
    }
    pthread_sigmask(SIG_UNBLOCK, &released, nullptr);
}

}  // namespace tarvex::host
