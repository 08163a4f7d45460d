#pragma once

// The host's own settings file, host.def: the rules that make a tree fit to be left alone, and what many profiles
// share. One lies in the root; one in the folder of a user or of a profile holds only what differs there. A tree
// without one in its root is run by the engine's rules alone.

#include <optional>
#include <string>

#include "host/settings/keys.h"
#include "host/system/command_error.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// How runs reach a POP3 server: the values of pop_tls.
enum class PopTls { Off = 0, FromTheFirstByte = 1, Stls = 2 };

// The values of alert_language.
enum class AlertLanguage { English = 0, Japanese = 1 };

// Kept as host.def has them; each key is described in the table behind Keys<HostRules>().
struct HostRules {
    bool setaside = true;
    bool sentonce = true;
    bool loopguard = true;
    bool deletewaits = true;
    bool floodguard = true;
    bool retrylast = true;
    bool spread = true;  // of the root alone
    bool backoff = true;
    bool keyless = true;
    int endofdata = 600;       // seconds
    int runtime = 240;         // minutes
    int minspeed = 100;        // bytes a second, averaged over a minute
    int runsize = 64;          // MiB of messages that one run holds
    int servicesize = 256;     // MiB that all runs of the service hold; of the root alone
    int floodlimit = 50;       // messages
    int heldmessages = 10000;  // messages of a profile
    int heldsize = 1024;       // MiB of a profile
    int serverruns = 10;       // runs at once to one server
    int header_limit = 0;      // bytes of the header of a text mail; 0: any number
    int allruns = 200;         // runs at once; of the root alone
    int historydays = 90;      // of the root alone, as the next
    int historysize = 500;     // MB

    int pop_tls = 0;        // a PopTls
    CString tls_authority;  // a file of certificates, in the tree's form of a path; empty for the system's

    int pop_login = 0;      // 0 password, 1 xoauth2, 2 oauthbearer
    int smtp_login = 0;     // the same
    CString token_command;  // the program that prints access tokens; empty: from `tarvex login`

    // The account of profiles that name no SMTP server of their own, by the names and meanings of popprofile.def. None
    // while smtpserver is empty. See SmtpAccountOf (host/settings/shared_account.h).
    CString smtpserver;
    int smtpport = 25;
    int sslsmtp = 0;
    bool esmtp = true;
    bool smtpauth = false;
    int smtpauth_mode = 0;
    CString smtpuser;
    CString smtppassword;         // plain in memory, scrambled in the file
    bool server_of_user = false;  // no key: whether the user's file names it

    // Who is told when something is wrong, and through which server: see host/alerts. Nobody while alert_to and
    // alert_command are empty.
    CString alert_to;      // addresses, separated by commas
    CString alert_from;    // empty: that of the profile whose server is used, or the first of alert_to
    CString alert_server;  // empty: that of the profile
    int alert_port = 25;
    int alert_tls = 0;  // as sslsmtp
    CString alert_user;
    CString alert_password;  // plain in memory, scrambled in the file
    int alert_after = 5;     // failed runs in a row
    int alert_hours = 6;     // of failing
    int alert_language = 0;  // an AlertLanguage
    CString alert_command;

    PopTls Tls() const { return static_cast<PopTls>(pop_tls); }
    bool operator==(const HostRules&) const = default;
};

template <>
std::span<const Key<HostRules>> Keys();

inline constexpr const char* kHostSettingFile = "\\host.def";

// For a command that needs rules: says how a tree gets them.
CommandError NoRules();

// Whether the tree has rules: whether there is anything called host.def in its root.
bool HasRules(const CString& root);

// Where a file lies, and whose folder that is.
enum class RulesPlace { Tree, User, Profile };

// The rules of a tree; nothing when it has none. Throws CommandError (kCannotWrite) when a host.def is there but cannot
// be read, holds no key or a value that is not allowed: then nothing may be run, for no rules and other rules are both
// wrong. Reads the files each time, unless there is an OneReadingOfRules.
std::optional<HostRules> RulesOf(const CString& root);

// The same for a user, by its directory: what its profiles have where they have nothing of their own.
std::optional<HostRules> RulesOfUser(const CString& root, const CString& user);

// The same for a profile, by its directory in the directory of its user.
std::optional<HostRules> RulesOf(const CString& root, const CString& profile);
std::optional<HostRules> RulesOf(const CPopProfile& profile);

// While there is one, its thread reads a host.def once for all that ask for it one after the other: for work on many
// profiles of which each asks several times. A change meanwhile may be seen by the next one only.
class OneReadingOfRules {
public:
    OneReadingOfRules();
    ~OneReadingOfRules();
    OneReadingOfRules(const OneReadingOfRules&) = delete;
    OneReadingOfRules& operator=(const OneReadingOfRules&) = delete;
};

// The same for what is shown: those of a new tree, which want neither TLS nor tokens, where there are none or they
// cannot be read, since then nothing runs by them.
HostRules RulesToShow(const CPopProfile& profile);

// The rules that hold when a file is read: its values in the place of others. A user's file that names an SMTP server
// names a whole account: no login of the tree goes there. The same holds for alert_server. Throws CommandError.
HostRules RulesIn(const std::string& text, const CString& path, HostRules others, RulesPlace place);

}  // namespace tarvex::host
