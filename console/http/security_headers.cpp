// Adds the headers that keep pages private and foreign content out.

#include "console/http/security_headers.h"

namespace tarvex::console {
namespace {

constexpr const char* kPolicy =
    "default-src 'none'; style-src 'self'; script-src 'self'; img-src 'self'; connect-src 'self'; "
    "form-action 'self'; frame-ancestors 'none'; base-uri 'none'";

constexpr const char* kTwoYears = "max-age=63072000";

}  // namespace

void AddSecurityHeaders(HttpResponse& response, bool is_encrypted) {
    Fields& headers = response.headers;
    headers.push_back({"Content-Security-Policy", kPolicy});
    headers.push_back({"X-Content-Type-Options", "nosniff"});
    // With "no-referrer" browsers would send forms with the origin "null", as foreign pages do.
    headers.push_back({"Referrer-Policy", "same-origin"});
    headers.push_back({"Cross-Origin-Opener-Policy", "same-origin"});
    headers.push_back({"Cross-Origin-Resource-Policy", "same-origin"});
    headers.push_back({"X-Robots-Tag", "noindex"});
    if (!Find(headers, "Cache-Control")) headers.push_back({"Cache-Control", "no-store"});
    if (is_encrypted) headers.push_back({"Strict-Transport-Security", kTwoYears});
}

}  // namespace tarvex::console
