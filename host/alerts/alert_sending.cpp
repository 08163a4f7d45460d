// Sends an alert by mail, or to a program.

#include "host/alerts/alert_sending.h"

#include <chrono>
#include <set>

#include "host/alerts/alert_mail.h"
#include "host/settings/mailbox_value.h"
#include "host/settings/shared_account.h"
#include "host/system/display.h"
#include "host/system/program_output.h"
#include "host/tokens/command_tokens.h"
#include "host/ways/one_mail.h"
#include "tarvex/conversion.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr auto kProgramTime = 30s;
constexpr std::size_t kMostOutput = std::size_t{1} << 20;  // nobody reads it
constexpr std::size_t kMostAccounts = 3;
constexpr int kTimeOut_s = 30;

std::string ServerName(const CSmtpAccount& account) {
    return ShowText(account.server) + ':' + std::to_string(account.port);
}

// The null return path: nothing comes back when it cannot be delivered.
std::string Send(const Reader& reader, const AlertText& text, const std::string& from, const HostRules& rules,
                 CPopProfile& copy, CTime now) {
    copy.setting.address.clear();
    CForwardAddress address;
    address.setting.address = reader.to;
    return SendOneMail(copy, address, rules, AlertMail(text, reader.language, from, reader.to, now));
}

SendingOutcome SendThroughItsServer(const Reader& reader, const AlertText& text, CPopProfile& copy, CTime now) {
    copy.path.clear();
    copy.forward_addresses.clear();
    CPopProfileSetting& setting = copy.setting;
    setting.Initialize();
    setting.timeout = kTimeOut_s;
    setting.smtpserver = reader.server;
    setting.smtpport = reader.port;
    setting.sslsmtp = reader.tls;
    setting.esmtp = 1;
    setting.smtpauth = reader.user.empty() ? 0 : 1;
    setting.smtpauth_mode = 0;
    setting.smtpuser = reader.user;
    setting.smtppassword = reader.password;
    const HostRules rules;
    const std::string through = ServerName(SmtpAccountOf(setting, rules));
    const std::string why = Send(reader, text, reader.from, rules, copy, now);
    return why.empty() ? SendingOutcome{through, ""} : SendingOutcome{"", through + ": " + why};
}

SendingOutcome SendThrough(const Carrier& carrier, const Reader& reader, const AlertText& text, CPopProfile& copy,
                           CTime now) {
    copy = *carrier.profile;
    const std::string own = carrier.profile->setting.address;
    const std::string from = !reader.from.empty() ? reader.from : IsMailAddress(own) ? own : reader.to;
    const std::string through = ServerName(SmtpAccountOf(copy.setting, carrier.rules));
    const std::string why = Send(reader, text, from, carrier.rules, copy, now);
    return why.empty() ? SendingOutcome{through, ""} : SendingOutcome{"", through + ": " + why};
}

}  // namespace

SendingOutcome SendMailTo(const Reader& reader, const AlertText& text, const std::vector<Carrier>& carriers,
                          const Sending& sending, CTime now) {
    if (!reader.server.empty()) return SendThroughItsServer(reader, text, sending.copy, now);
    SendingOutcome outcome{"", "no profile has an SMTP server for it"};
    std::set<std::string> tried;
    for (const Carrier& carrier : carriers) {
        if (sending.stops() || tried.size() == kMostAccounts) break;
        const CSmtpAccount account = SmtpAccountOf(carrier.profile->setting, carrier.rules);
        if (!tried.insert(ServerName(account) + ' ' + account.user).second) continue;
        SendingOutcome one = SendThrough(carrier, reader, text, sending.copy, now);
        if (one.why.empty()) return one;
        if (tried.size() == 1) outcome = std::move(one);
    }
    return outcome;
}

SendingOutcome TellProgram(const Reader& reader, const Json& alert, const Sending& sending) {
    try {
        const std::string text = alert.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
        const ProgramOutput output =
            OutputOf(WordsOf(reader.command), kProgramTime, kMostOutput, sending.stops, {.input = text});
        if (output.trouble.empty()) return {reader.Name(), ""};
        return {"", "alert_command " + output.trouble};
    } catch (const TokenTrouble&) {
        return {"", "alert_command has a quote that is not closed"};
    }
}

}  // namespace tarvex::host
