// The list of users, and the form for a new one.

#include "console/pages/people/users.h"

#include <array>

#include "console/pages/fields.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Marked;
using host::Tr;

constexpr FormField kName{"loginname", Marked("Login name")};
constexpr FormField kRights{"administrator", Marked("Administrator: may change everything"), Kind::Flag};
constexpr FormField kStatus{"status", Marked("Switched on: may log in, and the mailboxes are run"), Kind::Flag};
constexpr std::array kNew{kName,
                          FormField{"password", Marked("Password"), Kind::Password,
                                    Marked("At least 10 characters; the user can change it.")},
                          kRights};
constexpr std::array kSettings{kName, kRights, kStatus};

Word StateOfUser(const Json& user) {
    if (!IsTrue(user, "loaded")) return {Tr("cannot be read"), "bad"};
    if (!IsTrue(user, "on")) return {Tr("switched off"), ""};
    return IsTrue(user, "has_password") ? Word{Tr("may log in"), "good"} : Word{Tr("has no password"), "warn"};
}

Html Row(const Json& user) {
    return El("tr", {},
              {Cell(Tr("Login name"), LinkTo(PageAbout(TextOf(user, "path")), TextOf(user, "name"))),
               Cell(Tr("State"), Mark(StateOfUser(user))),
               Cell(Tr("Rights"), IsTrue(user, "administrator") ? Tr("administrator") : Tr("own mailboxes")),
               Cell(Tr("Mailboxes"), NumberOf(user, "profiles")),
               El("td", {}, {LinkButton(PageAbout(TextOf(user, "path")) + "/profiles", Tr("Add a mailbox"))})});
}

Html NewUserForm(const Viewer& viewer, const Fields& values) {
    return ChangeForm(
        viewer, "/users",
        {El("div", {{"class", "stack sheet options"}},
            {WriteFields(kNew, viewer, values, {}), El("button", {{"class", "main"}}, {Tr("Add the user")})})});
}

}  // namespace

Asked AskUsers(const HttpRequest&) { return Json{{"ask", "users"}}; }

HttpResponse ShowUsers(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    Html rows;
    for (const Json& user : ListOf(answer, "users")) rows += Row(user);
    Html content = El("table", {{"class", "cards"}},
                      {TableHead({Tr("Login name"), Tr("State"), Tr("Rights"), Tr("Mailboxes"), Tr("Action")}),
                       El("tbody", {}, {rows})});
    content += El("h2", {}, {Tr("New user")});
    content += NewUserForm(viewer, {});
    return ShowPage(request, viewer, {Tr("Users"), content});
}

Asked AskAddUser(const HttpRequest& request) {
    Json question{{"ask", "change"}, {"kind", "user"}, {"verb", "add"}, {"name", ""}};
    AddChanged(kNew, request, question);
    return question;
}

HttpResponse AfterAddUser(const HttpRequest&, const Json& answer) {
    return AfterChange(answer, "/users", TextOf(answer, "printed"));
}

HttpResponse AddUserRefused(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    Html content = NewUserForm(viewer, TypedIn(kNew, request));
    content += El("p", {}, {LinkButton("/users", Tr("Cancel"))});
    return ShowPage(request, viewer, {Tr("New user"), content, TextOf(answer, "message"), 422});
}

Asked AskSetUser(const HttpRequest& request) {
    Json question{{"ask", "change"}, {"kind", "user"}, {"verb", "set"}, {"name", NameIn(request)}};
    if (!AddChanged(kSettings, request, question))
        return SeeOtherWithNotice(PageAbout(NameIn(request)), Tr("Nothing was changed."));
    return question;
}

HttpResponse AfterSetUser(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, PageAbout(NameIn(request)), Tr("The user's rights are saved."));
}

HttpResponse SetUserRefused(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    const std::string page = PageAbout(NameIn(request));
    Html content = UserForm(viewer, page, TypedIn(kSettings, request), ShownBefore(kSettings, request));
    content += El("p", {}, {LinkButton(page, Tr("Cancel"))});
    return ShowPage(request, viewer, {Tr("Rights"), content, TextOf(answer, "message"), 422});
}

Html UserForm(const Viewer& viewer, const std::string& page, const Fields& values, const Fields& was) {
    return ChangeForm(viewer, page + "/rights",
                      {El("div", {{"class", "stack sheet options"}},
                          {WriteFields(kSettings, viewer, values, was),
                           El("button", {{"class", "main"}}, {Tr("Save the rights")})})});
}

}  // namespace tarvex::console
