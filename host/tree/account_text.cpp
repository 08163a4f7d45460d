// Says through which SMTP server a profile sends.

#include "host/tree/account_text.h"

#include "host/advice/advice.h"
#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "tarvex/conversion.h"

namespace tarvex::host {

std::string ShowAccount(const CPopProfile& profile) {
    const UsedSettings used = SettingsInUse(profile);
    const std::string shared = ShowShared(used.owner);
    return ShowText(ServerOf(used.setting, Protocol::Smtp)) + ':' + std::to_string(used.setting.smtpport) +
           (shared.empty() ? "" : " (" + shared + ')');
}

Json JsonOfAccount(const CPopProfile& profile) {
    const UsedSettings used = SettingsInUse(profile);
    return {{"server", Utf8FromText(ServerOf(used.setting, Protocol::Smtp))},
            {"port", used.setting.smtpport},
            {"from", Word(used.owner)}};
}

std::string WhereAccountIsSet(const CPopProfile& profile) {
    const AccountOwner owner = SettingsInUse(profile).owner;
    if (owner == AccountOwner::Tree)
        return Tr("This SMTP server is that of the whole tree: change it with `tarvex rules set`.");
    if (owner != AccountOwner::User) return {};
    const CString user = ParentOf(profile.path);
    return Tr("This SMTP server is that of the user: change it with `tarvex rules set {0}`.",
              ShowPath(user.substr(user.find_last_of("\\/") + 1)));
}

}  // namespace tarvex::host
