// The plan of `tarvex setup` in words.

#include "host/commands/setup/plan.h"

#include <utility>

#include "host/edit/key_values.h"
#include "host/language/tr.h"
#include "host/settings/keys.h"
#include "host/settings/schedule_text.h"
#include "host/settings/shared_account.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/table.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

// A server with the way to it.
std::string ServerWords(const std::string& name, int port, int tls) {
    if (tls == 0) return Tr("{0} port {1} without TLS", name, port);
    return tls == 2 ? Tr("{0} port {1} with STARTTLS", name, port) : Tr("{0} port {1} with TLS", name, port);
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + ShowUtf8Text(word);
    return text;
}

std::string WhichMail(const SetupPlan& plan) {
    if (!plan.mailbox)
        return plan.all_mail ? Tr("all that is in the mailbox, and what comes") : Tr("only what comes from now on");
    const auto count = static_cast<std::int64_t>(plan.mailbox->messages);
    if (count == 0) return Tr("all (the mailbox is empty)");
    return plan.all_mail ? TrN("all: the {0} message in the mailbox, and what comes",
                               "all: the {0} messages in the mailbox, and what comes", count)
                         : TrN("only what comes from now on, not the {0} message in the mailbox",
                               "only what comes from now on, not the {0} messages in the mailbox", count);
}

std::string InWhichForm(const std::string& text) {
    if (text == "whole") return Tr("the whole mail");
    return text == "unlimited" ? Tr("text without limit") : Tr("text of at most {0} bytes", text);
}

std::string Way(const CPopProfileSetting& own, const HostRules& rules) {
    const CPopProfileSetting setting = WithAccount(own, rules);
    const std::string shared = ShowShared(AccountOwnerOf(own, rules));
    const std::string server = ServerWords(ShowText(setting.smtpserver), setting.smtpport, setting.sslsmtp) +
                               (shared.empty() ? "" : ", " + shared);
    if (setting.smtpauth == 0) return Tr("{0}, without login", server);
    if (rules.smtp_login != 0) return Tr("{0}, with a token", server);
    const bool own_login = !setting.smtpuser.empty() || !setting.smtppassword.empty();
    return own_login ? Tr("{0}, with a login of its own", server) : Tr("{0}, with the same login", server);
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
            throw CommandError(kBadUsage, Tr("That is the mailbox itself: its mail would come back to it."));
        begin = end;
        if (end == std::string::npos) break;
    }
    if (forwards.empty()) throw CommandError(kBadUsage, Tr("Please type a mail address, or several."));
    return forwards;
}

void RequireIds(const SetupPlan& plan) {
    if (plan.all_mail || !plan.mailbox || plan.mailbox->has_uidls || plan.mailbox->messages == 0) return;
    throw CommandError(kUnavailable, Tr("the server has no unique ids (UIDL), so old mail cannot be told from new"));
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
            throw CommandError(kBadUsage, std::string(error.what()) + ". " + Tr(kHowToChange));
        }
        plan.terms.push_back(words);
    }
}

std::string Summary(const SetupPlan& plan) {
    const std::unique_ptr<CPopProfile> draft = DraftOf(plan);
    const HostRules rules = RulesFor(plan);
    const CPopProfileSetting& setting = draft->setting;
    const std::string name = ShowUtf8Text(plan.profile.name);
    const std::string user = plan.user_is_new ? Tr("{0} (new)", name) : name;
    const std::string server = ServerWords(ShowText(setting.popserver), setting.popport, static_cast<int>(rules.Tls()));
    const std::vector<std::pair<std::string, std::string>> lines = {
        {Tr("mailbox"), Tr("{0}, user {1}", ShowText(setting.address), user)},
        {Tr("fetched"), rules.pop_login != 0 ? Tr("as {0} from {1}, with a token", ShowText(setting.popuser), server)
                                             : Tr("as {0} from {1}", ShowText(setting.popuser), server)},
        {Tr("sent by"), Way(setting, rules)},
        {Tr("goes to"), Joined(plan.forwards)},
        {Tr("which mail"), WhichMail(plan)},
        {Tr("when"), plan.terms.empty() ? Tr("always") : Joined(plan.terms)},
        {Tr("as"), InWhichForm(plan.text)},
        {Tr("then"), plan.service}};
    constexpr std::size_t kTitleColumns = 12;
    std::string text = '\n' + Tr("This will be written to {0}:", ShowPath(plan.directory)) + '\n';
    for (const auto& [title, value] : lines) text += "  " + Padded(title, kTitleColumns) + value + '\n';
    return text + '\n';
}

}  // namespace tarvex::host
