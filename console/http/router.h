#pragma once

// Which page a path is.

#include <span>
#include <string>
#include <variant>
#include <vector>

#include "console/http/json.h"
#include "console/http/message.h"

namespace tarvex::console {

// Whom a page is for. The desk decides; this says what to expect, and what to offer.
enum class Audience { Anybody, User, Administrator };

// A question for the desk, or the answer at once.
using Asked = std::variant<Json, HttpResponse>;

// A page, or a change that a form of one makes. It puts one question to the desk and is rendered out of the answer; or
// it answers at once.
struct Route {
    using Ask = Asked (*)(const HttpRequest&);
    using Render = HttpResponse (*)(const HttpRequest&, const Json& answer);

    const char* method;   // "GET" or "POST"
    const char* pattern;  // "/users/{user}/profiles": a place takes one part of a path
    Audience audience;
    Ask ask;
    Render render = nullptr;  // of an answer "ok" or "working" (a job goes on); none when `ask` always answers itself
    Render render_refusal = nullptr;  // of an answer "refused"; none for the page that shows its message
};

struct Match {
    const Route* route = nullptr;  // none: no such page, or not with that method
    Fields places;
    std::string allowed;  // the methods that the path has; empty when there is no such page
};

Match FindRoute(std::span<const Route> routes, std::string_view method, const std::vector<std::string>& segments);

}  // namespace tarvex::console
