// Makes sense of the command line.

#include "console/options.h"

#include "console/http/client.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/process.h"

namespace tarvex::console {
namespace {

using host::CommandError;
using host::Tr;

constexpr const char* kDeskInRoot = "/.tarvex/console.sock";

// An address as it stands in a URL.
std::string InUrl(const std::string& address) {
    return address.find(':') == std::string::npos ? address : '[' + address + ']';
}

bool IsAnyAddress(const std::string& address) { return address == "0.0.0.0" || address == "::"; }

// This machine's own, and what the operator has named.
std::vector<std::string> NamesOf(const TypedOptions& typed, const Place& place) {
    std::vector<std::string> names{"localhost", "127.0.0.1", "[::1]"};
    if (const std::string name = HostName(host::MachineName()); !name.empty()) names.push_back(name);
    if (!place.address.empty() && !IsAnyAddress(place.address)) names.push_back(InUrl(place.address));
    for (const std::string& host : typed.hosts) names.push_back(HostName(host));
    return names;
}

std::string DeskOf(const TypedOptions& typed) {
    if (typed.desk && typed.root) throw CommandError(host::kBadUsage, Tr("--root and --desk exclude each other"));
    if (typed.desk) return *typed.desk;
    return typed.root ? *typed.root + kDeskInRoot : Usual().desk;
}

void RequireSafety(const TypedOptions& typed, const Place& place) {
    if (typed.certificate.empty() != typed.key.empty())
        throw CommandError(host::kBadUsage, Tr("--certificate and --key belong together"));
    if (typed.certificate.empty() && !IsLocalPlace(place))
        throw CommandError(host::kBadUsage,
                           Tr("others could read passwords on the way to {0}: give --certificate and --key, or listen "
                              "at 127.0.0.1 or a Unix socket behind a reverse proxy",
                              place.address));
}

}  // namespace

Options Understand(const TypedOptions& typed) {
    Options options;
    const Place place = PlaceOf(typed.listen);
    RequireSafety(typed, place);
    options.server = {place, typed.group, DeskOf(typed), typed.certificate, typed.key};
    options.site.names = NamesOf(typed, place);
    // Only a proxy connects to the Unix socket.
    options.site.trusted_proxies = typed.trusted_proxies.value_or(place.path.empty() ? 0 : 1);
    options.site.is_encrypted = !typed.certificate.empty();
    return options;
}

std::string FirstPage(const Options& options, int port) {
    const Place& place = options.server.place;
    if (!place.path.empty()) return {};
    const std::string scheme = options.site.is_encrypted ? "https://" : "http://";
    const std::string name = IsLocalPlace(place) ? "localhost" : InUrl(place.address);
    return scheme + name + ':' + std::to_string(port) + '/';
}

}  // namespace tarvex::console
