// The thread that tries held mail.

#include "host/service/posix/held_sender.h"

#include <exception>
#include <utility>

namespace tarvex::host {

HeldSender::HeldSender(const CPopProfile& profile, std::vector<HeldChoice> choice, HeldSendingOptions options)
    : choice_(std::move(choice)), options_(std::move(options)) {
    copy_ = profile;
    options_.stop = [this] { return stopped_.load(); };
    thread_ = std::thread([this] {
        try {
            results_ = SendHeld(copy_, choice_, options_);
        } catch (const std::exception&) {
            // Want of memory: what was not tried stays as it is.
            results_.clear();
        }
        ended_ = true;
    });
}

HeldSender::~HeldSender() {
    Stop();
    thread_.join();
}

}  // namespace tarvex::host
