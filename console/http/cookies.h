#pragma once

// The console's cookies. Their names begin with __Host-: a browser takes such a cookie only from the host itself, over
// TLS (or from this machine), for the whole of it; no other host of the same domain can plant one.

#include <string>
#include <string_view>

#include "console/http/fields.h"

namespace tarvex::console {

inline constexpr std::string_view kSessionCookie = "__Host-session";    // the token of who is logged in
inline constexpr std::string_view kLanguageCookie = "__Host-language";  // "en" or "ja"
inline constexpr std::string_view kNoticeCookie = "__Host-notice";      // what the next page has to say

// What the headers Cookie hold. A name that comes twice is left out altogether, since one of both was planted.
Fields ParseCookies(const Fields& headers);

// The header that keeps a cookie until the browser is closed, for so long (in seconds), or forgets it. Values are
// written with escapes; ParseCookies gives them as they were sent.
Field KeepCookie(std::string_view name, std::string_view value);
Field KeepCookieFor(std::string_view name, std::string_view value, long seconds);
Field ForgetCookie(std::string_view name);

}  // namespace tarvex::console
