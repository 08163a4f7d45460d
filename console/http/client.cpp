// Reads out of the headers of a request who sent it.

#include <utility>  // Boost.Asio 1.74 leaves it out

#include "console/http/client.h"

#include <algorithm>
#include <boost/asio/ip/address.hpp>
#include <charconv>
#include <optional>

namespace tarvex::console {
namespace {

namespace ip = boost::asio::ip;

std::string Lowered(std::string_view text) {
    std::string lowered(text);
    for (char& c : lowered)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    return lowered;
}

std::string_view Trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    return text.substr(0, text.find_last_not_of(" \t") + 1);
}

constexpr std::string_view kSecure = "https://";
constexpr std::string_view kClear = "http://";

bool IsThisMachine(std::string_view name) {
    return name == "localhost" || name == "127.0.0.1" || name == "[::1]" || name.ends_with(".localhost");
}

// Whether the origin is that of a page of the host.
bool IsOrigin(std::string_view origin, std::string_view host) {
    const std::string lowered = Lowered(origin);
    const std::string_view whole = lowered;
    if (whole.starts_with(kSecure)) return whole.substr(kSecure.size()) == host;
    return whole.starts_with(kClear) && whole.substr(kClear.size()) == host && IsThisMachine(HostName(host));
}

// How much a language of Accept-Language is wanted: 0 to 1.
double WeightOf(std::string_view parameters) {
    const std::size_t start = parameters.find("q=");
    if (start == std::string_view::npos) return 1;
    double weight = 0;
    const std::string_view number = parameters.substr(start + 2);
    std::from_chars(number.data(), number.data() + number.size(), weight);
    return weight;
}

}  // namespace

std::string PlainAddress(std::string_view text) {
    const std::string address(text);
    const bool is_six = address.find(':') != std::string::npos;
    // Systems understand more: ports, zones, short forms.
    const bool is_plain_text =
        is_six ? address.find_first_not_of("0123456789abcdefABCDEF:.") == std::string::npos
               : address.find_first_not_of("0123456789.") == std::string::npos && std::ranges::count(address, '.') == 3;
    if (!is_plain_text) return {};
    boost::system::error_code error;
    const ip::address parsed = ip::make_address(address, error);
    if (error || parsed.is_v6() != is_six) return {};
    const bool is_plain = parsed.is_v4() || !parsed.to_v6().is_v4_mapped();
    return is_plain ? parsed.to_string() : ip::make_address_v4(ip::v4_mapped, parsed.to_v6()).to_string();
}

std::string ClientAddress(const Fields& headers, std::string_view peer, unsigned trusted_proxies) {
    if (trusted_proxies == 0) return PlainAddress(peer);
    std::vector<std::string_view> addresses;
    for (const Field& header : headers) {
        if (header.name != "x-forwarded-for") continue;
        std::string_view rest = header.value;
        while (true) {
            const std::size_t comma = rest.find(',');
            addresses.push_back(Trimmed(rest.substr(0, comma)));
            if (comma == std::string_view::npos) break;
            rest.remove_prefix(comma + 1);
        }
    }
    if (addresses.size() < trusted_proxies) return {};
    return PlainAddress(addresses[addresses.size() - trusted_proxies]);
}

std::string HostName(std::string_view host) {
    const std::size_t bracket = host.rfind(']');
    const std::size_t colon = host.rfind(':');
    if (colon != std::string_view::npos && (bracket == std::string_view::npos || colon > bracket))
        host = host.substr(0, colon);
    return Lowered(host);
}

bool IsForUs(const Fields& headers, const std::vector<std::string>& names) {
    const auto hosts = AllOf(headers, "host");
    return hosts.size() == 1 && std::ranges::find(names, HostName(hosts.front())) != names.end();
}

bool IsFromOurPage(const Fields& headers) {
    const auto sites = AllOf(headers, "sec-fetch-site");
    const auto origins = AllOf(headers, "origin");
    if (sites.size() + origins.size() == 0 || sites.size() > 1 || origins.size() > 1) return false;
    if (!sites.empty() && sites.front() != "same-origin") return false;
    return origins.empty() || IsOrigin(origins.front(), Lowered(ValueOf(headers, "host")));
}

host::Language PageLanguage(std::string_view cookie, std::string_view accept_language) {
    if (const auto chosen = host::LanguageOfCode(cookie)) return *chosen;
    std::optional<host::Language> best;
    double best_weight = 0;
    while (!accept_language.empty()) {
        const std::string_view entry = accept_language.substr(0, accept_language.find(','));
        accept_language.remove_prefix(std::min(entry.size() + 1, accept_language.size()));
        const std::string_view range = entry.substr(0, entry.find(';'));
        const auto language = host::LanguageOfCode(Lowered(Trimmed(range.substr(0, range.find('-')))));
        const double weight = WeightOf(entry.substr(range.size()));
        if (!language || weight <= best_weight) continue;
        best = language;
        best_weight = weight;
    }
    return best.value_or(host::Language::English);
}

}  // namespace tarvex::console
