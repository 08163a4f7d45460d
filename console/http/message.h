#pragma once

// What a browser asks and what it is answered, as plain values.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "console/http/fields.h"
#include "host/language/language.h"

namespace tarvex::console {

// A request as it came in. The names of headers are in lower case.
struct RawRequest {
    std::string method;
    std::string target;
    Fields headers;
    std::string body;
    std::string peer;  // the address at the other end of the connection; empty for a Unix socket
};

// A request that was understood.
struct HttpRequest {
    std::string method;                 // HEAD comes as GET: only the server knows the difference
    std::string path;                   // as it was sent: printable ASCII, beginning with a slash
    std::string target;                 // the path with its query, likewise
    std::vector<std::string> segments;  // the path's parts between the slashes, as text
    Fields query;
    Fields headers;
    Fields form;  // empty for GET
    Fields cookies;
    std::string address;  // of the client, behind trusted proxies; empty when it is not known
    host::Language language = host::Language::English;
    Fields places;  // what stands at the places of the route: "user" for "/users/{user}"

    std::string_view Query(std::string_view name) const { return ValueOf(query, name); }
    std::string_view Header(std::string_view name) const { return ValueOf(headers, name); }
    std::string_view Form(std::string_view name) const { return ValueOf(form, name); }
    std::string_view Cookie(std::string_view name) const { return ValueOf(cookies, name); }
    std::string_view Place(std::string_view name) const { return ValueOf(places, name); }
};

struct HttpResponse {
    int status = 200;
    Fields headers;  // beside those that every answer has
    std::string body;
};

// The status of a request that cannot be understood.
struct Refusal {
    int status;
};

// A request out of its bytes: the target is a path with or without a query, the form's escapes are right, all of it is
// UTF-8. Leaves out what needs to be known besides (address, language, places).
[[nodiscard]] std::optional<Refusal> Understand(const RawRequest& raw, HttpRequest& request);

// The parts of a path between its slashes, as text; nothing when it does not begin with a slash, an escape is wrong, or
// a part is empty, "." or "..", or has a slash or a control character in it. "/" has none.
std::optional<std::vector<std::string>> SegmentsOf(std::string_view path);

// To another page of the console; a path that is not local leads to "/".
HttpResponse SeeOther(std::string_view path);

// Whether the path stays in the console wherever it is used as a link: one slash, no backslash, printable ASCII.
bool IsLocal(std::string_view path);

// The head of an answer up to and with the empty line. Control characters are left out of the headers.
std::string HeadOf(const HttpResponse& response, bool keeps_connection, std::string_view date);

// The moment (seconds since 1970) as the header Date has it.
std::string HttpDate(long long now_s);

}  // namespace tarvex::console
