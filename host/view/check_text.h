#pragma once

// What a try of servers found, in lines: as `tarvex check` prints it and the console shows it.

#include <cstdint>
#include <string>
#include <vector>

#include "host/advice/advice.h"
#include "host/settings/host_setting.h"
#include "tarvex/probe.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// "mail.example.org port 995 with TLS"; the numbers of `tls` mean the same to both protocols.
std::string ShowServer(const CPopProfileSetting& setting, Protocol protocol, int tls);

// A failed QUIT counts for nothing: the server has done all that a run needs.
bool Matters(const CProbeStep& step);

std::int64_t BytesIn(const CMailboxListing& listing);

// Its steps, each with advice where it failed, and what else there is to say. The setting is that by which the server
// was tried.
std::string TextOf(const CMailboxListing& listing, bool is_good, const CPopProfileSetting& setting,
                   const HostRules& rules);
std::string TextOf(const CSmtpTrial& trial, const CPopProfileSetting& setting, const HostRules& rules);

// Why no login was tried that the setting wants, and what to do; empty when there is nothing to say.
std::string WhyWithoutLogin(const CSmtpTrial& trial, const CPopProfileSetting& setting);

// Those that a run may send to.
std::vector<CString> RecipientsOf(const CPopProfile& profile);

}  // namespace tarvex::host
