#pragma once

// The way to a server as the rules of a profile want it, with TLS and tokens, for runs and for commands that only look.

#include <atomic>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "host/settings/host_setting.h"
#include "host/tokens/access_tokens.h"
#include "host/tunnels/tunnels.h"
#include "tarvex/probe_steps.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

using OnTls = std::function<void(const TlsOutcome&)>;

// What all ways of one tree share.
struct Ways {
    explicit Ways(const std::string& root) : tokens(root) {}

    AccessTokens tokens;
    Tunnels tunnels;
};

// What a run has logged in with. Kept by the run; the mail server's refusal comes on another thread.
struct UsedToken {
    std::string token;  // empty for none
    std::shared_ptr<std::atomic<bool>> was_refused = std::make_shared<std::atomic<bool>>(false);
};

// The answer to CRunGuard::Connects: none where the rules want neither TLS nor a token, so that the run connects by
// itself. Asks for the token first, which may take half a minute, and connects only with one; it goes nowhere without
// TLS. `ways` may be null where no rule is expected to want one; then a connection that fails.
CConnection WayTo(CServerToReach& server, const CPopProfile& profile, const HostRules& rules, Ways* ways,
                  OnTls on_tls = {}, UsedToken* used = nullptr);

// As ListMailbox, by the rules of the profile, with the step of TLS (PROBE_TLS): its text tells version, cipher, names
// and days left, or why there is none. Rules that cannot be read are a failed step. `watch` hears of each step that
// begins, TLS included.
bool LookIntoMailbox(const CPopProfile& profile, CMailboxListing& listing, const CProbeWatch& watch = {});
// The same by these rules: for a profile that is not on disk yet.
bool LookIntoMailbox(const CPopProfile& profile, const HostRules& rules, CMailboxListing& listing,
                     const CProbeWatch& watch = {});

// As TrySmtp, likewise.
bool TryRelay(const CPopProfile& profile, std::span<const CString> recipients, CSmtpTrial& trial,
              const CProbeWatch& watch = {});
bool TryRelay(const CPopProfile& profile, const HostRules& rules, std::span<const CString> recipients,
              CSmtpTrial& trial, const CProbeWatch& watch = {});

}  // namespace tarvex::host
