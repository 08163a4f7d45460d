// Sends a test mail through the engine's own delivery.

#include "host/setup/test_mail.h"

#include <array>
#include <ctime>
#include <memory>
#include <span>

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

class TestGuard final : public CRunGuard {
public:
    TestGuard(const HostRules& rules, const std::string& root) : rules_(rules), ways_(root) {}

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

std::string DateNow() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S +0000", &parts)};
}

// In the form in which a message comes from POP3.
std::string TestMail(const std::string& from, const std::string& to) {
    return "\r\nFrom: " + from + "\r\nTo: " + to + "\r\nSubject: Tarvex test mail\r\nDate: " + DateNow() +
           "\r\nMessage-ID: <tarvex-test-" + std::to_string(std::time(nullptr)) + "-" + from +
           ">\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\n"
           "This is a test mail of Tarvex. What comes to " +
           from + " will be forwarded to this address.\r\n.\r\n";
}

}  // namespace

std::string SendTestMail(CPopProfile& profile, CForwardAddress& address, const HostRules& rules) {
    TestGuard guard(rules, ParentOf(ParentOf(profile.path)));
    profile.guard = &guard;
    profile.result.delivery = {};
    {
        std::unique_ptr<CSmtpSocket, Quit> connection(profile.CreateSmtpConnection());
        auto mail = std::make_unique<CReceiveMail>();
        mail->text = TestMail(profile.setting.address, RecipientOf(address.setting.address));
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
    return OneLine(why.reply.empty() ? why.reason : why.reply, kTextWidth);
}

}  // namespace tarvex::host
