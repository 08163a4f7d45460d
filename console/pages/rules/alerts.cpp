// Alerts: a sheet for each who is told, and the form for who is.

#include "console/pages/rules/alerts.h"

#include <array>

#include "console/http/url_text.h"
#include "console/pages/fields.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Marked;
using host::Tr;

constexpr Choice kLanguages[] = {{"en", "English"}, {"ja", "日本語"}};
constexpr std::array kReaders{
    FormField{"alert_to", Marked("Addresses that are told"), Kind::Text,
              Marked("Up to 20, with commas between them. none: nobody, whatever the tree says.")},
    FormField{"alert_after", Marked("After so many failed runs in a row"), Kind::Number},
    FormField{"alert_hours", Marked("Or after so many hours of failing"), Kind::Number},
    FormField{"alert_language", Marked("In which language"), Kind::Choice, "", kLanguages},
    FormField{"alert_from", Marked("Sender (From)"), Kind::Text,
              Marked("Empty: the mailbox whose server is used, or the first who is told.")},
};
constexpr std::array kAccount{
    FormField{"alert_server", Marked("SMTP server for alerts"), Kind::Text,
              Marked("Name one: else nobody hears that the one server of the mailboxes is down.")},
    FormField{"alert_port", Marked("SMTP port"), Kind::Number},
    FormField{"alert_tls", Marked("SMTP encryption"), Kind::Choice, "", kSmtpTlsChoices},
    FormField{"alert_user", Marked("SMTP user name"), Kind::Text, Marked("Empty: no login.")},
    FormField{"alert_password", Marked("SMTP password"), Kind::Password,
              Marked("It is never shown. Left empty, it stays as it is.")},
};

std::string PageOf(std::string_view name) { return name.empty() ? "/alerts" : "/alerts?name=" + EncodeEscapes(name); }

Html Open(const Json& reader) {
    Html list;
    for (const Json& open : ListOf(reader, "open")) {
        const std::string name = TextOf(open, "name");
        const std::string since = TextOf(open, "since");
        list += El("li", {},
                   {name.empty() ? Html() : LinkTo(PageAbout(name), name), name.empty() ? "" : ": ",
                    TextOf(open, "matter"), since.empty() ? "" : ", " + Tr("since {0}", since)});
    }
    return list.IsEmpty() ? Text(Tr("Nothing: all is well, or not told yet.")) : El("ul", {}, {list});
}

Html Trouble(const Json& reader) {
    const Json& trouble = PartOf(reader, "trouble");
    if (trouble.empty()) return {};
    const std::string words = TextOf(trouble, "words");
    return El("p", {{"class", "message bad"}},
              {Tr("What should be told does not go out since {0}; it is tried again at {1}.", TextOf(trouble, "since"),
                  TextOf(trouble, "next")),
               words.empty() ? "" : " " + words});
}

Html Sheet(const Json& reader) {
    const std::string name = TextOf(reader, "name");
    const std::string through = TextOf(reader, "through");
    const std::string last = TextOf(reader, "last");
    Html facts;
    if (!through.empty()) facts += Fact(Tr("Through"), through);
    if (!name.empty()) facts += Fact(Tr("Last told"), last.empty() ? Tr("nothing yet") : last);
    facts += Fact(Tr("Was told, and is still so"), Open(reader));
    return El("section", {{"class", "sheet address"}},
              {El("h2", {}, {name.empty() ? Tr("Those whom the administrators have named") : name}), Trouble(reader),
               El("dl", {{"class", "facts"}}, {facts})});
}

Html Sheets(const Json& answer) {
    Html sheets;
    for (const Json& reader : ListOf(answer, "readers")) sheets += Sheet(reader);
    if (sheets.IsEmpty()) return El("p", {{"class", "message warn"}}, {Tr("Nobody is told when forwarding fails.")});
    return El("div", {{"class", "addresses"}}, {sheets});
}

// A user's readers are tested by each of the mailboxes.
bool CanBeTested(const Json& answer, std::string_view name) {
    return !ListOf(answer, "readers").empty() && (name.empty() || name.find('/') != std::string_view::npos);
}

Html SettingsForm(const Viewer& viewer, std::string_view name, const Fields& values, const Fields& was) {
    return ChangeForm(viewer, "/alerts",
                      {Hidden("name", name),
                       El("div", {{"class", "stack sheet options"}},
                          {WriteFields(kReaders, viewer, values, was), WriteFields(kAccount, viewer, values, was),
                           El("p", {{"class", "hint"}},
                              {Tr("A program that is told too (alert_command) is named on the machine itself.")}),
                           El("button", {{"class", "main"}}, {Tr("Save")})})});
}

}  // namespace

Asked AskAlerts(const HttpRequest& request) { return Json{{"ask", "alerts"}, {"name", request.Query("name")}}; }

HttpResponse ShowAlerts(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    const std::string name = TextOf(answer, "name");
    Html content;
    if (!name.empty()) content += El("p", {}, {LinkTo(PageAbout(name), name), " · ", LinkTo("/alerts", Tr("All"))});
    content +=
        El("p", {}, {Tr("By mail, when forwarding fails or mail waits for somebody, and when it is good again.")});
    const std::string trouble = TextOf(answer, "trouble");
    if (!trouble.empty()) content += El("p", {{"class", "message bad"}}, {trouble});
    content += Sheets(answer);
    if (viewer.is_administrator) {
        if (CanBeTested(answer, name))
            content += ButtonForm(viewer, "/alerts/test", Tr("Send a test to all of them"), "", {"name", name});
        const Fields values = ValuesOf(ListOf(answer, "keys"));
        content += El("h2", {}, {Tr("Settings")});
        content += SettingsForm(viewer, name, values, values);
    }
    return ShowPage(request, viewer, {Tr("Alerts"), content});
}

Asked AskSetAlerts(const HttpRequest& request) {
    Json question{{"ask", "change"}, {"kind", "rules"}, {"verb", "set"}, {"name", request.Form("name")}};
    const bool is_any = AddChanged(kReaders, request, question);
    if (!AddChangedAccount(kAccount, request, question) && !is_any)
        return SeeOtherWithNotice(PageOf(request.Form("name")), Tr("Nothing was changed."));
    return question;
}

HttpResponse AfterSetAlerts(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, PageOf(request.Form("name")), Tr("The settings are saved."));
}

HttpResponse AlertsRefused(const HttpRequest& request, const Json& answer) {
    Fields values = TypedIn(kReaders, request);
    for (Field& field : TypedIn(kAccount, request)) values.push_back(std::move(field));
    Fields was = ShownBefore(kReaders, request);
    for (Field& field : ShownBefore(kAccount, request)) was.push_back(std::move(field));
    const Viewer viewer = ViewerOf(answer);
    Html content = SettingsForm(viewer, request.Form("name"), values, was);
    content += El("p", {}, {LinkButton(PageOf(request.Form("name")), Tr("Cancel"))});
    return ShowPage(request, viewer, {Tr("Alerts"), content, TextOf(answer, "message"), 422});
}

Asked AskTestAlert(const HttpRequest& request) { return Json{{"ask", "test-alert"}, {"name", request.Form("name")}}; }

HttpResponse AfterTestAlert(const HttpRequest&, const Json& answer) {
    return SeeOther("/jobs/" + EncodeEscapes(TextOf(answer, "job")));
}

}  // namespace tarvex::console
