// Shows mail that is set aside. A stranger wrote it: it is shown as text alone.

#include "console/pages/mails/held.h"

#include <vector>

#include "console/http/base64.h"
#include "console/http/url_text.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;
using host::TrN;

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

std::string SubjectOf(const Json& mail) {
    const std::string subject = TextOf(mail, "subject");
    return subject.empty() ? Tr("(no subject)") : subject;
}

Html Row(const Json& mail) {
    const std::string profile = TextOf(mail, "profile");
    const std::string page = HeldPage(profile, NumberOf(mail, "id"));
    const std::string name = profile + '/' + std::to_string(NumberOf(mail, "id"));
    return El("tr", {},
              {El("td", {},
                  {El("input", {{"type", "checkbox"},
                                {"name", "mail"},
                                {"value", name},
                                {"aria-label", Tr("Select \"{0}\"", SubjectOf(mail))}})}),
               Cell(Tr("Message"), El("span", {},
                                      {LinkTo(page, SubjectOf(mail)),
                                       El("span", {{"class", "below muted"}}, {TextOf(mail, "from")})})),
               TimeCell(Tr("Set aside"), TextOf(mail, "when")),
               Cell(Tr("Mailbox"), LinkTo(ProfilePage(profile), TextOf(mail, "account"))),
               Cell(Tr("Why"), WhyOf(TextOf(mail, "kind"))), Cell(Tr("For whom"), Waiting(mail)),
               Cell(Tr("Size"), TextOf(mail, "size"))});
}

Html Message(const Json& answer) {
    const Json& mail = PartOf(answer, "mail");
    const std::string profile = TextOf(mail, "profile");
    Html facts = Fact(Tr("Sender"), TextOf(answer, "from"));
    facts += Fact(Tr("Mailbox"), LinkTo(ProfilePage(profile), TextOf(answer, "title")));
    facts += Fact(Tr("Set aside"), TextOf(mail, "when"));
    facts += Fact(Tr("Size"), TextOf(mail, "size"));
    facts += Fact(Tr("Why"), WhyOf(TextOf(mail, "kind")));
    facts += Fact(Tr("For whom"), Waiting(mail));
    return El("dl", {{"class", "facts sheet"}}, {facts});
}

// Without script as well: what is checked is sent, or dropped when that is checked, too.
Html ListForm(const Viewer& viewer, const HttpRequest& request, const Html& rows) {
    return ChangeForm(
        viewer, "/held/selected",
        {Hidden("profile", request.Query("profile")),
         El("table", {{"class", "cards"}},
            {TableHead(
                 {Tr("Select"), Tr("Message"), Tr("Set aside"), Tr("Mailbox"), Tr("Why"), Tr("For whom"), Tr("Size")}),
             El("tbody", {}, {rows})}),
         El("div", {{"class", "row actions"}},
            {El("button", {{"name", "verb"}, {"value", "send"}, {"class", "main"}}, {Tr("Send the selected")}),
             El("button", {{"name", "verb"}, {"value", "drop"}, {"class", "danger"}}, {Tr("Drop the selected")}),
             El("label", {{"class", "check"}},
                {El("input", {{"type", "checkbox"}, {"name", "sure"}, {"value", "yes"}}),
                 El("span", {}, {Tr("Dropped messages are lost: I want that.")})})})});
}

Json Change(const HttpRequest& request, const char* verb) {
    return {{"ask", "held-change"}, {"verb", verb}, {"mails", {NameIn(request) + '/' + std::to_string(IdIn(request))}}};
}

std::string ListPage(const HttpRequest& request) { return "/held?profile=" + EncodeEscapes(NameIn(request)); }

}  // namespace

std::string HeldPage(std::string_view profile, std::int64_t id) {
    return "/held" + ProfilePage(profile).substr(std::string_view("/profiles").size()) + '/' + std::to_string(id);
}

Asked AskHeld(const HttpRequest& request) {
    return Json{{"ask", "held"}, {"profile", request.Query("profile")}, {"page", NumberIn(request.Query("page"), 1)}};
}

HttpResponse ShowHeld(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    Html content = El("p", {}, {Tr("What a server refused for good waits here until it is sent or dropped.")});
    if (const std::string_view profile = request.Query("profile"); !profile.empty())
        content += El("p", {{"class", "row"}},
                      {LinkTo(PageAbout(profile), TextOf(answer, "title")), LinkTo("/held", Tr("All mailboxes"))});
    Html rows;
    for (const Json& mail : ListOf(answer, "held")) rows += Row(mail);
    content += rows.IsEmpty() ? El("p", {}, {Tr("No message is set aside.")}) : ListForm(viewer, request, rows);
    content += Pager(answer, "/held?profile=" + EncodeEscapes(request.Query("profile")) + "&page=");
    return ShowPage(request, viewer, {Tr("Held mail"), content});
}

Asked AskSelected(const HttpRequest& request) {
    const std::string list = "/held?profile=" + EncodeEscapes(request.Form("profile"));
    const std::vector<std::string_view> mails = AllOf(request.form, "mail");
    const bool drops = request.Form("verb") == "drop";
    if (mails.empty()) return SeeOtherWithNotice(list, Tr("No message was selected: nothing was changed."));
    if (drops && request.Form("sure") != "yes")
        return SeeOtherWithNotice(
            list, Tr("To drop messages, check below the list that you want to lose them: nothing was changed."));
    return Json{{"ask", "held-change"}, {"verb", drops ? "drop" : "send"}, {"mails", mails}};
}

HttpResponse AfterSelected(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, "/held?profile=" + EncodeEscapes(request.Form("profile")), TextOf(answer, "printed"));
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
    return ShowPage(request, viewer, {SubjectOf(answer), content});
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
    return ShowPage(request, viewer, {Tr("Drop \"{0}\"?", SubjectOf(answer)), content});
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
