// Shows mail that is set aside. A stranger wrote it: it is shown as text alone.

#include "console/pages/held.h"

#include "console/http/base64.h"
#include "console/http/url_text.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;
using host::TrN;

std::string HeldPage(std::string_view profile, std::int64_t id) {
    return "/held" + ProfilePage(profile).substr(std::string_view("/profiles").size()) + '/' + std::to_string(id);
}

std::int64_t IdIn(const HttpRequest& request) { return NumberIn(request.Place("id"), -1); }

std::string WhyOf(const std::string& kind) {
    if (kind == "report") return Tr("a delivery report about an address of this mailbox");
    if (kind == "loop") return Tr("it came back from where it was sent");
    return Tr("the server refused it");
}

// For whom it waits, and what the server said.
Html Waiting(const Json& mail) {
    Html waiting;
    if (const std::string damage = TextOf(mail, "damage"); !damage.empty())
        waiting += El("li", {}, {Tr("It cannot be read: {0}", damage)});
    for (const Json& one : ListOf(mail, "addresses")) {
        const std::string next = TextOf(one, "next");
        waiting += El("li", {},
                      {El("b", {}, {TextOf(one, "address")}), El("span", {{"class", "below"}}, {TextOf(one, "reply")}),
                       El("span", {{"class", "below muted"}},
                          {TrN("tried {0} time", "tried {0} times", NumberOf(one, "tries")),
                           next.empty() ? "" : " · " + Tr("next try: {0}", next)})});
    }
    return El("ul", {{"class", "bare"}}, {waiting});
}

Html Row(const Viewer& viewer, const Json& mail) {
    const std::string profile = TextOf(mail, "profile");
    const std::string page = HeldPage(profile, NumberOf(mail, "id"));
    return El("tr", {},
              {TimeCell(Tr("Set aside"), TextOf(mail, "when")),
               Cell(Tr("Mailbox"), LinkTo(ProfilePage(profile), TextOf(mail, "account"))),
               Cell(Tr("Why"), WhyOf(TextOf(mail, "kind"))), Cell(Tr("For whom"), Waiting(mail)),
               Cell(Tr("Size"), TextOf(mail, "size")),
               El("td", {},
                  {El("div", {{"class", "row"}},
                      {LinkButton(page, Tr("Read")), ButtonForm(viewer, page + "/send", Tr("Send"))})})});
}

Html Message(const Json& answer) {
    const Json& mail = PartOf(answer, "mail");
    const std::string profile = TextOf(mail, "profile");
    Html facts = Fact(Tr("Sender"), TextOf(answer, "from"));
    facts += Fact(Tr("Mailbox"), LinkTo(ProfilePage(profile), profile));
    facts += Fact(Tr("Set aside"), TextOf(mail, "when"));
    facts += Fact(Tr("Size"), TextOf(mail, "size"));
    facts += Fact(Tr("Why"), WhyOf(TextOf(mail, "kind")));
    facts += Fact(Tr("For whom"), Waiting(mail));
    return El("dl", {{"class", "facts sheet"}}, {facts});
}

std::string TitleOf(const Json& answer) {
    const std::string subject = TextOf(answer, "subject");
    return subject.empty() ? Tr("(no subject)") : subject;
}

Json Change(const HttpRequest& request, const char* verb) {
    return {
        {"ask", "held-change"}, {"profile", NameIn(request)}, {"verb", verb}, {"ids", {std::to_string(IdIn(request))}}};
}

std::string ListPage(const HttpRequest& request) { return "/held?profile=" + EncodeEscapes(NameIn(request)); }

}  // namespace

Asked AskHeld(const HttpRequest& request) {
    return Json{{"ask", "held"}, {"profile", request.Query("profile")}, {"page", NumberIn(request.Query("page"), 1)}};
}

HttpResponse ShowHeld(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    Html content = El("p", {}, {Tr("What a server refused for good waits here until it is sent or dropped.")});
    if (const std::string_view profile = request.Query("profile"); !profile.empty())
        content +=
            El("p", {{"class", "row"}}, {LinkTo(PageAbout(profile), profile), LinkTo("/held", Tr("All mailboxes"))});
    Html rows;
    for (const Json& mail : ListOf(answer, "held")) rows += Row(viewer, mail);
    content +=
        rows.IsEmpty()
            ? El("p", {}, {Tr("No message is set aside.")})
            : El("table", {{"class", "cards"}},
                 {TableHead({Tr("Set aside"), Tr("Mailbox"), Tr("Why"), Tr("For whom"), Tr("Size"), Tr("Action")}),
                  El("tbody", {}, {rows})});
    content += Pager(answer, "/held?profile=" + EncodeEscapes(request.Query("profile")) + "&page=");
    return ShowPage(request, viewer, {Tr("Held mail"), content});
}

Asked AskHeldMail(const HttpRequest& request) {
    return Json{{"ask", "held-mail"}, {"profile", NameIn(request)}, {"id", IdIn(request)}};
}

HttpResponse ShowHeldMail(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    const std::string page = HeldPage(NameIn(request), IdIn(request));
    Html content = El("div", {{"class", "row actions"}},
                      {ButtonForm(viewer, page + "/send", Tr("Send"), "main"), LinkButton(page + "/drop", Tr("Drop …")),
                       LinkButton(page + "/message.eml", Tr("Save as a file")),
                       LinkButton(ListPage(request), Tr("Back to the list"))});
    content += Message(answer);
    content += El("h2", {}, {Tr("Text")});
    content += El("pre", {{"tabindex", 0}, {"role", "region"}, {"aria-label", Tr("Text")}}, {TextOf(answer, "text")});
    content += El("h2", {}, {Tr("Header")});
    content +=
        El("pre", {{"tabindex", 0}, {"role", "region"}, {"aria-label", Tr("Header")}}, {TextOf(answer, "header")});
    return ShowPage(request, viewer, {TitleOf(answer), content});
}

Asked AskHeldFile(const HttpRequest& request) {
    return Json{{"ask", "held-mail"}, {"profile", NameIn(request)}, {"id", IdIn(request)}, {"whole", true}};
}

// To be kept as a file: a browser shows nothing of it.
HttpResponse GiveHeldFile(const HttpRequest& request, const Json& answer) {
    auto message = FromBase64(TextOf(answer, "whole"));
    if (!message || !answer.contains("whole")) return ErrorPage(request, 502, ViewerOf(answer));
    const std::string name = "message-" + std::to_string(IdIn(request)) + ".eml";
    HttpResponse response;
    response.headers = {{"Content-Type", "message/rfc822"},
                        {"Content-Disposition", "attachment; filename=\"" + name + '"'}};
    response.body = *std::move(message);
    return response;
}

HttpResponse ShowDropHeld(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    const std::string page = HeldPage(NameIn(request), IdIn(request));
    Html content = El("p", {}, {Tr("The message is deleted here, and no one gets it. This cannot be undone.")});
    content += Message(answer);
    content +=
        El("div", {{"class", "row actions"}},
           {ButtonForm(viewer, page + "/drop", Tr("Drop the message"), "danger"), LinkButton(page, Tr("Keep it"))});
    return ShowPage(request, viewer, {Tr("Drop \"{0}\"?", TitleOf(answer)), content});
}

Asked AskSendHeld(const HttpRequest& request) { return Change(request, "send"); }

HttpResponse AfterSendHeld(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, ListPage(request), TextOf(answer, "printed"));
}

Asked AskDropHeld(const HttpRequest& request) { return Change(request, "drop"); }

HttpResponse AfterDropHeld(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, ListPage(request), Tr("The message is dropped."));
}

}  // namespace tarvex::console
