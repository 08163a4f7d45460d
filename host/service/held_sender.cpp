// The thread that tries held mail.

#include "host/service/held_sender.h"

#include <chrono>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

#include "tarvex/tarvex.h"

namespace tarvex::host {

HeldSender::HeldSender(const CPopProfile& profile, std::vector<HeldChoice> choice, HeldSendingOptions options)
    : choice_(std::move(choice)), options_(std::move(options)) {
    copy_ = profile;
    options_.stop = [this] { return stopped_.load(); };
    const auto send = [this] {
        try {
            results_ = SendHeld(copy_, choice_, options_);
        } catch (const std::exception&) {
            // Want of memory: what was not tried stays as it is.
            results_.clear();
        }
    };
    if (!StartWork(copy_, send)) throw std::system_error(std::make_error_code(std::errc::not_enough_memory));
}

HeldSender::~HeldSender() {
    Stop();
    while (!HasEnded()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void HeldSender::Stop() {
    stopped_ = true;
    InterruptRun(copy_);
}

}  // namespace tarvex::host
