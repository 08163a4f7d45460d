#pragma once

// Finds the servers of a mail domain. In this order, the first that can be used wins:
//
//     1. the file of known providers     it comes with the package; what DNS says anybody on the way may have written
//     2. SRV records                     _pop3s and _pop3 (RFC 6186), _submissions (RFC 8314) and _submission; those
//     with
//                                        TLS from the first byte before those with an upgrade
//     3. the usual names                 pop., pop3. and mail. with 995, smtp. and mail. with 465, then 587
//
// "Can be used" means that TLS stands with a certificate for that very name. No password is sent meanwhile.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/dns/lookup.h"
#include "host/setup/known_servers.h"
#include "host/setup/server_look.h"

namespace tarvex::host {

enum class FoundBy { KnownServers, Dns, UsualName };

struct FoundServer {
    MailServer server;
    FoundBy by = FoundBy::UsualName;
    ServerLook look;
    // DNS alone names a server of another domain, for which its certificate is no proof that the mail domain means it
    // (RFC 6186 section 6): a person has to say so.
    bool is_foreign = false;
};

struct Discovery {
    std::optional<FoundServer> found;
    std::vector<std::string> tried;  // a line for each server that cannot be used, and for a DNS that fails: why
    std::string not_offered;         // who says that there is no such service; empty when nobody does
};

// What a search asks of the world. The looks of one step are taken at once, on threads of their own.
struct SearchTools {
    std::function<ServiceAnswer(const std::string& name)> services;  // LookUpServices
    std::function<ServerLook(CProtocol protocol, const MailServer& server)> look;
};

Discovery FindServer(CProtocol protocol, const std::string& domain, const std::optional<KnownProvider>& known,
                     const SearchTools& tools);

// "pop.example.org port 995"
std::string ShowServer(const MailServer& server);

}  // namespace tarvex::host
