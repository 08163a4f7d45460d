// Forms of a mailbox's settings. A user who is no administrator may change few of them, and no server.

#include "console/pages/mailboxes/settings.h"

#include <array>

#include "console/http/url_text.h"
#include "console/pages/fields.h"
#include "console/pages/mailboxes/tries.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Marked;
using host::Tr;

constexpr Choice kPopTls[] = {{"off", Marked("none")},
                              {"tls", Marked("TLS from the first byte")},
                              {"starttls", Marked("STARTTLS, or no connection")}};
constexpr bool kForAdministrators = true;

constexpr FormField kAddress{"address",  Marked("Address of the mailbox"),
                             Kind::Text, Marked("Also the sender of what is forwarded."),
                             {},         kForAdministrators};
constexpr FormField kNickname{"nickname", Marked("Name"), Kind::Text, Marked("As you like.")};
constexpr FormField kPopServer{"popserver", Marked("POP3 server"), Kind::Text, "", {}, kForAdministrators};
constexpr FormField kPopPort{"popport", Marked("POP3 port"), Kind::Number, "", {}, kForAdministrators};
constexpr FormField kPopUser{"popuser", Marked("POP3 user name"), Kind::Text, "", {}, kForAdministrators};
constexpr FormField kPopPassword{"poppassword", Marked("POP3 password"), Kind::Password,
                                 Marked("It is never shown. Left empty, it stays as it is.")};
constexpr FormField kSmtpServer{"smtpserver", Marked("SMTP server"),
                                Kind::Text,   Marked("Empty: that of the user or of the tree, else the POP3 server."),
                                {},           kForAdministrators};
constexpr FormField kSmtpPort{"smtpport", Marked("SMTP port"), Kind::Number, "", {}, kForAdministrators};
constexpr FormField kSmtpTls{"sslsmtp", Marked("SMTP encryption"), Kind::Choice,
                             "",        kSmtpTlsChoices,           kForAdministrators};
constexpr FormField kSmtpAuth{"smtpauth", Marked("Log in to the SMTP server"), Kind::Flag, "", {}, kForAdministrators};

constexpr std::array kGeneral{
    kAddress,
    kNickname,
    FormField{"timer",
              Marked("Minutes between two runs"),
              Kind::Number,
              Marked("always: each time it is looked."),
              {},
              kForAdministrators},
    FormField{"timeout",
              Marked("Patience with a server for each step, in seconds"),
              Kind::Number,
              "",
              {},
              kForAdministrators},
    FormField{"logmode", Marked("Write a log"), Kind::Flag, "", {}, kForAdministrators},
};
constexpr std::array kFetching{
    kPopServer,
    kPopPort,
    kPopUser,
    kPopPassword,
    FormField{"apop", Marked("Log in with APOP when the server offers it"), Kind::Flag, "", {}, kForAdministrators},
    FormField{"deletemail", Marked("Delete mail on the POP3 server once every address has it"), Kind::Flag},
};
constexpr std::array kSending{
    kSmtpServer,
    kSmtpPort,
    kSmtpTls,
    FormField{"esmtp", Marked("Greet with EHLO"), Kind::Flag, "", {}, kForAdministrators},
    kSmtpAuth,
    FormField{"smtpauth_mode", Marked("How to log in"), Kind::Choice, "", kSmtpMethodChoices, kForAdministrators},
    FormField{"smtpuser", Marked("SMTP user name"), Kind::Text, Marked("Empty: that of POP3."), {}, kForAdministrators},
    FormField{"smtppassword", Marked("SMTP password"), Kind::Password,
              Marked("It is never shown. Left empty, it stays as it is.")},
    FormField{"replacefrom", Marked("Write this mailbox as the sender (From)"), Kind::Flag},
    FormField{"replaceto", Marked("Write the forwarding address as the recipient (To)"), Kind::Flag},
};

constexpr std::array kNew{kAddress,     kNickname,   kPopServer, kPopPort, kPopUser,
                          kPopPassword, kSmtpServer, kSmtpPort,  kSmtpTls, kSmtpAuth};
constexpr FormField kNewPopTls{"pop_tls", Marked("POP3 encryption"), Kind::Choice, "", kPopTls, kForAdministrators};

struct Group {
    const char* title;
    std::span<const FormField> fields;
};
constexpr std::array kGroups{Group{Marked("Mailbox"), kGeneral}, Group{Marked("Fetching (POP3)"), kFetching},
                             Group{Marked("Sending (SMTP)"), kSending}};

Html Fieldset(const char* title, const Html& fields) {
    return El("fieldset", {{"class", "stack"}}, {El("legend", {}, {Tr(title)}), fields});
}

// Beside the button that saves: what was typed is tried, and not saved.
Html CheckButton(const std::string& action) {
    return El("button", {{"formaction", action}}, {Tr("Check the servers first")});
}

Html SettingsForm(const HttpRequest& request, const Json& answer, const Fields& values, const Fields& was) {
    const Viewer viewer = ViewerOf(answer);
    Html groups = DraftInForm(request, answer);
    for (const Group& group : kGroups) groups += Fieldset(group.title, WriteFields(group.fields, viewer, values, was));
    const std::string page = ProfilePage(NameIn(request));
    return ChangeForm(viewer, page + "/settings",
                      {groups, El("div", {{"class", "row actions"}},
                                  {El("button", {{"class", "main"}}, {Tr("Save")}),
                                   CheckButton(page + "/settings/check"), LinkButton(page, Tr("Cancel"))})});
}

// Where else something of a mailbox is set.
Html Beside(const HttpRequest& request, const Viewer& viewer) {
    if (!viewer.is_administrator) return {};
    return El("p", {{"class", "row ends"}},
              {LinkTo("/rules?name=" + EncodeEscapes(NameIn(request)),
                      Tr("Rules of this mailbox: encryption of POP3, limits, tokens")),
               LinkTo("/alerts?name=" + EncodeEscapes(NameIn(request)), Tr("Alerts")),
               LinkButton(ProfilePage(NameIn(request)) + "/remove", Tr("Remove the mailbox …"))});
}

HttpResponse SettingsPage(const HttpRequest& request, const Json& answer, const Fields& values, const Fields& was) {
    const Viewer viewer = ViewerOf(answer);
    Html content = SettingsForm(request, answer, values, was);
    content += Beside(request, viewer);
    const bool is_refused = TextOf(answer, "status") == "refused";
    return ShowPage(
        request, viewer,
        {Tr("Settings"), content, is_refused ? TextOf(answer, "message") : "", is_refused ? 422 : 200, true});
}

// What was changed in the form.
Json Typed(const HttpRequest& request, const char* ask) {
    Json question{{"ask", ask}, {"kind", "profile"}, {"verb", "set"}, {"name", NameIn(request)}};
    for (const Group& group : kGroups) AddChanged(group.fields, request, question);
    AddDraft(request, question);
    return question;
}

Json TypedNew(const HttpRequest& request, const char* ask) {
    Json question{{"ask", ask}, {"kind", "profile"}, {"verb", "add"}, {"name", NameIn(request)}};
    AddChanged(kNew, request, question);
    question["values"]["status"] = request.Form("on") == "on" ? "on" : "off";
    if (request.Form("pop_tls") != "off") question["rules"]["pop_tls"] = request.Form("pop_tls");
    AddDraft(request, question);
    return question;
}

HttpResponse NewProfilePage(const HttpRequest& request, const Json& answer, const Fields& values) {
    const Viewer viewer = ViewerOf(answer);
    const std::string page = PageAbout(NameIn(request));
    Html fields = DraftInForm(request, answer);
    fields += WriteFields(kNew, viewer, values, {});
    fields += WriteFields(std::span(&kNewPopTls, 1), viewer, values, {});
    fields +=
        El("label", {{"class", "check"}},
           {El("input",
               {{"type", "checkbox"}, {"name", "on"}, {"value", "on"}, {"checked", ValueOf(values, "status") == "on"}}),
            El("span", {}, {Tr("Switch it on at once")})});
    Html content;
    const std::string shared = TextOf(answer, "shared");
    if (!shared.empty())
        content += El("p", {}, {Tr("Without an SMTP server of its own it sends through {0}, as others do.", shared)});
    content += ChangeForm(viewer, page + "/profiles",
                          {Fieldset(Marked("Mailbox"), fields),
                           El("div", {{"class", "row actions"}},
                              {El("button", {{"class", "main"}}, {Tr("Add")}), CheckButton(page + "/profiles/check"),
                               LinkButton(page, Tr("Cancel"))})});
    const bool is_refused = TextOf(answer, "status") == "refused";
    return ShowPage(
        request, viewer,
        {Tr("New mailbox"), content, is_refused ? TextOf(answer, "message") : "", is_refused ? 422 : 200, true});
}

}  // namespace

Asked AskSettings(const HttpRequest& request) {
    Json question{{"ask", "profile"}, {"profile", NameIn(request)}};
    AddDraft(request, question);
    return question;
}

HttpResponse ShowSettings(const HttpRequest& request, const Json& answer) {
    const Fields was = ValuesOf(ListOf(PartOf(answer, "profile"), "keys"));
    Fields values = was;
    PutDraft(answer, values);
    return SettingsPage(request, answer, values, was);
}

Asked AskSetSettings(const HttpRequest& request) {
    Json question = Typed(request, "change");
    if (!question.contains("values") && !question.contains("secrets") && !question.contains("draft"))
        return SeeOtherWithNotice(ProfilePage(NameIn(request)), Tr("Nothing was changed."));
    return question;
}

Asked AskTrySettings(const HttpRequest& request) { return Typed(request, "try"); }

HttpResponse AfterSetSettings(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, ProfilePage(NameIn(request)), Tr("The settings are saved."));
}

HttpResponse SettingsRefused(const HttpRequest& request, const Json& answer) {
    Fields values, was;
    for (const Group& group : kGroups) {
        for (Field& field : TypedIn(group.fields, request)) values.push_back(std::move(field));
        for (Field& field : ShownBefore(group.fields, request)) was.push_back(std::move(field));
    }
    return SettingsPage(request, answer, values, was);
}

Asked AskNewProfile(const HttpRequest& request) {
    Json question{{"ask", "new-profile"}, {"name", NameIn(request)}};
    AddDraft(request, question);
    return question;
}

HttpResponse ShowNewProfile(const HttpRequest& request, const Json& answer) {
    Fields values{{"popport", "110"}, {"smtpport", "25"}, {"sslsmtp", "plain"}, {"pop_tls", "off"}};
    PutDraft(answer, values);
    return NewProfilePage(request, answer, values);
}

Asked AskAddProfile(const HttpRequest& request) { return TypedNew(request, "change"); }

Asked AskTryNewProfile(const HttpRequest& request) { return TypedNew(request, "try"); }

HttpResponse AfterAddProfile(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, PageAbout(NameIn(request)), TextOf(answer, "printed"));
}

HttpResponse AddProfileRefused(const HttpRequest& request, const Json& answer) {
    Fields values = TypedIn(kNew, request);
    values.push_back({"pop_tls", std::string(request.Form("pop_tls"))});
    values.push_back({"status", std::string(request.Form("on"))});
    return NewProfilePage(request, answer, values);
}

}  // namespace tarvex::console
