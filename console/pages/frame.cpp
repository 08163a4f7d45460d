// Draws what all pages have in common.

#include "console/pages/frame.h"

#include <algorithm>
#include <array>

#include "console/http/cookies.h"
#include "console/http/url_text.h"
#include "console/pages/static_files.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Marked;
using host::Tr;

constexpr std::size_t kMostNoticeBytes = 1000;  // a cookie has 4,096 with its escapes

constexpr std::array kNavigation{
    NavigationEntry{"/", Marked("Overview"), Audience::User},
    NavigationEntry{"/held", Marked("Held mail"), Audience::User},
    NavigationEntry{"/mails", Marked("Messages"), Audience::User},
    NavigationEntry{"/history", Marked("Runs and changes"), Audience::User},
    NavigationEntry{"/alerts", Marked("Alerts"), Audience::User},
    NavigationEntry{"/users", Marked("Users"), Audience::Administrator},
    NavigationEntry{"/rules", Marked("Rules"), Audience::Administrator},
    NavigationEntry{"/account", Marked("Your account"), Audience::User},
};

bool IsFor(Audience audience, const Viewer& viewer) {
    return audience == Audience::Anybody ||
           (!viewer.name.empty() && (audience == Audience::User || viewer.is_administrator));
}

// The entry that the page belongs to: "/" only for itself.
bool IsWithin(std::string_view path, std::string_view entry) {
    if (entry == "/") return path == "/";
    return path.starts_with(entry) && (path.size() == entry.size() || path[entry.size()] == '/');
}

Html NavigationBar(const HttpRequest& request, const Viewer& viewer) {
    Html links;
    for (const NavigationEntry& entry : kNavigation) {
        if (!IsFor(entry.audience, viewer)) continue;
        const bool is_here = IsWithin(request.path, entry.path);
        const std::optional<std::string> current = is_here ? std::optional<std::string>("page") : std::nullopt;
        links += El("a", {{"href", entry.path}, {"aria-current", current}}, {Tr(entry.text)});
    }
    if (links.IsEmpty()) return {};
    return El("nav", {{"aria-label", Tr("Parts of the console")}}, {links});
}

// The page again, in the other language. What a form holds cannot be shown again: from there it leads to the overview.
Html LanguageSwitch(const HttpRequest& request) {
    const bool is_japanese = request.language == host::Language::Japanese;
    const std::string_view code = is_japanese ? "en" : "ja";
    return El(
        "form", {{"method", "post"}, {"action", "/language"}, {"class", "plain"}},
        {El("input", {{"type", "hidden"}, {"name", "next"}, {"value", request.method == "GET" ? request.target : "/"}}),
         El("button", {{"name", "language"}, {"value", code}, {"lang", code}}, {is_japanese ? "English" : "日本語"})});
}

Html WhoIsLoggedIn(const Viewer& viewer) {
    if (viewer.name.empty()) return {};
    Html who = El("span", {{"class", "viewer"}}, {viewer.name});
    return who += ChangeForm(viewer, "/logout", {El("button", {{"class", "quiet"}}, {Tr("Log out")})});
}

Html Head(const HttpRequest& request, const Viewer& viewer) {
    return El("header", {{"class", "top"}},
              {El("a", {{"class", "brand"}, {"href", "/"}},
                  {El("img", {{"src", StaticPath("icon.svg")}, {"alt", ""}, {"width", 22}, {"height", 22}}), "Tarvex"}),
               NavigationBar(request, viewer),
               El("div", {{"class", "side"}}, {LanguageSwitch(request), WhoIsLoggedIn(viewer)})});
}

Html Messages(std::string_view notice, std::string_view error) {
    Html messages;
    if (!notice.empty()) messages += El("p", {{"class", "message good"}, {"role", "status"}}, {notice});
    if (!error.empty()) messages += El("p", {{"class", "message bad"}, {"role", "alert"}}, {error});
    return messages;
}

std::string NoticeOf(const HttpRequest& request) { return DecodeEscapes(request.Cookie(kNoticeCookie)).value_or(""); }

struct ErrorText {
    int status;
    const char* title;
    const char* text;
};

constexpr std::array kErrors{
    ErrorText{400, Marked("The request cannot be understood"),
              Marked("The address or the form is not as this console writes it. Go back and try again.")},
    ErrorText{403, Marked("Not allowed"), Marked("You may not see or change this.")},
    ErrorText{404, Marked("No such page"), Marked("There is nothing at this address, or it is not yours to see.")},
    ErrorText{405, Marked("Not possible here"), Marked("This address does not take such a request.")},
    ErrorText{411, Marked("The request cannot be understood"), Marked("The request does not say how long it is.")},
    ErrorText{413, Marked("Too much at once"), Marked("A form may hold 1 MiB. Send less at a time.")},
    ErrorText{415, Marked("The request cannot be understood"), Marked("What was sent is not a form of this console.")},
    ErrorText{421, Marked("Not the name of this console"),
              Marked("This console does not answer to the name in the address. Its operator adds names with the "
                     "option --host of tarvex-console.")},
    ErrorText{422, Marked("Not done"), Marked("The change was refused.")},
    ErrorText{431, Marked("The request cannot be understood"),
              Marked("The browser sent more than 16 KiB beside the form. Deleting the cookies of this site may help.")},
    ErrorText{500, Marked("Something went wrong"), Marked("The console has failed at this. Its journal says more.")},
    ErrorText{502, Marked("The service gave a wrong answer"),
              Marked("The console and the service may be of different versions. The console's journal says more.")},
    ErrorText{503, Marked("The service does not answer"),
              Marked("The Tarvex service is not running, or its console is turned off. Try again in a moment.")},
    ErrorText{504, Marked("The service is slow"),
              Marked("The service did not answer in time. What was asked of it may still happen: look before you "
                     "try again.")},
};

}  // namespace

std::span<const NavigationEntry> Navigation() { return kNavigation; }

Viewer ViewerOf(const Json& answer) {
    const auto user = answer.find("user");
    if (user == answer.end() || !user->is_object()) return {};
    return {TextOf(*user, "name"), TextOf(*user, "path"), IsTrue(*user, "administrator"), TextOf(answer, "token")};
}

HttpResponse ShowPage(const HttpRequest& request, const Viewer& viewer, const Page& page) {
    const std::string notice = NoticeOf(request);
    Html body = El("a", {{"class", "skip"}, {"href", "#content"}}, {Tr("To the content")});
    body += Head(request, viewer);
    body += El("main", {{"id", "content"}, {"class", page.is_narrow ? "narrow" : "wide"}, {"tabindex", -1}},
               {Messages(notice, page.error), El("h1", {}, {page.title}), page.content});
    HttpResponse response;
    response.status = page.status;
    response.headers.push_back({"Content-Type", "text/html; charset=utf-8"});
    response.headers.push_back({"Content-Language", std::string(host::LanguageCode(request.language))});
    if (!request.Cookie(kNoticeCookie).empty()) response.headers.push_back(ForgetCookie(kNoticeCookie));
    const std::string style = StaticPath("style.css");
    const std::string script = StaticPath("script.js");
    const std::string icon = StaticPath("icon.svg");
    response.body = Document({host::LanguageCode(request.language), page.title + " · Tarvex", style, script, icon},
                             El("body", {}, {body}));
    return response;
}

HttpResponse ErrorPage(const HttpRequest& request, int status, const Viewer& viewer, std::string_view message) {
    auto text = std::ranges::find(kErrors, status, &ErrorText::status);
    if (text == kErrors.end()) text = std::ranges::find(kErrors, 500, &ErrorText::status);
    Page page;
    page.title = Tr(text->title);
    page.status = status;
    page.is_narrow = true;
    page.content = El("p", {}, {message.empty() ? Tr(text->text) : std::string(message)});
    page.content += El("p", {}, {El("a", {{"href", "/"}}, {Tr("To the overview")})});
    return ShowPage(request, viewer, page);
}

HttpResponse SeeOtherWithNotice(std::string_view path, std::string_view notice) {
    std::string_view cut = notice.substr(0, kMostNoticeBytes);
    while (!IsText(cut)) cut.remove_suffix(1);
    HttpResponse response = SeeOther(path);
    if (!cut.empty()) response.headers.push_back(KeepCookieFor(kNoticeCookie, cut, 60));
    return response;
}

Html ChangeForm(const Viewer& viewer, std::string_view action, std::initializer_list<Node> content) {
    Html inside = El("input", {{"type", "hidden"}, {"name", "token"}, {"value", viewer.token}});
    for (const Node& node : content) inside += node.AsHtml();
    return El("form", {{"method", "post"}, {"action", action}}, {inside});
}

}  // namespace tarvex::console
