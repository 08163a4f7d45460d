#pragma once

// The SMTP account of a profile: its own, or the one that host.def has for those that name no server.

#include <string>

#include "host/settings/host_setting.h"
#include "tarvex/smtp_account.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// Whose the SMTP server is: the profile's own; its POP3 server, because nobody names another; or one that is shared.
enum class AccountOwner { Profile, PopServer, User, Tree };
AccountOwner AccountOwnerOf(const CPopProfileSetting& setting, const HostRules& rules);

// The settings as runs use them: with the shared account in the place of the profile's own where that holds. Never to
// be saved.
CPopProfileSetting WithAccount(const CPopProfileSetting& setting, const HostRules& rules);

// What a run sends through.
CSmtpAccount SmtpAccountOf(const CPopProfileSetting& setting, const HostRules& rules);

// The same with the rules that hold for the profile. Where they cannot be read, nothing runs, and it is as without
// them.
struct UsedSettings {
    CPopProfileSetting setting;
    AccountOwner owner = AccountOwner::Profile;
    bool tokens_for_smtp = false;  // smtp_login asks for them
};
UsedSettings SettingsInUse(const CPopProfile& profile);

// "of the tree", "of the user"; of others empty.
std::string ShowShared(AccountOwner owner);

// For JSON: "profile", "pop3", "user" or "tree".
const char* Word(AccountOwner owner);

}  // namespace tarvex::host
