#pragma once

// The SMTP server of a profile in words, and whose it is.

#include <string>

#include "host/settings/shared_account.h"
#include "host/terminal/json.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// "relay.example.org:587 (of the tree)"
std::string ShowAccount(const CPopProfile& profile);

// Its server, port, and "from": "profile", "pop3", "user" or "tree".
Json JsonOfAccount(const CPopProfile& profile);

// What to do when advice names keys of the profile, but the account is shared: where those keys are. Else empty.
std::string WhereAccountIsSet(const CPopProfile& profile);

}  // namespace tarvex::host
