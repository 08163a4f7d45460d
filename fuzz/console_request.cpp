// Requests to the web console: none leads out of it, and each place of a route holds a part of the path.

#include <algorithm>

#include "console/http/client.h"
#include "console/http/cookies.h"
#include "console/http/html.h"
#include "console/http/message.h"
#include "console/http/router.h"
#include "console/http/url_text.h"
#include "fuzz/fuzz.h"

using namespace tarvex;
using namespace tarvex::console;

namespace {

Asked AskNothing(const HttpRequest&) { return HttpResponse{}; }

constexpr Route kRoutes[] = {
    {"GET", "/", Audience::User, AskNothing},
    {"GET", "/users/new", Audience::User, AskNothing},
    {"GET", "/users/{user}", Audience::User, AskNothing},
    {"POST", "/users/{user}/profiles/{profile}/run", Audience::User, AskNothing},
};

// Method, target, headers (a line each), an empty line, body.
RawRequest ReadRequest(fuzz::Input input) {
    RawRequest raw;
    raw.method = input.Line();
    raw.target = input.Line();
    while (true) {
        const std::string_view line = input.Line();
        if (line.empty()) break;
        const std::size_t colon = std::min(line.find(':'), line.size());
        raw.headers.push_back(
            {std::string(line.substr(0, colon)), std::string(line.substr(std::min(colon + 1, line.size())))});
    }
    raw.body = input.Rest();
    return raw;
}

void TryRoutes(const HttpRequest& request) {
    const Match match = FindRoute(kRoutes, request.method, request.segments);
    fuzz::Require(match.route || match.places.empty(), "no places without a route");
    for (const Field& place : match.places) {
        const bool is_segment = std::ranges::find(request.segments, place.value) != request.segments.end();
        fuzz::Require(is_segment && IsText(place.value), "a place holds a part of the path");
        fuzz::Require(place.value.find('/') == std::string::npos && place.value != "..", "a part stays a part");
    }
}

void TryHeaders(const RawRequest& raw, const HttpRequest& request) {
    for (const unsigned proxies : {0U, 1U, 3U}) {
        const std::string address = ClientAddress(raw.headers, "127.0.0.1", proxies);
        fuzz::Require(address.empty() || PlainAddress(address) == address, "an address is one");
    }
    (void)IsForUs(raw.headers, {"localhost"});
    (void)IsFromOurPage(raw.headers);
    (void)PageLanguage(request.Cookie(kLanguageCookie), request.Header("accept-language"));
}

void TryAnswer(const HttpRequest& request) {
    const std::string next(request.Query("next"));
    const std::string head = HeadOf(SeeOther(next), true, "now");
    fuzz::Require(std::ranges::count(head, '\n') == 5, "a head has the lines that it was given");
    fuzz::Require(head.find("Location: //") == std::string::npos, "no way leads out of the console");
    const std::string html = El("a", {{"href", next}}, {request.Form("x")}).Bytes();
    fuzz::Require(std::ranges::count(html, '<') == 2 && std::ranges::count(html, '"') == 2, "text stays text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const RawRequest raw = ReadRequest(fuzz::Input(data, size));
    HttpRequest request;
    const auto refusal = Understand(raw, request);
    TryHeaders(raw, request);
    if (refusal) return 0;
    TryRoutes(request);
    TryAnswer(request);
    return 0;
}
