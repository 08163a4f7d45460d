// The page of an account.

#include "console/pages/people/account.h"

#include "console/http/client.h"
#include "console/pages/parts.h"
#include "console/pages/people/qr_picture.h"
#include "console/pages/people/users.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;

// "/account", or that of the user whom the path names.
std::string PageOf(const HttpRequest& request) {
    return request.Place("user").empty() ? "/account" : PageAbout(NameIn(request));
}

bool IsOwn(const HttpRequest& request) { return request.Place("user").empty(); }

Html PasswordField(const char* name, const std::string& label, const char* completes, const std::string& hint = {}) {
    return El(
        "label", {},
        {label, El("input", {{"type", "password"}, {"name", name}, {"autocomplete", completes}, {"required", true}}),
         hint.empty() ? Html() : El("span", {{"class", "hint"}}, {hint})});
}

Html PasswordForm(const HttpRequest& request, const Viewer& viewer) {
    const bool is_own = IsOwn(request);
    return ChangeForm(viewer, PageOf(request) + "/password",
                      {El("div", {{"class", "stack sheet options"}},
                          {is_own ? PasswordField("old", Tr("Old password"), "current-password") : Html(),
                           PasswordField("password", Tr("New password"), "new-password",
                                         is_own ? Tr("At least 10 characters. Your other sessions end.")
                                                : Tr("At least 10 characters. All sessions of the user end.")),
                           El("button", {{"class", "main"}}, {Tr("Set the password")})})});
}

Html Sessions(const HttpRequest& request, const Viewer& viewer, const Json& answer) {
    const std::string action = PageOf(request) + "/sessions/end";
    Html rows;
    for (const Json& session : ListOf(answer, "sessions")) {
        const Html end = IsTrue(session, "this")
                             ? Mark({Tr("this one"), "good"})
                             : ButtonForm(viewer, action, Tr("End it"), "quiet", {"id", TextOf(session, "id")});
        rows +=
            El("tr", {},
               {TimeCell(Tr("Began"), MomentOf(session, "began")), TimeCell(Tr("Last used"), MomentOf(session, "used")),
                Cell(Tr("From"), TextOf(session, "address")), El("td", {}, {end})});
    }
    if (rows.IsEmpty()) return El("p", {}, {Tr("None.")});
    Html html = El("table", {{"class", "cards"}},
                   {TableHead({Tr("Began"), Tr("Last used"), Tr("From"), Tr("Action")}), El("tbody", {}, {rows})});
    const bool has_others = ListOf(answer, "sessions").size() > (IsOwn(request) ? 1 : 0);
    if (has_others)
        html += ButtonForm(viewer, action, IsOwn(request) ? Tr("End all others") : Tr("End all"), "", {"id", "others"});
    return html;
}

Html CodeField(const std::string& label) {
    return El("label", {},
              {label, El("input", {{"name", "code"},
                                   {"inputmode", "numeric"},
                                   {"autocomplete", "one-time-code"},
                                   {"maxlength", 10},
                                   {"required", true}})});
}

Html RemoveCodeForm(const HttpRequest& request, const Viewer& viewer) {
    return ChangeForm(viewer, PageOf(request) + "/code/remove",
                      {El("div", {{"class", "stack sheet options"}},
                          {IsOwn(request) ? CodeField(Tr("Code of the authenticator app")) : Html(),
                           El("button", {{"class", "danger"}}, {Tr("Log in without an authenticator")})})});
}

Html Authenticator(const HttpRequest& request, const Viewer& viewer, const Json& account) {
    if (IsTrue(account, "has_code")) {
        Html html = El("p", {}, {Tr("A login asks for a code of the authenticator app.")});
        return html += RemoveCodeForm(request, viewer);
    }
    Html html = El("p", {}, {Tr("A login asks for the password alone.")});
    if (IsOwn(request)) html += ButtonForm(viewer, "/account/code", Tr("Set up an authenticator app"));
    return html;
}

Html Rights(const HttpRequest& request, const Viewer& viewer, const Json& account) {
    const auto on_off = [&](const char* name) { return std::string(IsTrue(account, name) ? "on" : "off"); };
    const Fields values{
        {"loginname", TextOf(account, "name")}, {"administrator", on_off("administrator")}, {"status", on_off("on")}};
    Html html = El("p", {{"class", "row"}},
                   {LinkButton(PageOf(request) + "/profiles", Tr("Add a mailbox")),
                    LinkTo("/history?name=" + NameIn(request), Tr("Runs and changes")),
                    LinkTo("/rules?name=" + NameIn(request), Tr("Rules of this user")),
                    LinkTo("/servers?name=" + NameIn(request), Tr("Default servers")),
                    LinkTo("/alerts?name=" + NameIn(request), Tr("Alerts"))});
    html += El("h2", {}, {Tr("Rights")});
    html += UserForm(viewer, PageOf(request), values, values);
    return html += El("p", {}, {LinkButton(PageOf(request) + "/remove", Tr("Remove the user …"))});
}

HttpResponse Refused(const HttpRequest& request, const Json& answer, const std::string& title, Html form) {
    form += El("p", {}, {LinkButton(PageOf(request), Tr("Cancel"))});
    return ShowPage(request, ViewerOf(answer), {title, form, TextOf(answer, "message"), 422, true});
}

Html NewCode(const Viewer& viewer, std::string_view secret, std::string_view link) {
    Html html = El("p", {}, {Tr("Let the authenticator app take this picture:")});
    html += El("p", {}, {QrPicture(link, Tr("The key as a picture; it stands below as text"))});
    html += El("p", {}, {Tr("Or type this key into it (time-based, 6 digits):")});
    html += El("p", {}, {El("code", {{"class", "key"}}, {secret})});
    html += El("p", {{"class", "hint"}}, {Tr("As an address:"), " ", El("code", {}, {link})});
    return html += ChangeForm(viewer, "/account/code/set",
                              {Hidden("secret", secret), Hidden("link", link),
                               El("div", {{"class", "stack"}},
                                  {CodeField(Tr("Code that it shows now")),
                                   El("button", {{"class", "main"}}, {Tr("Log in with it from now on")})})});
}

}  // namespace

Asked AskAccount(const HttpRequest& request) { return Json{{"ask", "account"}, {"account", NameIn(request)}}; }

HttpResponse ShowAccount(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    const Json& account = PartOf(answer, "account");
    Html content;
    if (!IsOwn(request)) content += Rights(request, viewer, account);
    content += El("h2", {}, {Tr("Password")});
    content += PasswordForm(request, viewer);
    content += El("h2", {}, {Tr("Sessions")});
    content += Sessions(request, viewer, answer);
    content += El("h2", {}, {Tr("Authenticator")});
    content += Authenticator(request, viewer, account);
    return ShowPage(request, viewer, {IsOwn(request) ? Tr("Your account") : TextOf(account, "name"), content});
}

Asked AskSetPassword(const HttpRequest& request) {
    return Json{{"ask", "set-password"},
                {"account", NameIn(request)},
                {"old", request.Form("old")},
                {"password", request.Form("password")}};
}

HttpResponse AfterSetPassword(const HttpRequest& request, const Json&) {
    return SeeOtherWithNotice(PageOf(request), Tr("The password is set."));
}

HttpResponse PasswordRefused(const HttpRequest& request, const Json& answer) {
    return Refused(request, answer, Tr("Password"), PasswordForm(request, ViewerOf(answer)));
}

Asked AskEndSession(const HttpRequest& request) {
    return Json{{"ask", "end-session"}, {"account", NameIn(request)}, {"id", request.Form("id")}};
}

HttpResponse AfterEndSession(const HttpRequest& request, const Json&) {
    return SeeOtherWithNotice(PageOf(request), Tr("The session has ended."));
}

Asked AskBeginCode(const HttpRequest& request) {
    return Json{{"ask", "begin-code"}, {"place", HostName(request.Header("host"))}};
}

HttpResponse ShowBegunCode(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    const Html content = NewCode(viewer, TextOf(answer, "secret"), TextOf(answer, "link"));
    return ShowPage(request, viewer, {Tr("Authenticator"), content, "", 200, true});
}

Asked AskSetCode(const HttpRequest& request) {
    if (request.Form("secret").empty()) return ErrorPage(request, 400);  // that would take the old one away
    return Json{{"ask", "set-code"}, {"secret", request.Form("secret")}, {"code", request.Form("code")}};
}

HttpResponse AfterSetCode(const HttpRequest&, const Json&) {
    return SeeOtherWithNotice("/account", Tr("From now on a login asks for a code."));
}

HttpResponse CodeRefused(const HttpRequest& request, const Json& answer) {
    const std::string_view secret = request.Form("secret");
    if (!secret.empty())
        return Refused(request, answer, Tr("Authenticator"), NewCode(ViewerOf(answer), secret, request.Form("link")));
    return Refused(request, answer, Tr("Authenticator"), RemoveCodeForm(request, ViewerOf(answer)));
}

Asked AskRemoveCode(const HttpRequest& request) {
    return Json{{"ask", "set-code"}, {"account", NameIn(request)}, {"secret", ""}, {"code", request.Form("code")}};
}

HttpResponse AfterRemoveCode(const HttpRequest& request, const Json&) {
    return SeeOtherWithNotice(PageOf(request), Tr("A login asks for the password alone now."));
}

}  // namespace tarvex::console
