// The page of the one-time link.

#include "console/pages/people/first.h"

#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;

HttpResponse FirstPage(const HttpRequest& request, std::string_view code, std::string_view name,
                       const std::string& error) {
    Html content = El("p", {}, {Tr("Make yourself an administrator of this installation. The link works once.")});
    content +=
        El("form", {{"method", "post"}, {"action", "/first"}, {"class", "stack"}},
           {Hidden("code", code),
            El("label", {},
               {Tr("Login name"), El("input", {{"name", "name"},
                                               {"value", name},
                                               {"autocomplete", "username"},
                                               {"autocapitalize", "none"},
                                               {"spellcheck", "false"},
                                               {"required", true}})}),
            El("label", {},
               {Tr("Password"),
                El("input",
                   {{"type", "password"}, {"name", "password"}, {"autocomplete", "new-password"}, {"required", true}}),
                El("span", {{"class", "hint"}}, {Tr("At least 10 characters.")})}),
            El("button", {{"class", "main"}}, {Tr("Begin")})});
    return ShowPage(request, {}, {Tr("Welcome"), content, error, error.empty() ? 200 : 422, true});
}

}  // namespace

Asked ShowFirst(const HttpRequest& request) { return FirstPage(request, request.Query("code"), "", ""); }

Asked AskFirst(const HttpRequest& request) {
    return Json{{"ask", "first-login"},
                {"name", request.Form("name")},
                {"password", request.Form("password")},
                {"code", request.Form("code")}};
}

HttpResponse AfterFirst(const HttpRequest&, const Json&) {
    return SeeOtherWithNotice("/", Tr("Welcome. You are an administrator now."));
}

HttpResponse FirstRefused(const HttpRequest& request, const Json& answer) {
    return FirstPage(request, request.Form("code"), request.Form("name"), TextOf(answer, "message"));
}

}  // namespace tarvex::console
