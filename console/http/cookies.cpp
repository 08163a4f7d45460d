// Reads and writes the headers of cookies.

#include "console/http/cookies.h"

#include <algorithm>
#include <set>

#include "console/http/url_text.h"

namespace tarvex::console {
namespace {

constexpr std::string_view kProtected = "; Path=/; Secure; HttpOnly; SameSite=Strict";
constexpr std::size_t kMostCookies = 50;

std::string_view Trimmed(std::string_view text) {
    const std::size_t start = std::min(text.find_first_not_of(" \t"), text.size());
    text.remove_prefix(start);
    return text.substr(0, text.find_last_not_of(" \t") + 1);
}

Field SetCookie(std::string_view name, std::string_view value, std::string_view more) {
    std::string header = std::string(name) + '=' + EncodeEscapes(value);
    return {"Set-Cookie", header.append(kProtected).append(more)};
}

void AddCookies(std::string_view header, Fields& cookies) {
    while (!header.empty() && cookies.size() < kMostCookies) {
        const std::string_view pair = header.substr(0, header.find(';'));
        header.remove_prefix(std::min(pair.size() + 1, header.size()));
        const std::size_t equals = pair.find('=');
        if (equals == std::string_view::npos) continue;
        cookies.push_back(
            {std::string(Trimmed(pair.substr(0, equals))), std::string(Trimmed(pair.substr(equals + 1)))});
    }
}

}  // namespace

Fields ParseCookies(const Fields& headers) {
    Fields cookies;
    for (const Field& header : headers)
        if (header.name == "cookie") AddCookies(header.value, cookies);
    std::multiset<std::string> names;
    for (const Field& cookie : cookies) names.insert(cookie.name);
    std::erase_if(cookies, [&](const Field& cookie) { return names.count(cookie.name) > 1; });
    return cookies;
}

Field KeepCookie(std::string_view name, std::string_view value) { return SetCookie(name, value, ""); }

Field KeepCookieFor(std::string_view name, std::string_view value, long seconds) {
    return SetCookie(name, value, "; Max-Age=" + std::to_string(seconds));
}

Field ForgetCookie(std::string_view name) { return SetCookie(name, "", "; Max-Age=0"); }

}  // namespace tarvex::console
