#pragma once

// Passwords of POP3 that go over a network in clear.

#include <string>
#include <string_view>

#include "host/settings/host_setting.h"
#include "tarvex/settings.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// Whether the server's name stands for this machine: localhost, or an address of the loopback.
bool IsThisMachine(std::string_view server);

// Whether runs log in over a network without TLS. APOP counts as well: it is only used where the server offers it.
bool LogsInInClear(const CPopProfileSetting& setting, PopTls tls);

// A sentence without its full stop for those that do; empty for others. `name`: what the profile is called.
std::string NoteOnClearLogin(const CPopProfile& profile, const std::string& name);

}  // namespace tarvex::host
