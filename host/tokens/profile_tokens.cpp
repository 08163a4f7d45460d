// Reads the settings of a profile for those who want its tokens.

#include "host/tokens/profile_tokens.h"

#include "host/settings/shared_account.h"
#include "tarvex/conversion.h"

namespace tarvex::host {

bool UsesTokens(const HostRules& rules, const CPopProfileSetting& setting) {
    return rules.pop_login != 0 || (rules.smtp_login != 0 && WithAccount(setting, rules).smtpauth != 0);
}

TokenOwner OwnerOf(const CPopProfile& profile) { return {profile.path, Utf8FromText(profile.setting.popuser)}; }

std::string TokenCommandOf(const HostRules& rules) { return Utf8FromText(rules.token_command); }

std::string WhyNoToken(const AccessTokens& tokens, const HostRules& rules, const CPopProfile& profile) {
    if (!UsesTokens(rules, profile.setting)) return {};
    return tokens.WhyWaiting(OwnerOf(profile), TokenCommandOf(rules));
}

}  // namespace tarvex::host
