// Finds the page of a path.

#include "console/http/router.h"

#include <optional>

namespace tarvex::console {
namespace {

// What stands at the places of a pattern; nothing when the path is another.
std::optional<Fields> PlacesOf(std::string_view pattern, const std::vector<std::string>& segments) {
    Fields places;
    if (pattern == "/") pattern = "";
    for (const std::string& segment : segments) {
        if (pattern.empty()) return std::nullopt;
        pattern.remove_prefix(1);
        const std::string_view part = pattern.substr(0, pattern.find('/'));
        pattern.remove_prefix(part.size());
        if (part.starts_with('{')) {
            places.push_back({std::string(part.substr(1, part.size() - 2)), segment});
        } else if (part != segment) {
            return std::nullopt;
        }
    }
    if (!pattern.empty()) return std::nullopt;
    return places;
}

void Allow(std::string& allowed, std::string_view method) {
    if (allowed.find(method) != std::string::npos) return;
    if (!allowed.empty()) allowed += ", ";
    allowed += method;
    if (method == "GET") allowed += ", HEAD";
}

}  // namespace

Match FindRoute(std::span<const Route> routes, std::string_view method, const std::vector<std::string>& segments) {
    Match match;
    for (const Route& route : routes) {
        auto places = PlacesOf(route.pattern, segments);
        if (!places) continue;
        if (route.method == method) return {&route, *std::move(places), {}};
        Allow(match.allowed, route.method);
    }
    return match;
}

}  // namespace tarvex::console
