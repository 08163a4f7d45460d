// The page of a forwarding address, with the week in which it gets mail.

#include "console/pages/mailboxes/address.h"

#include <array>

#include "console/pages/fields.h"
#include "console/pages/mailboxes/tries.h"
#include "console/pages/mailboxes/week.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Marked;
using host::Tr;

constexpr Choice kForms[] = {{"whole", Marked("the whole mail")},
                             {"unlimited", Marked("a text mail without limit")},
                             {"128", Marked("a text mail of at most 128 bytes")},
                             {"500", Marked("a text mail of at most 500 bytes")},
                             {"1000", Marked("a text mail of at most 1,000 bytes")},
                             {"5000", Marked("a text mail of at most 5,000 bytes")}};
constexpr Choice kBlanks[] = {
    {"keep", Marked("keep them")}, {"compress", Marked("one in the place of many")}, {"cut", Marked("cut them")}};
constexpr std::array kOptions{
    FormField{"address", Marked("Address")},
    FormField{"nickname", Marked("Name"), Kind::Text, Marked("As you like.")},
    FormField{"textonly", Marked("What it gets"), Kind::Choice, Marked("A text mail is for phones: plain text, cut."),
              kForms},
    FormField{"cutwhite", Marked("Blanks in a text mail"), Kind::Choice, "", kBlanks},
    FormField{"compress_words", Marked("Characters that count as blanks there"), Kind::Text,
              Marked("With a blank between each two.")},
    FormField{"htmltotext", Marked("Make text of an HTML mail, for a text mail"), Kind::Flag},
};

// What the page shows of an address; after a refusal it is what the form brought.
struct Shown {
    std::string title;
    std::optional<WeekDays> week;
    Html terms;
    Fields values, was;
    std::string typed_term = {};
    Html draft = {};               // the field of a form that goes on with what was tried
    std::int64_t newest_held = 0;  // its id; 0 for none
};

Html WeekForm(const Viewer& viewer, const std::string& page, const Shown& shown) {
    if (!shown.week)
        return El("p", {{"class", "message warn"}},
                  {Tr("The times cannot be shown as a week; they are listed below.")});
    return ChangeForm(
        viewer, page + "/week",
        {Hidden("title", shown.title), UsualWeeks(),
         El("p", {{"class", "hint"}},
            {Tr("Mark the half hours in which the address gets mail, then save. What comes at other times "
                "is sent when the time comes, if it is still in the mailbox.")}),
         El("p", {}, {El("button", {{"class", "main"}}, {Tr("Save the times")})}), WeekGrid(*shown.week),
         El("p", {}, {El("button", {{"class", "main"}}, {Tr("Save the times")})})});
}

Html TermRow(const Viewer& viewer, const std::string& page, const Json& term) {
    return El("li", {{"class", "row ends"}},
              {El("span", {}, {TextOf(term, "meaning"), IsTrue(term, "on") ? "" : " (" + Tr("switched off") + ')'}),
               ButtonForm(viewer, page + "/terms/remove", Tr("Remove"), "quiet",
                          {"number", std::to_string(NumberOf(term, "number"))})});
}

Html TermForm(const Viewer& viewer, const std::string& page, const Shown& shown) {
    return ChangeForm(viewer, page + "/terms",
                      {Hidden("title", shown.title),
                       El("label", {{"class", "terms-form"}},
                          {Tr("Add a time"),
                           El("input", {{"name", "terms"},
                                        {"value", shown.typed_term},
                                        {"autocomplete", "off"},
                                        {"autocapitalize", "none"},
                                        {"required", true}}),
                           El("span", {{"class", "hint"}},
                              {Tr("Like \"mon-fri 9:00-17:30\", or \"2026-12-24 18:00 .. 2026-12-26 9:00\".")})}),
                       El("p", {}, {El("button", {}, {Tr("Add")})})});
}

// Shows a message of the mailbox as the options that are typed make it.
Html PreviewButton(const std::string& page, std::int64_t held, const std::string& text) {
    return El("button", {{"formaction", page + "/preview"}, {"name", "held"}, {"value", held}}, {text});
}

Html OptionsForm(const Viewer& viewer, const std::string& page, const Shown& shown) {
    const Html held = shown.newest_held > 0
                          ? PreviewButton(page, shown.newest_held, Tr("Preview with a message that is set aside"))
                          : Html();
    return ChangeForm(viewer, page + "/options",
                      {Hidden("title", shown.title),
                       El("div", {{"class", "stack sheet options"}},
                          {shown.draft, WriteFields(kOptions, viewer, shown.values, shown.was),
                           El("div", {{"class", "row"}},
                              {El("button", {{"class", "main"}}, {Tr("Save the options")}),
                               PreviewButton(page, 0, Tr("Preview with the newest message")), held})})});
}

HttpResponse AddressPageOf(const HttpRequest& request, const Json& answer, const Shown& shown) {
    const Viewer viewer = ViewerOf(answer);
    const std::string page = AddressPage(NameIn(request));
    const std::string profile = NameIn(request).substr(0, NameIn(request).rfind('/'));
    Html content = El("p", {}, {LinkTo(ProfilePage(profile), Tr("Back to the mailbox"))});
    if (shown.week) content += El("p", {}, {Tr("Gets mail: {0}", WeekInWords(*shown.week))});
    content += El("h2", {}, {Tr("Times")});
    content += WeekForm(viewer, page, shown);
    content += El("h2", {}, {Tr("Times one by one, and with dates")});
    content += shown.terms;
    content += TermForm(viewer, page, shown);
    content += El("h2", {}, {Tr("Options")});
    content += OptionsForm(viewer, page, shown);
    content += El("p", {}, {LinkButton(page + "/remove", Tr("Remove the address …"))});
    const bool is_refused = TextOf(answer, "status") == "refused";
    return ShowPage(request, viewer,
                    {shown.title, content, is_refused ? TextOf(answer, "message") : "", is_refused ? 422 : 200});
}

const Json* AddressIn(const HttpRequest& request, const Json& answer) {
    for (const Json& address : ListOf(PartOf(answer, "profile"), "addresses"))
        if (TextOf(address, "path") == NameIn(request)) return &address;
    return nullptr;
}

// After a refusal: only the part of the page that was sent.
HttpResponse RefusedPart(const HttpRequest& request, const Json& answer, const Shown& shown,
                         Html (*part)(const Viewer&, const std::string&, const Shown&)) {
    const Viewer viewer = ViewerOf(answer);
    const std::string page = AddressPage(NameIn(request));
    Html content = part(viewer, page, shown);
    content += El("p", {}, {LinkButton(page, Tr("Cancel"))});
    return ShowPage(request, viewer, {shown.title, content, TextOf(answer, "message"), 422});
}

std::string TitleIn(const HttpRequest& request) {
    const std::string_view title = request.Form("title");
    return title.empty() ? NameIn(request) : std::string(title);
}

Json Change(const HttpRequest& request, const char* kind, const char* verb) {
    return {{"ask", "change"}, {"kind", kind}, {"verb", verb}, {"name", NameIn(request)}};
}

HttpResponse NewAddressPage(const HttpRequest& request, const Json& answer, const Fields& values) {
    const Viewer viewer = ViewerOf(answer);
    const std::string page = ProfilePage(NameIn(request));
    const bool sends_all = request.Form("mail") == "all";
    const auto choice = [](const char* value, bool is_chosen, const std::string& text) {
        return El("label", {{"class", "check"}},
                  {El("input", {{"type", "radio"}, {"name", "mail"}, {"value", value}, {"checked", is_chosen}}),
                   El("span", {}, {text})});
    };
    const Html form = ChangeForm(
        viewer, page + "/addresses",
        {El("fieldset", {{"class", "stack"}},
            {El("legend", {}, {Tr("Forwarding address")}), WriteFields(kOptions, viewer, values, {})}),
         El("fieldset", {{"class", "stack"}},
            {El("legend", {}, {Tr("What is in the mailbox now")}),
             choice("new", !sends_all, Tr("counts as handled: the address gets only what comes from now on")),
             choice("all", sends_all, Tr("is sent too, all of it, with the next run"))}),
         El("div", {{"class", "row actions"}},
            {El("button", {{"class", "main"}}, {Tr("Add")}), LinkButton(page, Tr("Cancel"))})});
    const bool is_refused = TextOf(answer, "status") == "refused";
    return ShowPage(request, viewer,
                    {Tr("New forwarding address"), form, is_refused ? TextOf(answer, "message") : "",
                     is_refused ? 422 : 200, true});
}

}  // namespace

Asked AskAddress(const HttpRequest& request) {
    const std::string name = NameIn(request);
    Json question{{"ask", "profile"}, {"profile", name.substr(0, name.rfind('/'))}};
    AddDraft(request, question);
    return question;
}

HttpResponse ShowAddress(const HttpRequest& request, const Json& answer) {
    const Json* const address = AddressIn(request, answer);
    if (!address) return ErrorPage(request, 404, ViewerOf(answer));
    Shown shown;
    shown.title = TextOf(*address, "address");
    shown.week = WeekIn(ListOf(PartOf(*address, "week"), "days"));
    shown.values = shown.was = ValuesOf(ListOf(*address, "keys"));
    PutDraft(answer, shown.values);
    shown.draft = DraftInForm(request, answer);
    shown.newest_held = NumberOf(PartOf(answer, "profile"), "newest_held");
    Html terms;
    for (const Json& term : ListOf(*address, "schedule"))
        terms += TermRow(ViewerOf(answer), AddressPage(NameIn(request)), term);
    shown.terms = terms.IsEmpty() ? El("p", {}, {Tr("None: the address gets mail always.")})
                                  : El("ul", {{"class", "bare terms"}}, {terms});
    return AddressPageOf(request, answer, shown);
}

Asked AskSetWeek(const HttpRequest& request) {
    Json question{{"ask", "week"}, {"name", NameIn(request)}, {"days", Json::array()}};
    for (const std::string& day : WeekOfForm(request)) question["days"].push_back(day);
    return question;
}

HttpResponse AfterSetWeek(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, AddressPage(NameIn(request)), Tr("The times are saved."));
}

HttpResponse WeekRefused(const HttpRequest& request, const Json& answer) {
    Shown shown;
    shown.title = TitleIn(request);
    shown.week = WeekOfForm(request);
    return RefusedPart(request, answer, shown, WeekForm);
}

Asked AskAddTerm(const HttpRequest& request) {
    Json question = Change(request, "schedule", "add");
    question["terms"] = request.Form("terms");
    return question;
}

Asked AskRemoveTerm(const HttpRequest& request) {
    const std::int64_t number = NumberIn(request.Form("number"), 0);
    if (number < 1) return ErrorPage(request, 400);  // without a number all of them would go
    Json question = Change(request, "schedule", "remove");
    question["term_number"] = number;
    return question;
}

HttpResponse AddTermRefused(const HttpRequest& request, const Json& answer) {
    Shown shown;
    shown.title = TitleIn(request);
    shown.typed_term = request.Form("terms");
    return RefusedPart(request, answer, shown, TermForm);
}

Asked AskSetAddress(const HttpRequest& request) {
    Json question = Change(request, "forward", "set");
    if (!AddChanged(kOptions, request, question))
        return SeeOtherWithNotice(AddressPage(NameIn(request)), Tr("Nothing was changed."));
    return question;
}

Asked AskPreview(const HttpRequest& request) {
    Json question = Change(request, "forward", "set");
    question["ask"] = "try";
    question["held"] = NumberIn(request.Form("held"), 0);
    AddChanged(kOptions, request, question);
    return question;
}

HttpResponse AfterSetAddress(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, AddressPage(NameIn(request)), Tr("The options are saved."));
}

HttpResponse SetAddressRefused(const HttpRequest& request, const Json& answer) {
    Shown shown;
    shown.title = TitleIn(request);
    shown.values = TypedIn(kOptions, request);
    shown.was = ShownBefore(kOptions, request);
    return RefusedPart(request, answer, shown, OptionsForm);
}

Asked AskSwitchAddress(const HttpRequest& request) {
    Json question = Change(request, "forward", "set");
    question["values"]["status"] = request.Form("status");
    return question;
}

HttpResponse AfterSwitchAddress(const HttpRequest& request, const Json& answer) {
    const std::string name = NameIn(request);
    return AfterChange(
        answer, ProfilePage(name.substr(0, name.rfind('/'))),
        request.Form("status") == "on" ? Tr("The address is switched on.") : Tr("The address is switched off."));
}

HttpResponse ShowNewAddress(const HttpRequest& request, const Json& answer) {
    return NewAddressPage(request, answer, {{"textonly", "whole"}, {"cutwhite", "keep"}, {"htmltotext", "on"}});
}

Asked AskAddAddress(const HttpRequest& request) {
    Json question = Change(request, "forward", "add");
    AddChanged(kOptions, request, question);
    question["new_mail_only"] = request.Form("mail") != "all";
    return question;
}

HttpResponse AfterAddAddress(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, ProfilePage(NameIn(request)), TextOf(answer, "printed"));
}

HttpResponse AddAddressRefused(const HttpRequest& request, const Json& answer) {
    return NewAddressPage(request, answer, TypedIn(kOptions, request));
}

}  // namespace tarvex::console
