// Reads the settings of a profile for those who want its tokens.

#include "host/tokens/profile_tokens.h"

#include "host/settings/shared_account.h"
#include "tarvex/conversion.h"

namespace tarvex::host {

int LoginAt(CProtocol protocol, const CPopProfileSetting& setting, const HostRules& rules) {
    if (protocol == CProtocol::Pop3) return rules.pop_login;
    const CSmtpAccount account = SmtpAccountOf(setting, rules);
    return account.logs_in && account.esmtp ? rules.smtp_login : 0;
}

bool UsesTokens(const HostRules& rules, const CPopProfileSetting& setting) {
    return LoginAt(CProtocol::Pop3, setting, rules) != 0 || LoginAt(CProtocol::Smtp, setting, rules) != 0;
}

TokenOwner OwnerOf(const CPopProfile& profile) { return {profile.path, Utf8FromText(profile.setting.popuser)}; }

std::string TokenCommandOf(const HostRules& rules) { return Utf8FromText(rules.token_command); }

std::string WhyNoToken(const AccessTokens& tokens, const HostRules& rules, const CPopProfile& profile) {
    if (!UsesTokens(rules, profile.setting)) return {};
    return tokens.WhyWaiting(OwnerOf(profile), TokenCommandOf(rules));
}

}  // namespace tarvex::host
