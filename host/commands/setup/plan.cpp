// The plan of `tarvex setup` in words.

#include "host/commands/setup/plan.h"

#include <utility>

#include "host/edit/key_values.h"
#include "host/settings/keys.h"
#include "host/settings/schedule_text.h"
#include "host/settings/shared_account.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

std::string Security(int tls) { return tls == 0 ? " without TLS" : tls == 2 ? " with STARTTLS" : " with TLS"; }

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + ShowUtf8Text(word);
    return text;
}

std::string WhichMail(const SetupPlan& plan) {
    if (!plan.mailbox)
        return plan.all_mail ? "all that is in the mailbox, and what comes" : "only what comes from now on";
    const std::string count = ShowCount(static_cast<std::int64_t>(plan.mailbox->messages), "message");
    if (plan.mailbox->messages == 0) return "all (the mailbox is empty)";
    return plan.all_mail ? "all: the " + count + " in the mailbox, and what comes"
                         : "only what comes from now on, not the " + count + " in the mailbox";
}

std::string InWhichForm(const std::string& text) {
    if (text == "whole") return "the whole mail";
    return text == "unlimited" ? "text without limit" : "text of at most " + text + " bytes";
}

std::string Way(const CPopProfileSetting& own, const HostRules& rules) {
    const CPopProfileSetting setting = WithAccount(own, rules);
    const std::string shared = ShowShared(AccountOwnerOf(own, rules));
    const std::string server = ShowText(setting.smtpserver) + " port " + std::to_string(setting.smtpport) +
                               Security(setting.sslsmtp) + (shared.empty() ? "" : ", " + shared);
    if (setting.smtpauth == 0) return server + ", without login";
    if (rules.smtp_login != 0) return server + ", with a token";
    const bool own_login = !setting.smtpuser.empty() || !setting.smtppassword.empty();
    return server + (own_login ? ", with a login of its own" : ", with the same login");
}

void RequireValue(const char* key, const std::string& value) {
    CForwardAddressSetting setting;
    SetValue(setting, KeyNamed<CForwardAddressSetting>(key), value);
}

}  // namespace

std::unique_ptr<CPopProfile> DraftOf(const SetupPlan& plan) {
    auto draft = std::make_unique<CPopProfile>();
    KeyValues<CPopProfileSetting>(plan.profile).Assign(draft->setting);
    return draft;
}

HostRules RulesFor(const SetupPlan& plan) {
    HostRules rules = plan.rules;
    for (const auto& [key, value] : plan.profile.rules) SetValue(rules, KeyNamed<HostRules>(key), value);
    return rules;
}

SetupPlan::Mailbox MailboxOf(const CMailboxListing& listing) {
    SetupPlan::Mailbox mailbox{listing.mails.size(), listing.has_uidls != 0, {}};
    for (const CListedMail& mail : listing.mails) mailbox.uidls.push_back(mail.uidl);
    return mailbox;
}

std::vector<std::string> ForwardsIn(const SetupPlan& plan, const std::string& words) {
    std::vector<std::string> forwards;
    const std::string separators = words.find('<') == std::string::npos ? ", \t" : ",";
    for (std::size_t begin = 0; (begin = words.find_first_not_of(", \t", begin)) != std::string::npos;) {
        const std::size_t end = words.find_first_of(separators, begin);
        const std::string& address = forwards.emplace_back(words.substr(begin, end - begin));
        RequireValue("address", address);
        if (SameMailbox(address, plan.Address()))
            throw CommandError(kBadUsage, "That is the mailbox itself: its mail would come back to it.");
        begin = end;
        if (end == std::string::npos) break;
    }
    if (forwards.empty()) throw CommandError(kBadUsage, "Please type a mail address, or several.");
    return forwards;
}

void RequireIds(const SetupPlan& plan) {
    if (plan.all_mail || !plan.mailbox || plan.mailbox->has_uidls || plan.mailbox->messages == 0) return;
    throw CommandError(kUnavailable, "the server has no unique ids (UIDL), so old mail cannot be told from new");
}

void Change(SetupPlan& plan, const std::string& words) {
    const std::string typed = Lower(words);
    if (typed == "all" || typed == "new") {
        SetupPlan changed = plan;
        changed.all_mail = typed == "all";
        RequireIds(changed);
        plan = std::move(changed);
    } else if (typed == "whole" || typed == "always") {
        if (typed == "whole") plan.text = "whole";
        if (typed == "always") plan.terms.clear();
    } else if (typed.starts_with("text")) {
        const std::size_t number = typed.find_first_not_of(' ', 4);
        const std::string value = number == std::string::npos ? "unlimited" : typed.substr(number);
        RequireValue("textonly", value);
        plan.text = value;
    } else {
        try {
            static_cast<void>(ParseTerms(words));
        } catch (const CommandError& error) {
            throw CommandError(kBadUsage, std::string(error.what()) + ". " + kHowToChange);
        }
        plan.terms.push_back(words);
    }
}

std::string Summary(const SetupPlan& plan) {
    const std::unique_ptr<CPopProfile> draft = DraftOf(plan);
    const HostRules rules = RulesFor(plan);
    const CPopProfileSetting& setting = draft->setting;
    const std::string user = ShowUtf8Text(plan.profile.name) + (plan.user_is_new ? " (new)" : "");
    return "\nThis will be written to " + ShowPath(plan.directory) + ":\n  mailbox     " + ShowText(setting.address) +
           ", user " + user + "\n  fetched     as " + ShowText(setting.popuser) + " from " +
           ShowText(setting.popserver) + " port " + std::to_string(setting.popport) +
           Security(static_cast<int>(rules.Tls())) + (rules.pop_login != 0 ? ", with a token" : "") +
           "\n  sent by     " + Way(setting, rules) + "\n  goes to     " + Joined(plan.forwards) + "\n  which mail  " +
           WhichMail(plan) + "\n  when        " + (plan.terms.empty() ? "always" : Joined(plan.terms)) +
           "\n  as          " + InWhichForm(plan.text) + "\n  then        " + plan.service + "\n\n";
}

}  // namespace tarvex::host
