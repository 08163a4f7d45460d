// Tells logins in clear to another machine from those within this one.

#include "host/tree/clear_login.h"

#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"

namespace tarvex::host {

bool IsThisMachine(std::string_view server) {
    std::string name = Lower(std::string(server));
    if (name.ends_with('.')) name.pop_back();
    const bool is_ipv4 = name.find_first_not_of("0123456789.") == std::string::npos;
    return name == "localhost" || name.ends_with(".localhost") || name == "::1" ||
           (is_ipv4 && name.starts_with("127."));
}

bool LogsInInClear(const CPopProfileSetting& setting, PopTls tls) {
    return tls == PopTls::Off && !IsThisMachine(setting.popserver);
}

std::string NoteOnClearLogin(const CPopProfile& profile, const std::string& name) {
    if (!LogsInInClear(profile.setting, RulesToShow(profile).Tls())) return {};
    return Tr(
        "the POP3 password goes to {0} in clear; `tarvex rules set {1} --pop_tls tls` encrypts it (usually at port "
        "995)",
        ShowText(profile.setting.popserver), name);
}

}  // namespace tarvex::host
