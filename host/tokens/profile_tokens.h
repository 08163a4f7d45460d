#pragma once

// What the settings of a profile say about tokens.

#include <string>

#include "host/settings/host_setting.h"
#include "host/tokens/access_tokens.h"
#include "tarvex/connection.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// How runs log in at such a server: pop_login or smtp_login, 0 where they do not log in with a token.
int LoginAt(CProtocol protocol, const CPopProfileSetting& setting, const HostRules& rules);

// Whether runs of the profile log in with a token anywhere.
bool UsesTokens(const HostRules& rules, const CPopProfileSetting& setting);

// Whose tokens they are: one login at the provider for both servers.
TokenOwner OwnerOf(const CPopProfile& profile);

// The program that prints them, UTF-8; empty where there is none.
std::string TokenCommandOf(const HostRules& rules);

// Why the profile cannot run before `tarvex login`; empty when it can, or needs no token.
std::string WhyNoToken(const AccessTokens& tokens, const HostRules& rules, const CPopProfile& profile);

}  // namespace tarvex::host
