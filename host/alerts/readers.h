#pragma once

// Who is told, and by what way, as the rules say.

#include <string>
#include <vector>

#include "host/language/language.h"
#include "host/settings/host_setting.h"

namespace tarvex::host {

// One address, or one program. What several profiles have for it goes into one alert where all of this is the same.
struct Reader {
    std::string to;       // a mail address; empty: the program is told
    std::string command;  // UTF-8; empty for an address
    std::string from;     // empty: as the account has it
    // The SMTP account; without a server it is that of a profile.
    CString server;
    int port = 25;
    int tls = 0;
    CString user;
    CString password;
    Language language = Language::English;

    bool IsCommand() const { return to.empty(); }
    std::string Name() const;  // for people; fit to be shown
    std::string Key() const;   // the same for the same reader, without the password
};

// Nobody where neither an address nor a program is named.
std::vector<Reader> ReadersOf(const HostRules& rules);

}  // namespace tarvex::host
