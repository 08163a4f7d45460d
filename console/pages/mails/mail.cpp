// The page of one message: each of its stations, and the way to send it once more.

#include "console/pages/mails/mail.h"

#include "console/http/url_text.h"
#include "console/pages/mails/held.h"
#include "console/pages/mails/mails.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;

// How long the server took, where that is known.
std::string Within(const Json& copy) {
    const std::int64_t length = NumberOf(copy, "milliseconds");
    return length > 0 ? " · " + Tr("within {0} ms", length) : "";
}

Html Station(const std::string& moment, const Html& what) {
    return El("tr", {}, {TimeCell(Tr("When"), moment), Cell(Tr("What"), what)});
}

Html Stations(const Json& mail) {
    Html rows;
    if (const std::string fetched = MomentOf(mail, "fetched"); !fetched.empty())
        rows += Station(fetched, Text(Tr("fetched from the mailbox")));
    for (const Json& copy : ListOf(mail, "copies")) {
        const std::string address = TextOf(copy, "address"), words = TextOf(copy, "words");
        Html what = address.empty() ? Html() : El("b", {}, {address});
        what += Text(" ");
        what +=
            Mark({address.empty() ? Tr("could not be fetched") : TextOf(copy, "says"), ToneOf(TextOf(copy, "fate"))});
        what += El("span", {{"class", "below muted"}}, {words, Within(copy)});
        rows += Station(MomentOf(copy, "ended"), what);
    }
    return El("table", {{"class", "cards"}}, {TableHead({Tr("When"), Tr("What")}), El("tbody", {}, {rows})});
}

Html Facts(const Json& answer, const Json& mail) {
    const std::string profile = TextOf(mail, "profile");
    Html facts = Fact(Tr("Sender"), TextOf(mail, "from"));
    facts += Fact(Tr("Mailbox"),
                  IsTrue(answer, "is_there") ? LinkTo(ProfilePage(profile), TextOf(answer, "title")) : Text(profile));
    for (const auto& [name, text] : {std::pair(Tr("Size"), TextOf(answer, "size")),
                                     std::pair(std::string("Message-ID"), TextOf(mail, "message_id")),
                                     std::pair(Tr("Id on the server"), TextOf(mail, "id"))})
        if (!text.empty()) facts += Fact(name, text);
    Html held;
    for (const Json& id : ListOf(answer, "held"))
        if (id.is_number_integer())
            held += LinkTo(HeldPage(profile, id.get<std::int64_t>()), Tr("It is set aside: look at it"));
    if (!held.IsEmpty()) facts += Fact(Tr("Held mail"), held);
    return El("dl", {{"class", "facts sheet"}}, {facts});
}

// To all, or to one of the addresses that the mailbox has now.
Html Resend(const Viewer& viewer, const Json& answer, const std::string& page) {
    Html choices = El("option", {{"value", ""}}, {Tr("all addresses")});
    for (const Json& address : ListOf(answer, "addresses"))
        choices += El("option", {{"value", TextOf(address, "path")}}, {TextOf(address, "address")});
    if (ListOf(answer, "addresses").empty()) return {};
    Html html = El("h2", {}, {Tr("Send it again")});
    html += El("p", {}, {Tr("From where it is set aside, or with the next run while it is in the mailbox.")});
    return html += ChangeForm(viewer, page + "/resend",
                              {El("div", {{"class", "row search"}},
                                  {El("label", {}, {Tr("To"), El("select", {{"name", "to"}}, {choices})}),
                                   El("button", {}, {Tr("Send it again")})})});
}

}  // namespace

std::string MailPage(std::string_view handle) { return "/mails/" + EncodeEscapes(handle); }

Asked AskMail(const HttpRequest& request) { return Json{{"ask", "mail"}, {"message", request.Place("message")}}; }

HttpResponse ShowMail(const HttpRequest& request, const Json& answer) {
    const Json& mail = PartOf(answer, "mail");
    const std::string subject = TextOf(mail, "subject");
    Html content = Facts(answer, mail);
    content += El("h2", {}, {Tr("What became of it")});
    content += Stations(mail);
    content += Resend(ViewerOf(answer), answer, MailPage(request.Place("message")));
    return ShowPage(request, ViewerOf(answer), {subject.empty() ? Tr("(no subject)") : subject, content});
}

Asked AskResend(const HttpRequest& request) {
    return Json{{"ask", "resend"}, {"message", request.Place("message")}, {"to", request.Form("to")}};
}

HttpResponse AfterResend(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, MailPage(request.Place("message")), TextOf(answer, "printed"));
}

}  // namespace tarvex::console
