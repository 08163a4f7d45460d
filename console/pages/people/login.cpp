// Logs a user in and out, and keeps the language that was chosen.

#include "console/pages/people/login.h"

#include "console/http/cookies.h"
#include "console/http/url_text.h"
#include "console/pages/frame.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;

constexpr long kYear_s = 365 * 24 * 60 * 60;

struct LoginForm {
    std::string_view name;
    std::string_view next;
    bool asks_for_code = false;
    std::string error;
    int status = 200;
};

Html CodeField() {
    return El("label", {},
              {Tr("Code of the authenticator app"), El("input", {{"name", "code"},
                                                                 {"inputmode", "numeric"},
                                                                 {"autocomplete", "one-time-code"},
                                                                 {"maxlength", 10},
                                                                 {"autofocus", true}})});
}

HttpResponse LoginPage(const HttpRequest& request, const LoginForm& form) {
    const Html fields =
        El("form", {{"method", "post"}, {"action", "/login"}, {"class", "stack"}},
           {El("input", {{"type", "hidden"}, {"name", "next"}, {"value", form.next}}),
            El("label", {},
               {Tr("Login name"), El("input", {{"name", "name"},
                                               {"value", form.name},
                                               {"autocomplete", "username"},
                                               {"autocapitalize", "none"},
                                               {"spellcheck", "false"},
                                               {"required", true},
                                               {"autofocus", form.name.empty()}})}),
            El("label", {},
               {Tr("Password"), El("input", {{"type", "password"},
                                             {"name", "password"},
                                             {"autocomplete", "current-password"},
                                             {"required", true},
                                             {"autofocus", !form.name.empty() && !form.asks_for_code}})}),
            form.asks_for_code ? CodeField() : Html(), El("button", {{"class", "main"}}, {Tr("Log in")})});
    return ShowPage(request, {}, {Tr("Log in"), fields, form.error, form.status, true});
}

}  // namespace

Asked ShowLogin(const HttpRequest& request) {
    const bool is_lost = request.Query("lost") == "1";
    return LoginPage(request, {.name = {},
                               .next = request.Query("next"),
                               .asks_for_code = false,
                               .error = is_lost ? Tr("Your session has ended. The change was not made: log in and make "
                                                     "it again.")
                                                : "",
                               .status = 200});
}

Asked AskLogin(const HttpRequest& request) {
    return Json{{"ask", "login"},
                {"name", request.Form("name")},
                {"password", request.Form("password")},
                {"code", request.Form("code")}};
}

HttpResponse AfterLogin(const HttpRequest& request, const Json&) { return SeeOther(request.Form("next")); }

HttpResponse LoginRefused(const HttpRequest& request, const Json& answer) {
    return LoginPage(request, {.name = request.Form("name"),
                               .next = request.Form("next"),
                               .asks_for_code = IsTrue(answer, "code"),
                               .error = TextOf(answer, "message"),
                               .status = 422});
}

Asked AskLogout(const HttpRequest&) { return Json{{"ask", "logout"}}; }

HttpResponse AfterLogout(const HttpRequest&, const Json&) {
    HttpResponse response = SeeOtherWithNotice("/login", Tr("You are logged out."));
    response.headers.push_back(ForgetCookie(kSessionCookie));
    return response;
}

Asked ChooseLanguage(const HttpRequest& request) {
    HttpResponse response = SeeOther(request.Form("next"));
    if (const auto language = host::LanguageOfCode(request.Form("language")))
        response.headers.push_back(KeepCookieFor(kLanguageCookie, host::LanguageCode(*language), kYear_s));
    return response;
}

HttpResponse LoginFirst(const HttpRequest& request) {
    if (request.method != "GET") return SeeOther("/login?lost=1");
    if (request.target == "/") return SeeOther("/login");
    return SeeOther("/login?next=" + EncodeEscapes(request.target));
}

}  // namespace tarvex::console
