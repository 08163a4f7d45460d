// Sends a test mail through the engine's own delivery.

#include "host/setup/test_mail.h"

#include <ctime>

#include "host/ways/one_mail.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

// In the form in which a message comes from POP3.
std::string TestMail(const std::string& from, const std::string& to) {
    return "\r\nFrom: " + from + "\r\nTo: " + to +
           "\r\nSubject: Tarvex test mail\r\nDate: " + MailDate(std::time(nullptr)) + "\r\nMessage-ID: <tarvex-test-" +
           std::to_string(std::time(nullptr)) + "-" + from +
           ">\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\n"
           "This is a test mail of Tarvex. What comes to " +
           from + " will be forwarded to this address.\r\n.\r\n";
}

}  // namespace

std::string SendTestMail(CPopProfile& profile, CForwardAddress& address, const HostRules& rules) {
    return SendOneMail(profile, address, rules,
                       TestMail(profile.setting.address, RecipientOf(address.setting.address)));
}

}  // namespace tarvex::host
