// Reads where the console is to listen.

#include "console/place.h"

#include <charconv>
#include <string_view>

#include "console/http/client.h"
#include "console/log.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"

namespace tarvex::console {
namespace {

using host::CommandError;
using host::Tr;

constexpr std::string_view kUnixStart = "unix:";
constexpr int kHighestPort = 65535;

CommandError BadPlace(const std::string& text) {
    return {host::kBadUsage,
            Tr("\"{0}\" is not a place to listen at: unix:PATH, ADDRESS:PORT or [ADDRESS]:PORT", Printable(text))};
}

}  // namespace

Place PlaceOf(const std::string& text) {
    if (text.starts_with(kUnixStart)) {
        Place place{text.substr(kUnixStart.size()), {}};
        if (place.path.empty()) throw BadPlace(text);
        return place;
    }
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) throw BadPlace(text);
    Place place{{}, text.substr(0, colon)};
    if (place.address.starts_with('[') && place.address.ends_with(']'))
        place.address = place.address.substr(1, place.address.size() - 2);
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + colon + 1, end, place.port);
    if (error != std::errc() || rest != end || place.port < 0 || place.port > kHighestPort ||
        PlainAddress(place.address).empty())
        throw BadPlace(text);
    return place;
}

bool IsLocalPlace(const Place& place) {
    return !place.path.empty() || place.address == "::1" || place.address.starts_with("127.");
}

}  // namespace tarvex::console
