#pragma once

// The way to a mailbox as the rules of its profile want it, for runs and for commands that only look.

#include <functional>

#include "host/tree/host_setting.h"
#include "host/tunnels/tunnels.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

using OnTls = std::function<void(const TlsOutcome&)>;

// The answer to CRunGuard::Connects: none where the rules want no TLS, so that the run connects by itself, as for SMTP.
// `tunnels` may be null where no rule is expected to want one; then a connection that fails.
CConnection WayTo(CServerToReach& server, const CPopProfile& profile, const HostRules& rules, Tunnels* tunnels,
                  OnTls on_tls = {});

// As ListMailbox, by the rules of the profile, with the step of TLS (PROBE_TLS): its text tells version, cipher, names
// and days left, or why there is none. Rules that cannot be read are a failed step.
bool LookIntoMailbox(const CPopProfile& profile, CMailboxListing& listing);

}  // namespace tarvex::host
