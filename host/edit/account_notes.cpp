// Says which profiles a shared SMTP account is for, and where a login with a token has no effect.

#include "host/edit/account_notes.h"

#include <cstdint>

#include "host/language/tr.h"
#include "host/settings/shared_account.h"
#include "host/tree/names.h"

namespace tarvex::host {
namespace {

bool IsWithin(const CString& path, const CString& directory) {
    return path == directory || path.starts_with(directory + '\\');
}

}  // namespace

std::string NotesOnAccount(const CRootPath& root, const CString& directory, const KeyValues<HostRules>& values) {
    const bool sets_server = values.Has("smtpserver");
    const bool sets_login = values.Has("smtp_login");
    if (!sets_server && !sets_login) return {};
    std::int64_t through_it = 0;
    std::int64_t without_login = 0;
    for (const NamedProfile& named : AllProfiles(root)) {
        if (!IsWithin(named.profile->path, directory)) continue;
        const UsedSettings used = SettingsInUse(*named.profile);
        const AccountOwner owner = directory == root.path ? AccountOwner::Tree : AccountOwner::User;
        if (used.owner == owner) ++through_it;
        const bool has_login = used.setting.smtpauth != 0 && used.setting.esmtp != 0;
        if (used.tokens_for_smtp && !has_login) ++without_login;
    }
    std::string notes;
    if (sets_server && through_it > 0)
        notes +=
            TrN("It is the SMTP server of {0} profile.", "It is the SMTP server of {0} profiles.", through_it) + '\n';
    if (sets_login && without_login > 0) {
        notes += TrN("Note: {0} profile sends without a login, so smtp_login has no effect there; smtpauth and esmtp "
                     "must be on.",
                     "Note: {0} profiles send without a login, so smtp_login has no effect there; smtpauth and esmtp "
                     "must be on.",
                     without_login) +
                 '\n';
    }
    return notes;
}

}  // namespace tarvex::host
