// The form for the shared SMTP server.

#include "console/pages/rules/servers.h"

#include <array>

#include "console/http/url_text.h"
#include "console/pages/fields.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Marked;
using host::Tr;

constexpr std::array kAccount{
    FormField{"smtpserver", Marked("SMTP server"), Kind::Text, Marked("Empty: each mailbox's own POP3 server.")},
    FormField{"smtpport", Marked("SMTP port"), Kind::Number},
    FormField{"sslsmtp", Marked("SMTP encryption"), Kind::Choice, "", kSmtpTlsChoices},
    FormField{"esmtp", Marked("Greet with EHLO"), Kind::Flag},
    FormField{"smtpauth", Marked("Log in to the SMTP server"), Kind::Flag},
    FormField{"smtpauth_mode", Marked("How to log in"), Kind::Choice, "", kSmtpMethodChoices},
    FormField{"smtpuser", Marked("SMTP user name"), Kind::Text, Marked("Empty: each mailbox's own of POP3.")},
    FormField{"smtppassword", Marked("SMTP password"), Kind::Password,
              Marked("It is never shown. Left empty, it stays as it is.")},
};

std::string PageOf(std::string_view name) { return name.empty() ? "/servers" : "/servers?name=" + EncodeEscapes(name); }

HttpResponse ServersPage(const HttpRequest& request, const Json& answer, std::string_view name, const Fields& values,
                         const Fields& was) {
    const Viewer viewer = ViewerOf(answer);
    Html content;
    if (!name.empty())
        content += El("p", {}, {LinkTo(PageAbout(name), name), " · ", LinkTo("/servers", Tr("Servers of the tree"))});
    content += El("p", {},
                  {name.empty() ? Tr("For all mailboxes that name no SMTP server of their own.")
                                : Tr("For the mailboxes of this user that name no SMTP server of their own. "
                                     "What is saved here holds in the place of the tree's.")});
    content +=
        ChangeForm(viewer, "/servers",
                   {Hidden("name", name),
                    El("div", {{"class", "stack"}},
                       {WriteFields(kAccount, viewer, values, was),
                        El("div", {{"class", "row actions"}},
                           {El("button", {{"class", "main"}}, {Tr("Save")}), LinkButton("/rules", Tr("Cancel"))})})});
    const bool is_refused = TextOf(answer, "status") == "refused";
    return ShowPage(
        request, viewer,
        {Tr("Default servers"), content, is_refused ? TextOf(answer, "message") : "", is_refused ? 422 : 200, true});
}

}  // namespace

HttpResponse ShowServers(const HttpRequest& request, const Json& answer) {
    const Fields values = ValuesOf(ListOf(answer, "keys"));
    return ServersPage(request, answer, request.Query("name"), values, values);
}

Asked AskSetServers(const HttpRequest& request) {
    Json question{{"ask", "change"}, {"kind", "rules"}, {"verb", "set"}, {"name", request.Form("name")}};
    if (!AddChangedAccount(kAccount, request, question))
        return SeeOtherWithNotice(PageOf(request.Form("name")), Tr("Nothing was changed."));
    return question;
}

HttpResponse AfterSetServers(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, PageOf(request.Form("name")), Tr("The servers are saved."));
}

HttpResponse ServersRefused(const HttpRequest& request, const Json& answer) {
    return ServersPage(request, answer, request.Form("name"), TypedIn(kAccount, request),
                       ShownBefore(kAccount, request));
}

}  // namespace tarvex::console
