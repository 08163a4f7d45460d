// Sends one mail through the engine's own delivery.

#include "host/ways/one_mail.h"

#include <array>
#include <ctime>
#include <memory>
#include <span>
#include <utility>

#include "host/settings/shared_account.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"
#include "host/ways/server_way.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kTextWidth = 200;

struct Quit {
    void operator()(CSmtpSocket* connection) const { QuitSmtpConnection(connection); }
};

class OneMailGuard final : public CRunGuard {
public:
    OneMailGuard(const HostRules& rules, const std::string& root) : rules_(rules), ways_(root) {}

    bool taken = false;
    CRunFailure refusal;

private:
    CSmtpAccount SendsThrough(const CPopProfile& profile) override { return SmtpAccountOf(profile.setting, rules_); }
    CConnection Connects(const CPopProfile& profile, CServerToReach& server) override {
        return WayTo(server, profile, rules_, &ways_);
    }
    CRefusal Refused(const CPopProfile&, const CReceiveMail&, const CForwardAddress&, const CRunFailure& why) override {
        refusal = why;
        return CRefusal::HostHasIt;
    }
    void Taken(const CPopProfile&, const CReceiveMail&, std::span<CForwardAddress* const>, std::string_view) override {
        taken = true;
    }

    const HostRules rules_;
    Ways ways_;
};

}  // namespace

// In English, whatever the locale.
std::string MailDate(CTime moment) {
    constexpr std::array kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr std::array kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t at = moment;
    std::tm parts{};
    gmtime_r(&at, &parts);
    std::array<char, 32> numbers{};
    const std::size_t length = std::strftime(numbers.data(), numbers.size(), " %Y %H:%M:%S +0000", &parts);
    return std::string(kDays[static_cast<std::size_t>(parts.tm_wday)]) + ", " + std::to_string(parts.tm_mday) + ' ' +
           kMonths[static_cast<std::size_t>(parts.tm_mon)] + std::string(numbers.data(), length);
}

std::string SendOneMail(CPopProfile& profile, CForwardAddress& address, const HostRules& rules, std::string text) {
    OneMailGuard guard(rules, ParentOf(ParentOf(profile.path)));
    profile.guard = &guard;
    profile.result.delivery = {};
    {
        std::unique_ptr<CSmtpSocket, Quit> connection(profile.CreateSmtpConnection());
        auto mail = std::make_unique<CReceiveMail>();
        mail->text = std::move(text);
        mail->destinations = {&address};
        CArray<CReceiveMail*, CReceiveMail*> mails(1);  // owns its messages
        mails.front() = mail.release();
        if (connection && !profile.SmtpProcess(connection.get(), &mails)) CloseSmtpConnection(connection.release());
        for (CReceiveMail* const left : mails) std::unique_ptr<CReceiveMail>{left}.reset();
    }
    profile.guard = nullptr;
    if (guard.taken) return {};
    const bool refused = guard.refusal.failure_class != CFailureClass::None;
    const CRunFailure& why = refused ? guard.refusal : profile.result.delivery;
    const std::string words = OneLine(why.reply.empty() ? why.reason : why.reply, kTextWidth);
    return words.empty() ? "the server gave no answer that can be shown" : words;
}

}  // namespace tarvex::host
