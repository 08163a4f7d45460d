#pragma once

// The file of known providers that ships with the package, share/tarvex/mail-servers, which explains its own form.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/settings/host_setting.h"

namespace tarvex::host {

// A server, and how TLS begins there.
struct MailServer {
    std::string name;
    int port = 0;
    PopTls tls = PopTls::FromTheFirstByte;  // of SMTP as well

    bool operator==(const MailServer&) const = default;
};

enum class LoginUser { Address, NameAlone, Either };
enum class LoginKind { Password, AppPassword, Token };

struct KnownProvider {
    std::optional<MailServer> pop;  // none: the provider has no POP3
    std::optional<MailServer> smtp;
    LoginUser user = LoginUser::Either;
    LoginKind login = LoginKind::Password;
    std::string remark;  // for the person, UTF-8; may be empty
};

struct KnownLine {
    std::vector<std::string> domains;
    KnownProvider provider;
};

// All lines of a file. Throws CommandError (kBadSettings), which names the line that breaks the form.
std::vector<KnownLine> ReadKnownServers(std::string_view text);

// What the file says about a domain, which is found in any letter case; nothing when it does not know it, or there is
// no such file. `file` is a path of the tree. Throws CommandError as above.
std::optional<KnownProvider> KnownProviderOf(std::string_view domain, const std::string& file);

// Where the file lies, seen from this program.
std::string KnownServersFile();

// "pop.example.org:995". Nothing when it is not of that form.
std::optional<MailServer> ServerAndPort(std::string_view text);

}  // namespace tarvex::host
