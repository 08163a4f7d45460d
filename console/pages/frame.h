#pragma once

// What all pages have in common: the head with the navigation, the languages and who is logged in; messages; errors.

#include <span>
#include <string>
#include <string_view>

#include "console/http/html.h"
#include "console/http/message.h"
#include "console/http/router.h"

namespace tarvex::console {

// Who looks at a page, as the desk's answers say.
struct Viewer {
    std::string name;  // the login name; empty for nobody
    std::string path;  // "user0"
    bool is_administrator = false;
    std::string token;  // for the forms
};

Viewer ViewerOf(const Json& answer);

// A way to a part of the console that stands in the head of each page.
struct NavigationEntry {
    const char* path;
    const char* text;  // Marked
    Audience audience;
};
std::span<const NavigationEntry> Navigation();

struct Page {
    std::string title;  // also the heading
    Html content;
    std::string error = {};  // what went wrong, above the content
    int status = 200;
    bool is_narrow = false;  // a form or a message of its own
};

// The whole page. The notice that a change has left shows above the content, once.
HttpResponse ShowPage(const HttpRequest& request, const Viewer& viewer, const Page& page);

// A page that says what is wrong with a request, in the request's language, and what can be done. The sentence of the
// desk stands in the place of the usual one, if there is one.
HttpResponse ErrorPage(const HttpRequest& request, int status, const Viewer& viewer = {},
                       std::string_view message = {});

// To another page after a change, which says there what has been done.
HttpResponse SeeOtherWithNotice(std::string_view path, std::string_view notice);

// A form that makes a change: POST, with the viewer's token.
Html ChangeForm(const Viewer& viewer, std::string_view action, std::initializer_list<Node> content);

}  // namespace tarvex::console
