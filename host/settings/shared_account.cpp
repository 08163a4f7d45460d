// Finds the SMTP account that a profile sends through.

#include "host/settings/shared_account.h"

#include <array>

namespace tarvex::host {

AccountOwner AccountOwnerOf(const CPopProfileSetting& setting, const HostRules& rules) {
    if (!setting.smtpserver.empty()) return AccountOwner::Profile;
    if (rules.smtpserver.empty()) return AccountOwner::PopServer;
    return rules.server_of_user ? AccountOwner::User : AccountOwner::Tree;
}

CPopProfileSetting WithAccount(const CPopProfileSetting& setting, const HostRules& rules) {
    CPopProfileSetting used(setting);
    const AccountOwner owner = AccountOwnerOf(setting, rules);
    if (owner == AccountOwner::Profile || owner == AccountOwner::PopServer) return used;
    used.smtpserver = rules.smtpserver;
    used.smtpport = rules.smtpport;
    used.sslsmtp = rules.sslsmtp;
    used.esmtp = rules.esmtp ? 1 : 0;
    used.smtpauth = rules.smtpauth ? 1 : 0;
    used.smtpauth_mode = rules.smtpauth_mode;
    used.smtpuser = rules.smtpuser;
    used.smtppassword = rules.smtppassword;
    return used;
}

CSmtpAccount SmtpAccountOf(const CPopProfileSetting& setting, const HostRules& rules) {
    return CSmtpAccount::Of(WithAccount(setting, rules));
}

UsedSettings SettingsInUse(const CPopProfile& profile) {
    const HostRules rules = RulesToShow(profile);
    return {WithAccount(profile.setting, rules), AccountOwnerOf(profile.setting, rules), rules.smtp_login != 0};
}

std::string ShowShared(AccountOwner owner) {
    if (owner == AccountOwner::Tree) return "of the tree";
    return owner == AccountOwner::User ? "of the user" : "";
}

const char* Word(AccountOwner owner) {
    constexpr std::array kWords = {"profile", "pop3", "user", "tree"};
    return kWords[static_cast<std::size_t>(owner)];
}

}  // namespace tarvex::host
