#pragma once

// Who sent a request: the client's address, the page that it came from, its language.

#include <string>
#include <string_view>
#include <vector>

#include "console/http/fields.h"
#include "host/language/language.h"

namespace tarvex::console {

// An IP address in its usual form; an IPv4 address that IPv6 carries as IPv4. Empty for what is no address.
std::string PlainAddress(std::string_view text);

// The client's address when so many proxies stand before the console, each of which writes the address of its own peer
// behind the others in X-Forwarded-For: what the client wrote there itself is never believed. Without a proxy, the
// peer. Empty when a proxy did not tell.
std::string ClientAddress(const Fields& headers, std::string_view peer, unsigned trusted_proxies);

// The name in a header Host or in an origin, in lower case and without its port: "[::1]" keeps its brackets.
std::string HostName(std::string_view host);

// Whether the request has one header Host, and its name is in the list (lower case).
bool IsForUs(const Fields& headers, const std::vector<std::string>& names);

// Whether a page of the console itself sent this form, as Sec-Fetch-Site and Origin say, of which at least one must be
// there. Without TLS only pages of this machine count: elsewhere somebody on the way could have made the page.
bool IsFromOurPage(const Fields& headers);

// The language of the pages: the one that was chosen, or else the first of Accept-Language that there is.
host::Language PageLanguage(std::string_view cookie, std::string_view accept_language);

}  // namespace tarvex::console
