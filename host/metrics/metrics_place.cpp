// Where figures are served: on this machine alone.

#include <charconv>

#include "host/language/tr.h"
#include "host/metrics/metrics_sockets.h"
#include "host/system/display.h"

namespace tarvex::host {

CommandError CannotListen(const std::string& place, const std::string& why) {
    return {kCannotMake, Tr("cannot serve metrics on \"{0}\": {1}", ShowUtf8Text(place), why)};
}

CommandError BadPlace(const std::string& place) {
    return {kBadUsage, Tr("metrics are served on this machine alone: \"{0}\" is not unix:PATH, 127.0.0.1:PORT or "
                          "[::1]:PORT",
                          ShowUtf8Text(place))};
}

std::string LoopbackPlace::Url() const { return "http://" + host + ':' + std::to_string(port) + "/metrics"; }

LoopbackPlace ReadLoopbackPlace(const std::string& place) {
    const std::size_t colon = place.rfind(':');
    if (colon == std::string::npos) throw BadPlace(place);
    LoopbackPlace read{place.substr(0, colon)};
    const char* const end = place.data() + place.size();
    const auto [stopped, error] = std::from_chars(place.data() + colon + 1, end, read.port);
    const bool is_port = error == std::errc() && stopped == end;
    if (!is_port || (!read.IsSix() && read.host != "127.0.0.1")) throw BadPlace(place);
    return read;
}

}  // namespace tarvex::host
