#pragma once

// A mail that shows whether what is forwarded arrives.

#include <string>

#include "host/settings/host_setting.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// Sends it to one address of the profile, the way a run would: through its SMTP server, by these rules, and as a text
// where the address wants that. Returns why it did not go, fit to be shown; empty when the server has taken it. On a
// profile that is used for nothing else, whether it is switched on or not.
std::string SendTestMail(CPopProfile& profile, CForwardAddress& address, const HostRules& rules);

}  // namespace tarvex::host
