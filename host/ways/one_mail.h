#pragma once

// One mail of the host's own, through the engine's delivery.

#include <string>

#include "host/settings/host_setting.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// The moment as a Date field has it.
std::string MailDate(CTime moment);

// Sends the mail, in the form in which it would come from POP3, to one address, the way a run of the profile would:
// through its SMTP server, by these rules, with its address as the sender (none: the null return path), and as a text
// where the address wants that. Returns why it did not go, fit to be shown; empty when the server has taken it. On a
// profile that is used for nothing else, whether it is switched on or not.
std::string SendOneMail(CPopProfile& profile, CForwardAddress& address, const HostRules& rules, std::string mail);

}  // namespace tarvex::host
