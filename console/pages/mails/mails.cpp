// Shows what became of messages, and the history of runs and changes.

#include "console/pages/mails/mails.h"

#include "console/http/url_text.h"
#include "console/pages/mails/mail.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;

Html Copies(const Json& mail) {
    Html copies;
    for (const Json& copy : ListOf(mail, "copies")) {
        const std::string words = TextOf(copy, "words");
        copies += El("li", {},
                     {TextOf(copy, "address"), " ", Mark({TextOf(copy, "says"), ToneOf(TextOf(copy, "fate"))}),
                      words.empty() ? Html() : El("span", {{"class", "below muted"}}, {words})});
    }
    return El("ul", {{"class", "bare"}}, {copies});
}

Html MailRow(const Json& mail) {
    const std::string subject = TextOf(mail, "subject");
    return El("tr", {},
              {TimeCell(Tr("Fetched"), MomentOf(mail, "fetched")),
               Cell(Tr("Message"),
                    El("span", {},
                       {LinkTo(MailPage(TextOf(mail, "message")), subject.empty() ? Tr("(no subject)") : subject),
                        El("span", {{"class", "below muted"}}, {TextOf(mail, "from")})})),
               Cell(Tr("What became of it"), Copies(mail))});
}

Html SearchForm(const HttpRequest& request) {
    return El("form", {{"method", "get"}, {"action", "/mails"}, {"class", "row search"}, {"role", "search"}},
              {El("label", {},
                  {Tr("Words of subject, sender or address"),
                   El("input", {{"type", "search"}, {"name", "search"}, {"value", request.Query("search")}})}),
               Hidden("profile", request.Query("profile")), El("button", {}, {Tr("Search")})});
}

Html ChangedKeys(const Json& event) {
    Html keys;
    for (const Json& key : ListOf(event, "keys")) {
        const std::string before = TextOf(key, "before");
        keys += El("li", {},
                   {El("code", {}, {TextOf(key, "key")}), ": ", before.empty() ? Html() : El("del", {}, {before}),
                    before.empty() ? "" : " → ", TextOf(key, "after")});
    }
    return keys.IsEmpty() ? Html() : El("ul", {{"class", "bare"}}, {keys});
}

// As people call it; with the path where keys of it were changed.
Html About(const Json& event, bool is_run) {
    const std::string name = TextOf(event, "name"), title = TextOf(event, "title");
    if (name.empty()) return Text(Tr("the tree"));
    Html about = LinkTo(PageAbout(name), title);
    if (!is_run && title != name) about += El("span", {{"class", "below muted"}}, {name});
    return El("span", {}, {about});
}

Html EventRow(const Json& event) {
    const bool is_run = TextOf(event, "kind") == "run";
    Html what = is_run ? Mark({Tr("run"), IsTrue(event, "failed") ? "bad" : "good"})
                       : El("code", {}, {TextOf(event, "command")});
    what += Text(" ");
    what += is_run ? Text(TextOf(event, "ended")) : ChangedKeys(event);
    return El(
        "tr", {},
        {TimeCell(Tr("When"), TextOf(event, "time")), Cell(Tr("By"), is_run ? Tr("the service") : TextOf(event, "by")),
         Cell(Tr("About"), About(event, is_run)), Cell(Tr("What"), what)});
}

}  // namespace

const char* ToneOf(const std::string& fate) {
    if (fate == "sent" || fate == "had-already") return "good";
    return fate == "waits" ? "" : "warn";
}

Html MailTable(const Json& mails) {
    if (mails.empty()) return El("p", {}, {Tr("No messages.")});
    Html rows;
    for (const Json& mail : mails) rows += MailRow(mail);
    return El("table", {{"class", "cards"}},
              {TableHead({Tr("Fetched"), Tr("Message"), Tr("What became of it")}), El("tbody", {}, {rows})});
}

Asked AskMails(const HttpRequest& request) {
    return Json{{"ask", "mails"}, {"search", request.Query("search")}, {"profile", request.Query("profile")}};
}

HttpResponse ShowMails(const HttpRequest& request, const Json& answer) {
    Html content = SearchForm(request);
    if (const std::string_view profile = request.Query("profile"); !profile.empty())
        content += El("p", {{"class", "row"}},
                      {LinkTo(PageAbout(profile), TextOf(answer, "title")), LinkTo("/mails", Tr("All mailboxes"))});
    content += MailTable(ListOf(answer, "mails"));
    if (IsTrue(answer, "more"))
        content += El("p", {{"class", "muted"}}, {Tr("Only the newest are shown: search for the others.")});
    return ShowPage(request, ViewerOf(answer), {Tr("Messages"), content});
}

Asked AskHistory(const HttpRequest& request) { return Json{{"ask", "history"}, {"name", request.Query("name")}}; }

HttpResponse ShowHistory(const HttpRequest& request, const Json& answer) {
    const std::string name = TextOf(answer, "name");
    Html content = name.empty() ? El("p", {}, {Tr("Who changed what, and how each run ended; the newest first.")})
                                : El("p", {}, {LinkTo(PageAbout(name), TextOf(answer, "title"))});
    Html rows;
    for (const Json& event : ListOf(answer, "events")) rows += EventRow(event);
    content += rows.IsEmpty()
                   ? El("p", {}, {Tr("Nothing yet.")})
                   : El("table", {{"class", "cards"}},
                        {TableHead({Tr("When"), Tr("By"), Tr("About"), Tr("What")}), El("tbody", {}, {rows})});
    return ShowPage(request, ViewerOf(answer), {Tr("Runs and changes"), content});
}

}  // namespace tarvex::console
