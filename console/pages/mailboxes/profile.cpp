// The page of a profile, and its log.

#include "console/pages/mailboxes/profile.h"

#include "console/http/url_text.h"
#include "console/pages/mailboxes/week.h"
#include "console/pages/mails/mails.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;
using host::TrN;

Html SwitchForm(const Viewer& viewer, const std::string& action, bool is_on) {
    return ButtonForm(viewer, action, is_on ? Tr("Switch off") : Tr("Switch on"), "quiet",
                      {"status", is_on ? "off" : "on"});
}

Html Actions(const Viewer& viewer, const Json& profile) {
    const std::string page = ProfilePage(TextOf(profile, "path"));
    return El("div", {{"class", "row actions"}},
              {ButtonForm(viewer, page + "/start/run", Tr("Run now"), "main"),
               ButtonForm(viewer, page + "/start/check", Tr("Check the servers")),
               ButtonForm(viewer, page + "/start/plan", Tr("Show what a run would do")),
               LinkButton(page + "/settings", Tr("Settings")),
               SwitchForm(viewer, page + "/switch", IsTrue(profile, "switched_on"))});
}

Html Held(const Json& profile) {
    const std::int64_t held = NumberOf(profile, "held");
    if (held == 0) return Text(Tr("none"));
    return LinkTo("/held?profile=" + EncodeEscapes(TextOf(profile, "path")), TrN("{0} message", "{0} messages", held));
}

Html Remarks(const Json& profile) {
    Html remarks;
    for (const Json& remark : ListOf(profile, "remarks"))
        if (remark.is_string()) remarks += El("li", {}, {remark.get<std::string>()});
    if (remarks.IsEmpty()) return {};
    return El("ul", {{"class", "message warn remarks"}}, {remarks});
}

// A profile that waits goes on when somebody says what is to become of what is in the mailbox.
Html Decision(const Viewer& viewer, const Json& profile) {
    if (ListOf(PartOf(PartOf(profile, "state"), "remembered"), "waiting").empty()) return {};
    const std::string action = ProfilePage(TextOf(profile, "path")) + "/decide";
    return El(
        "div", {{"class", "row actions"}},
        {ButtonForm(viewer, action, Tr("Send what is in the mailbox"), "", {"verb", "accept"}),
         ButtonForm(viewer, action, Tr("Skip it, and send only what comes from now on"), "", {"verb", "catch-up"})});
}

Html Condition(const Viewer& viewer, const Json& profile) {
    const std::string last = TextOf(profile, "last_good");
    const std::string ended = TextOf(profile, "ended");
    Html facts = Fact(Tr("Last run"), TextOf(profile, "last_run") + (ended.empty() ? "" : ": " + ended));
    facts += Fact(Tr("Last success"), last.empty() ? Tr("none yet") : last);
    facts += Fact(Tr("Next run"), TextOf(profile, "next"));
    facts += Fact(Tr("Runs"), TextOf(profile, "runs"));
    facts += Fact(Tr("Sends through"), TextOf(profile, "sends_through"));
    facts += Fact(Tr("Held mail"), Held(profile));
    if (viewer.is_administrator)
        facts +=
            Fact(Tr("User"), LinkTo(PageAbout(TextOf(profile, "path").substr(0, TextOf(profile, "path").find('/'))),
                                    TextOf(profile, "user")));
    const std::string unreadable = TextOf(profile, "unreadable");
    return El(
        "div", {{"id", "condition"}, {"data-live", "5"}},
        {El("p", {{"class", "row"}},
            {Mark(StateOf(TextOf(profile, "level"))), El("span", {{"class", "muted"}}, {TextOf(profile, "nickname")})}),
         unreadable.empty() ? Html() : El("p", {{"class", "message bad"}}, {unreadable}), Remarks(profile),
         Decision(viewer, profile), El("dl", {{"class", "facts sheet"}}, {facts})});
}

// The terms that no week can show: those with dates, those that are switched off, those between half hours.
Html OtherTerms(const Json& address, bool is_whole) {
    Html terms;
    for (const Json& term : ListOf(address, "schedule")) {
        const bool has_date = TextOf(term, "term").find("..") != std::string::npos;
        if (!has_date && is_whole && IsTrue(term, "on")) continue;
        terms += El("li", {}, {TextOf(term, "meaning"), IsTrue(term, "on") ? "" : " (" + Tr("switched off") + ')'});
    }
    return terms.IsEmpty() ? Html() : El("ul", {}, {terms});
}

Html Schedule(const Json& address) {
    const Json& shown = PartOf(address, "week");
    const auto week = WeekIn(ListOf(shown, "days"));
    const bool is_whole = week && IsTrue(shown, "whole");
    Html schedule;
    if (is_whole) schedule += El("p", {}, {WeekInWords(*week)});
    schedule += OtherTerms(address, is_whole);
    if (week) schedule += WeekPicture(*week);
    return schedule;
}

Word PartNow(const Json& address) {
    if (NumberOf(address, "status") == 0) return {Tr("switched off"), ""};
    if (IsTrue(address, "takes_part_now")) return {Tr("gets mail now"), "good"};
    return {Tr("not at this time"), ""};
}

std::string HowMuch(const Json& address) {
    const std::int64_t bytes = NumberOf(address, "textonly");
    if (bytes < 0) return Tr("whole mail");
    return bytes == 0 ? Tr("text mail") : Tr("text mail, {0} bytes", bytes);
}

Html Address(const Viewer& viewer, const Json& address) {
    const std::string page = AddressPage(TextOf(address, "path"));
    return El("section", {{"class", "sheet address"}},
              {El("div", {{"class", "row ends"}},
                  {El("h3", {}, {LinkTo(page, TextOf(address, "address"))}), Mark(PartNow(address))}),
               El("p", {{"class", "muted"}},
                  {TextOf(address, "nickname").empty() ? "" : TextOf(address, "nickname") + " · ", HowMuch(address)}),
               Schedule(address),
               El("div", {{"class", "row"}},
                  {LinkButton(page, Tr("Change times and options")),
                   SwitchForm(viewer, page + "/switch", NumberOf(address, "status") != 0)})});
}

Html Addresses(const Viewer& viewer, const Json& profile) {
    Html addresses = El("h2", {}, {Tr("Forwarding addresses")});
    Html sheets;
    for (const Json& address : ListOf(profile, "addresses")) sheets += Address(viewer, address);
    addresses += El("div", {{"class", "addresses"}}, {sheets});
    if (ListOf(profile, "addresses").empty())
        addresses += El("p", {}, {Tr("None yet: mail stays in the mailbox until there is one.")});
    return addresses += El("p", {}, {LinkButton(ProfilePage(TextOf(profile, "path")) + "/add", Tr("Add an address"))});
}

Html LastMessages(const Json& profile, const Json& answer) {
    const std::string path = TextOf(profile, "path");
    Html html = El("h2", {}, {Tr("Last messages")});
    html += El("div", {{"id", "mails"}, {"data-live", "5"}}, {MailTable(ListOf(answer, "mails"))});
    return html += El("p", {{"class", "row"}},
                      {LinkTo("/mails?profile=" + EncodeEscapes(path), Tr("All messages")),
                       LinkTo(ProfilePage(path) + "/log", Tr("Log of the conversations")),
                       LinkTo("/history?name=" + EncodeEscapes(path), Tr("Runs and changes"))});
}

}  // namespace

Asked AskProfile(const HttpRequest& request) { return Json{{"ask", "profile"}, {"profile", NameIn(request)}}; }

HttpResponse ShowProfile(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    const Json& profile = PartOf(answer, "profile");
    Html content = Actions(viewer, profile);
    content += Condition(viewer, profile);
    content += Addresses(viewer, profile);
    content += LastMessages(profile, answer);
    content += El("p", {{"class", "muted"}}, {Tr("Times are of {0}.", TextOf(answer, "zone"))});
    return ShowPage(request, viewer, {TextOf(profile, "address"), content});
}

Asked AskSwitchProfile(const HttpRequest& request) {
    return Json{{"ask", "change"},
                {"kind", "profile"},
                {"verb", "set"},
                {"name", NameIn(request)},
                {"values", {{"status", request.Form("status")}}}};
}

HttpResponse AfterSwitchProfile(const HttpRequest& request, const Json& answer) {
    const bool is_on = request.Form("status") == "on";
    return AfterChange(answer, ProfilePage(NameIn(request)),
                       is_on ? Tr("The mailbox is switched on.") : Tr("The mailbox is switched off."));
}

Asked AskDecide(const HttpRequest& request) {
    const std::string_view verb = request.Form("verb");
    if (verb != "accept" && verb != "catch-up") return ErrorPage(request, 400);
    return Json{{"ask", "change"}, {"kind", "profile"}, {"verb", verb}, {"name", NameIn(request)}};
}

HttpResponse AfterDecide(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, ProfilePage(NameIn(request)), TextOf(answer, "printed"));
}

Asked AskStart(const HttpRequest& request) {
    return Json{{"ask", "start"}, {"what", request.Place("what")}, {"profile", NameIn(request)}};
}

HttpResponse AfterStart(const HttpRequest&, const Json& answer) {
    return SeeOther("/jobs/" + EncodeEscapes(TextOf(answer, "job")));
}

Asked AskLog(const HttpRequest& request) { return Json{{"ask", "log"}, {"profile", NameIn(request)}}; }

HttpResponse ShowLog(const HttpRequest& request, const Json& answer) {
    std::string lines;
    for (const Json& line : ListOf(answer, "lines"))
        if (line.is_string()) lines += line.get<std::string>() + '\n';
    Html content = El("p", {}, {LinkTo(ProfilePage(NameIn(request)), TextOf(answer, "address"))});
    if (!IsTrue(answer, "is_on")) content += El("p", {{"class", "message warn"}}, {Tr("The log is switched off.")});
    content += lines.empty() ? El("p", {}, {Tr("The log is empty.")})
                             : El("pre", {{"tabindex", 0}, {"role", "region"}, {"aria-label", Tr("Log")}}, {lines});
    return ShowPage(request, ViewerOf(answer), {Tr("Log"), content});
}

}  // namespace tarvex::console
