// Has the engine's own fetching take one message, and leave all else as it is.

#include "host/ways/newest_mail.h"

#include <algorithm>
#include <memory>
#include <span>
#include <utility>

#include "host/system/paths.h"
#include "host/ways/server_way.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr int kMostTimeOut_s = 30;
constexpr std::int64_t kLeastBytesPerMinute = 256 << 10;

class NewestGuard final : public CRunGuard {
public:
    NewestGuard(const HostRules& rules, const std::string& root, std::int64_t most_bytes)
        : rules_(rules), most_bytes_(most_bytes), ways_(root) {}

    bool is_empty = false;
    bool is_too_large = false;

private:
    CConnection Connects(const CPopProfile& profile, CServerToReach& server) override {
        return WayTo(server, profile, rules_, &ways_);
    }
    bool Listed(const CPopProfile&, std::span<const CMailOnServer> listing) override {
        is_empty = listing.empty();
        if (!is_empty) newest_ = listing.back().number;
        return !is_empty;
    }
    bool WantsSizes(const CPopProfile&) override { return true; }
    bool IsHandled(const CPopProfile&, const CMailOnServer& mail, bool) override { return mail.number != newest_; }
    bool Deletes(const CPopProfile&, const CMailOnServer&) override { return false; }
    bool Fetches(const CPopProfile&, const CMailOnServer& mail, std::int64_t) override {
        is_too_large = mail.size_bytes > most_bytes_;
        return !is_too_large;
    }
    std::int64_t LeastBytesPerMinute(const CPopProfile&) override { return kLeastBytesPerMinute; }

    const HostRules rules_;
    const std::int64_t most_bytes_;
    std::string newest_;
    Ways ways_;
};

}  // namespace

NewestMail FetchNewest(CPopProfile& profile, const HostRules& rules, std::int64_t most_bytes) {
    NewestGuard guard(rules, ParentOf(ParentOf(profile.path)), most_bytes);
    CPopProfileSetting& setting = profile.setting;
    setting.timeout = setting.timeout > 0 ? std::min(setting.timeout, kMostTimeOut_s) : kMostTimeOut_s;
    setting.deletemail = 0;
    setting.logmode = 0;
    profile.guard = &guard;
    profile.result = {};
    CArray<CReceiveMail*, CReceiveMail*> mails;  // owns its messages
    CCheckedMail handled;
    profile.PopProcess(&mails, &handled, nullptr);
    profile.guard = nullptr;
    NewestMail newest{std::nullopt, guard.is_empty, guard.is_too_large, profile.result.mailbox};
    for (CReceiveMail* const fetched : mails) {
        const std::unique_ptr<CReceiveMail> mail(fetched);
        newest.text = std::move(mail->text);
    }
    if (!newest.text && newest.why.failure_class == CFailureClass::None && !profile.result.not_fetched.empty()) {
        const CNotFetchedMail& told = profile.result.not_fetched.front();
        newest.why.failure_class = told.failure_class;
        newest.why.reply = told.reply;
        newest.why.reason = told.reason;
    }
    return newest;
}

}  // namespace tarvex::host
